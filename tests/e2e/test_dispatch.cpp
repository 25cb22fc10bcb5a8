// The command line: every row of the mode dispatch, byte for byte.
#include <gtest/gtest.h>

#include <filesystem>

#include "run_program.h"
#include "support.h"

namespace {

const std::string kCheckBanner = "\r\ncheck file hash mode:\r\n";
const std::string kCsBanner = "\r\napplet checksum mode:\r\n";
const std::string kTaBanner = "\r\nVeltora Admin checksum mode:\r\n";
// With no PC/SC service a card mode ends quietly as a success.
const std::string kNoService = "PCSCLITE_CSOCK_NAME=/nonexistent/pcscd.comm";

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
        {{"-cs"}, kCsBanner, 0},
        {{"-cs", "records.txt"}, kCsBanner, 0},
        {{"-cs", "a", "b"}, kCsBanner, 0},
        {{"-ta"}, kTaBanner, 0},
        {{"-ta", "f"}, kTaBanner, 0},
        {{"-ta", "a", "b", "c"}, kTaBanner, 0},
    };
    for (const auto& row : rows) {
        testsupport::TempDir dir;
        std::string label = "veltcheck";
        for (const auto& a : row.args) label += " '" + a + "'";
        SCOPED_TRACE(label);
        const RunResult r = runVeltcheck(row.args, dir.path(), {kNoService});
        EXPECT_EQ(r.out, row.out);
        EXPECT_EQ(r.status, row.status);
        // Nothing but -mfhl with files may create a file.
        EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
    }
}
