// Runs the built veltcheck and captures what a user would see.
#pragma once

#include <string>
#include <vector>

struct RunResult {
    std::string out;  // the whole standard output
    int status;       // exit status (a -1 from main is 255); 1000 + signal if killed
    bool runningAtMark = false;  // see `until` below
};

// Runs veltcheck with argv[0] = "veltcheck" and the given arguments in cwd,
// with the "NAME=value" entries of env added to its environment. A run that
// hangs is ended by SIGALRM after five minutes. With `until`, the run is
// killed as soon as its output holds that text, and runningAtMark says
// whether it was still running then (its output was not held back).
RunResult runVeltcheck(const std::vector<std::string>& args, const std::string& cwd,
                       const std::vector<std::string>& env = {}, const std::string& until = "");
