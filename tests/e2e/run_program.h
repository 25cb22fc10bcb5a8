// Runs the built veltcheck and captures what a user would see.
#pragma once

#include <string>
#include <vector>

struct RunResult {
    std::string out;  // the whole standard output
    int status;       // exit status (a -1 from main is 255); 1000 + signal if killed
};

// Runs veltcheck with argv[0] = "veltcheck" and the given arguments in cwd,
// with the "NAME=value" entries of env added to its environment.
RunResult runVeltcheck(const std::vector<std::string>& args, const std::string& cwd,
                       const std::vector<std::string>& env = {});

// The usage text as the program prints it for argv[0] = "veltcheck".
std::string usageText();
