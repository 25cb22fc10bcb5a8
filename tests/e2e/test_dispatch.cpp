// The command line: every row of the mode dispatch, byte for byte.
#include <gtest/gtest.h>

#include <filesystem>

#include "run_program.h"
#include "support.h"

namespace {

const std::string kCheckBanner = "\r\ncheck file hash mode:\r\n";
const std::string kCsBanner = "\r\napplet checksum mode:\r\n";
const std::string kTaBanner = "\r\nVeltora Admin checksum mode:\r\n";
const std::string kCardFailure = "\r\nError 0\r\n";

std::string missingList(const std::string& name) { return kCheckBanner + "\nError -1 in " + name + "\n"; }

struct Row {
    std::vector<std::string> args;
    std::string out;
    int status;
};

}  // namespace

TEST(Dispatch, EveryRowOfTheCommandLine) {
    const std::vector<Row> rows = {
        {{}, missingList("veltcheck.txt"), 255},
        {{"-h"}, usageText(), 0},
        {{"-?"}, usageText(), 0},
        {{"-h", "x"}, usageText(), 0},
        {{"-?", "x", "y", "z"}, usageText(), 0},
        {{"-mfhl"}, missingList("-mfhl"), 255},  // a lone -mfhl names a list to check
        {{"-mfhl", "out.txt"}, usageText(), 0},
        {{"a", "b"}, usageText(), 0},
        {{"a", "b", "c"}, usageText(), 0},
        {{"list.txt"}, missingList("list.txt"), 255},
        {{"-TA"}, missingList("-TA"), 255},
        {{"-ta2"}, missingList("-ta2"), 255},
        {{"-CS"}, missingList("-CS"), 255},
        {{"-H"}, missingList("-H"), 255},
        {{"-h "}, missingList("-h "), 255},
        {{"-cs"}, kCsBanner + kCardFailure, 255},
        {{"-cs", "records.txt"}, kCsBanner + kCardFailure, 255},
        {{"-cs", "a", "b"}, kCsBanner + kCardFailure, 255},
        {{"-ta"}, kTaBanner + kCardFailure, 255},
        {{"-ta", "f"}, kTaBanner + kCardFailure, 255},
        {{"-ta", "a", "b", "c"}, kTaBanner + kCardFailure, 255},
    };
    for (const auto& row : rows) {
        testsupport::TempDir dir;
        std::string label = "veltcheck";
        for (const auto& a : row.args) label += " '" + a + "'";
        SCOPED_TRACE(label);
        const RunResult r = runVeltcheck(row.args, dir.path());
        EXPECT_EQ(r.out, row.out);
        EXPECT_EQ(r.status, row.status);
        // Nothing but -mfhl with files may create a file.
        EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
    }
}
