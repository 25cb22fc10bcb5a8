// Make file hash list and check file hash, run as a user runs them. Every
// expected list is built here from rhash digests, independently of the program.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <regex>
#include <sstream>

#include "run_program.h"
#include "support.h"

using testsupport::readFile;
using testsupport::rhashBytes;
using testsupport::rhashFile;
using testsupport::TempDir;
using testsupport::writeFile;

namespace {

const std::string kCheckBanner = "\r\ncheck file hash mode:\r\n";
const std::string kMakeBanner = "\r\nMake file hash list mode:\r\n";
const std::string kHeaderStart = "veltcheck 1.1.0.205;HASH OID:1.2.643.7.1.1.2.2; TIME:";
const std::string kEmptyDigest = "3F539A213E97C802CC229D474C6AA32A825A360B2A933A949FD925208D9CE1BB";
const std::string kDigits63 = "012345678901234567890123456789012345678901234567890123456789012";
const std::string kDigits63Digest = "9D151EEFD8590B89DAA6BA6CB74AF9275DD051026BB149A452FD84E5E57B5500";

std::string verdict(const std::string& name, const std::string& word) {
    return "\nfile '" + name + "' check - " + word;
}
std::string allOk(const std::string& list) { return "\nAll files in '" + list + "' checked - Ok!\n"; }
std::string failed(int code, const std::string& list) {
    return "\nError " + std::to_string(code) + " in " + list + "\n";
}

std::string entry(const std::string& name, const std::string& digest) { return "#" + name + "$" + digest + "\r\n"; }

// Body plus the trailer: "*" and the digest of everything up to and including it.
std::string withTrailer(const std::string& body) { return body + "*" + rhashBytes("gost12-256", body + "*"); }

std::string header(const std::string& time) { return kHeaderStart + time + ";\r\n"; }

// The time field of a list the program wrote; fails the test if the header is malformed.
std::string timeOf(const std::string& list) {
    EXPECT_EQ(list.compare(0, kHeaderStart.size(), kHeaderStart), 0) << list.substr(0, 80);
    const size_t end = list.find(";\r\n", kHeaderStart.size());
    if (end == std::string::npos) return "";
    return list.substr(kHeaderStart.size(), end - kHeaderStart.size());
}

// A path of exactly `len` bytes naming dir/a.bin, padded with "./" steps.
std::string pathOfLength(size_t len) {
    std::string p;
    const std::string tail = (len % 2) ? "a.bin" : "/a.bin";
    while (p.size() + tail.size() < len) p += "./";
    return p + tail;
}

class FileModes : public ::testing::Test {
protected:
    void SetUp() override {
        writeFile(dir.file("a.bin"), "alpha\n");
        std::string b(70000, '\0');  // more than one read chunk
        for (size_t i = 0; i < b.size(); ++i) b[i] = static_cast<char>(i * 31 + 5);
        writeFile(dir.file("b.bin"), b);
        std::filesystem::create_directory(dir.file("sub"));
        writeFile(dir.file("sub/c.bin"), kDigits63);
        if (!std::filesystem::exists(dir.file("fifo"))) mkfifo(dir.file("fifo").c_str(), 0600);
        writeFile(dir.file("x*y"), "");
        writeFile(dir.file("p$q"), "");
    }
    RunResult run(const std::vector<std::string>& args) { return runVeltcheck(args, dir.path()); }
    std::string digestOf(const std::string& name) { return rhashFile("gost12-256", dir.file(name)); }

    TempDir dir;
};

}  // namespace

TEST_F(FileModes, MakeWritesTheExactListAndCheckAcceptsIt) {
    const RunResult made = run({"-mfhl", "out.txt", "a.bin", "sub/c.bin", "b.bin", "a.bin"});
    const std::string written = readFile(dir.file("out.txt"));
    const std::string time = timeOf(written);
    EXPECT_TRUE(std::regex_match(time, std::regex(R"(\d\d/\d\d/\d\d_\d\d:\d\d:\d\d)"))) << time;

    const std::string expected =
        withTrailer(header(time) + entry("a.bin", digestOf("a.bin")) + entry("sub/c.bin", kDigits63Digest) +
                    entry("b.bin", digestOf("b.bin")) + entry("a.bin", digestOf("a.bin")));
    EXPECT_EQ(written, expected);
    EXPECT_EQ(made.out, kMakeBanner + expected + "\n");
    EXPECT_EQ(made.status, 0);

    const RunResult checked = run({"out.txt"});
    EXPECT_EQ(checked.out, kCheckBanner + verdict("out.txt", "Ok!") + verdict("a.bin", "Ok!") +
                               verdict("sub/c.bin", "Ok!") + verdict("b.bin", "Ok!") + verdict("a.bin", "Ok!") +
                               allOk("out.txt"));
    EXPECT_EQ(checked.status, 0);
}

TEST_F(FileModes, BareCommandChecksTheDefaultList) {
    ASSERT_EQ(run({"-mfhl", "veltcheck.txt", "a.bin"}).status, 0);
    const RunResult r = run({});
    EXPECT_EQ(r.out, kCheckBanner + verdict("veltcheck.txt", "Ok!") + verdict("a.bin", "Ok!") + allOk("veltcheck.txt"));
    EXPECT_EQ(r.status, 0);
}

// Lists that are made, then tampered with, truncated or malformed.
TEST_F(FileModes, CheckTable) {
    const std::string a = entry("a.bin", digestOf("a.bin")), b = entry("b.bin", digestOf("b.bin"));
    const std::string good = withTrailer(header("01/02/03_04:05:06") + a + b);
    const std::string list = "list.txt";
    const std::string listOk = verdict(list, "Ok!"), listBad = verdict(list, "error!");
    std::string lowerEntry = a;
    const size_t letter = lowerEntry.find_first_of("ABCDEF", lowerEntry.find('$'));
    lowerEntry[letter] = static_cast<char>(std::tolower(lowerEntry[letter]));
    const std::string garbageNoStar = [] {
        std::string g;
        for (int i = 0; i < 5000; ++i) {
            char c = static_cast<char>((i * 7919 + 13) % 251 + 1);
            g += c == '*' ? '+' : c;
        }
        return g;
    }();
    const std::string filler(131071 - 65, ' ');

    struct Row {
        std::string name;
        std::string list;
        std::string verdicts;  // the per-file lines after the banner
        int code;
        std::function<void()> prepare;
    };
    const std::vector<Row> rows = {
        {"intact", good, listOk + verdict("a.bin", "Ok!") + verdict("b.bin", "Ok!"), 1, {}},
        {"listed file changed", good, listOk + verdict("a.bin", "Ok!") + verdict("b.bin", "error!"), 0,
         [&] { writeFile(dir.file("b.bin"), "changed"); }},
        {"first file changed stops the check", good, listOk + verdict("a.bin", "error!"), 0,
         [&] { writeFile(dir.file("a.bin"), "changed"); }},
        {"header byte changed", "X" + good.substr(1), listBad, -4, {}},
        {"trailer digit changed", good.substr(0, good.size() - 1) + (good.back() == '0' ? "1" : "0"), listBad, -4, {}},
        {"trailer truncated", good.substr(0, good.size() - 1), listBad, -4, {}},
        {"ends right after the star", good.substr(0, good.find('*') + 1), listBad, -4, {}},
        {"no star", header("t") + a, listBad, -3, {}},
        {"binary garbage", garbageNoStar, listBad, -3, {}},
        {"zero byte before the star", std::string("ab\0", 3) + good, listBad, -3, {}},
        {"zero byte after the trailer hides what follows",
         good + std::string(1, '\0') + "#x$",
         listOk + verdict("a.bin", "Ok!") + verdict("b.bin", "Ok!"),
         1,
         {}},
        {"empty", "", "", -2, {}},
        {"131072 bytes", std::string(131072, ' '), "", -2, {}},
        {"exactly 131071 bytes", withTrailer(filler), listOk, 1, {}},
        {"only the trailer", withTrailer(""), listOk, 1, {}},
        {"lower-case digest", withTrailer(lowerEntry), listOk + verdict("a.bin", "error!"), 0, {}},
        {"name without dollar after good entries",
         withTrailer(a + "#b.bin\r\n"),
         listOk + verdict("a.bin", "Ok!"),
         0,
         {}},
        {"ends right after a dollar",
         withTrailer(a) + "#a.bin$",
         listOk + verdict("a.bin", "Ok!") + verdict("a.bin", "error!"),
         0,
         {}},
        {"dollar before hash", withTrailer("$" + a), listOk, 0, {}},
        {"lone hash", withTrailer("#"), listOk, 0, {}},
        {"missing file", withTrailer(entry("none.bin", kEmptyDigest)), listOk + verdict("none.bin", "error!"), 0, {}},
        {"directory with the empty digest",
         withTrailer(entry("sub", kEmptyDigest)),
         listOk + verdict("sub", "error!"),
         0,
         {}},
        {"FIFO, never waited on", withTrailer(entry("fifo", kEmptyDigest)), listOk + verdict("fifo", "error!"), 0, {}},
        {"endless device",
         withTrailer(entry("/dev/zero", kEmptyDigest)),
         listOk + verdict("/dev/zero", "error!"),
         0,
         {}},
        {"empty name", withTrailer(entry("", kEmptyDigest)), listOk + verdict("", "error!"), 0, {}},
        {"name of 4000 bytes",
         withTrailer(entry(std::string(4000, 'n'), kEmptyDigest)),
         listOk + verdict(std::string(4000, 'n'), "error!"),
         0,
         {}},
        {"hash inside a name", withTrailer(entry("x#y", kEmptyDigest)), listOk + verdict("x#y", "Ok!"), 1,
         [&] { writeFile(dir.file("x#y"), ""); }},
        {"known digests", withTrailer(entry("sub/c.bin", kDigits63Digest) + entry("e", kEmptyDigest)),
         listOk + verdict("sub/c.bin", "Ok!") + verdict("e", "Ok!"), 1, [&] { writeFile(dir.file("e"), ""); }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        SetUp();  // fresh listed files for every row
        if (row.prepare) row.prepare();
        writeFile(dir.file(list), row.list);
        const RunResult r = run({list});
        const std::string last = row.code == 1 ? allOk(list) : failed(row.code, list);
        EXPECT_EQ(r.out, kCheckBanner + row.verdicts + last);
        EXPECT_EQ(r.status, row.code == 1 ? 0 : 255);
    }
}

TEST_F(FileModes, MakeFailuresWriteNoList) {
    const std::string longName(4000, 'n');
    const std::string refused = " : HASH error! Can't list a name holding ";
    struct Row {
        std::vector<std::string> args;
        std::string out;
        int status;
        bool listCreated;  // out.txt, then empty
    };
    const std::vector<Row> rows = {
        {{"-mfhl", "out.txt", "a.bin", "missing.bin"},
         "\r\nmissing.bin : HASH error! Can't open file missing.bin !",
         0,
         true},
        {{"-mfhl", "out.txt", "sub"}, "\r\nsub : HASH error! Can't open file sub !", 0, true},
        {{"-mfhl", "out.txt", "fifo"}, "\r\nfifo : HASH error! Can't open file fifo !", 0, true},
        {{"-mfhl", "out.txt", "/dev/zero"}, "\r\n/dev/zero : HASH error! Can't open file /dev/zero !", 0, true},
        {{"-mfhl", "out.txt", ""}, "\r\n : HASH error! Can't open file  !", 0, true},
        {{"-mfhl", "out.txt", longName},
         "\r\n" + longName + " : HASH error! Can't open file " + longName + " !",
         0,
         true},
        // Refused before any file is hashed, the missing one included.
        {{"-mfhl", "out.txt", "a.bin", "missing.bin", "x*y"}, "\r\nx*y" + refused + "'*' !", 0, true},
        {{"-mfhl", "out.txt", "p$q"}, "\r\np$q" + refused + "'$' !", 0, true},
        {{"-mfhl", "nodir/out.txt", "a.bin"}, "\r\n Error: can't create file nodir/out.txt !", 0, false},
        {{"-mfhl", "/dev/full", "a.bin"}, "\r\n Error: can't write file /dev/full !", 255, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.args.back());
        std::filesystem::remove(dir.file("out.txt"));
        const RunResult r = run(row.args);
        EXPECT_EQ(r.out, kMakeBanner + row.out);
        EXPECT_EQ(r.status, row.status);
        EXPECT_EQ(std::filesystem::exists(dir.file("out.txt")), row.listCreated);
        if (row.listCreated) {
            EXPECT_EQ(readFile(dir.file("out.txt")), "");
        }
    }
}

// The list is on disk, whole, before the echo: neither a reader of the echo
// that goes away nor a closed standard output can cut it short or write into it.
TEST_F(FileModes, ListIsWholeWhateverStandardOutputIs) {
    std::string names;
    for (int i = 0; i < 1500; ++i) names += " a.bin";  // an echo larger than a pipe holds
    const std::string program = VELTCHECK_BIN;
    for (const char* redirect : {" | head -c 10 >/dev/null", " >&-", " >&- <&- 2>&-"}) {
        SCOPED_TRACE(redirect);
        std::filesystem::remove(dir.file("out.txt"));
        const std::string command = "cd '" + dir.path() + "' && '" + program + "' -mfhl out.txt" + names + redirect;
        ASSERT_EQ(std::system(("bash -c \"" + command + "\"").c_str()), 0);
        const std::string list = readFile(dir.file("out.txt"));
        EXPECT_EQ(list.find("Make file"), std::string::npos);
        const RunResult checked = run({"out.txt"});
        EXPECT_EQ(checked.status, 0) << checked.out.substr(0, 200);
    }
}

// The entries may fill exactly 131071 bytes; the trailer then goes beyond it
// and the checker refuses the list as too long. One byte more and the maker
// writes nothing at all.
TEST_F(FileModes, ListSizeBound) {
    ASSERT_EQ(run({"-mfhl", "probe.txt", "a.bin"}).status, 0);
    const size_t headerLen = header(timeOf(readFile(dir.file("probe.txt")))).size();
    const size_t entryOverhead = 1 + 1 + 64 + 2;
    std::vector<std::string> names(32, pathOfLength(4001));
    const size_t used = headerLen + names.size() * (4001 + entryOverhead);
    names.push_back(pathOfLength(131071 - used - entryOverhead));

    std::vector<std::string> args = {"-mfhl", "out.txt"};
    args.insert(args.end(), names.begin(), names.end());
    RunResult r = run(args);
    const std::string written = readFile(dir.file("out.txt"));
    EXPECT_EQ(written.size(), 131071u + 65u);
    EXPECT_EQ(r.out, kMakeBanner + written + "\n");
    EXPECT_EQ(written.substr(written.size() - 65, 1), "*");
    r = run({"out.txt"});
    EXPECT_EQ(r.out, kCheckBanner + failed(-2, "out.txt"));
    EXPECT_EQ(r.status, 255);

    args.back() = pathOfLength(names.back().size() + 1);
    r = run(args);
    EXPECT_EQ(r.out, kMakeBanner);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(readFile(dir.file("out.txt")), "");
}

// A file of 100 MiB hashes as rhash hashes it.
TEST(LargeFile, DigestMatchesRhash) {
    TempDir dir;
    {
        std::FILE* f = std::fopen(dir.file("big.bin").c_str(), "wb");
        ASSERT_NE(f, nullptr);
        std::vector<uint32_t> chunk(1 << 18);  // 1 MiB
        uint32_t x = 2463534242u;
        for (int mib = 0; mib < 100; ++mib) {
            for (auto& w : chunk) {
                x ^= x << 13;
                x ^= x >> 17;
                x ^= x << 5;
                w = x;
            }
            ASSERT_EQ(std::fwrite(chunk.data(), 4, chunk.size(), f), chunk.size());
        }
        std::fclose(f);
    }
    const RunResult made = runVeltcheck({"-mfhl", "list.txt", "big.bin"}, dir.path());
    const std::string list = readFile(dir.file("list.txt"));
    const size_t at = list.find("#big.bin$");
    ASSERT_NE(at, std::string::npos) << made.out;
    EXPECT_EQ(list.substr(at + 9, 64), rhashFile("gost12-256", dir.file("big.bin")));
    const RunResult checked = runVeltcheck({"list.txt"}, dir.path());
    EXPECT_EQ(checked.status, 0) << checked.out;
}

// Files past every 32-bit bound (sparse, all zeros) are listed and checked
// with the digests rhash gives them; and a check shows each verdict as it is
// decided, while later files are still being read.
TEST(LargeFiles, ListedAndCheckedPastEvery32BitBound) {
#if defined(VELT_SANITIZE)
    GTEST_SKIP() << "13 GiB to hash twice: the optimised builds only";
#endif
    TempDir dir;
    writeFile(dir.file("a.bin"), "alpha\n");
    std::vector<std::string> args = {"-mfhl", "list.txt", "a.bin"};
    std::string expected;
    std::ifstream vectors(VELT_VECTORS_DIR "/zero_files.txt");
    std::string line;
    while (std::getline(vectors, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream fields(line);
        uintmax_t size = 0;
        std::string digest;
        fields >> size >> digest;
        const std::string name = "z" + std::to_string(size);
        writeFile(dir.file(name), "");
        std::filesystem::resize_file(dir.file(name), size);
        args.push_back(name);
        expected += entry(name, digest);
    }
    ASSERT_EQ(args.size(), 7u);

    const RunResult made = runVeltcheck(args, dir.path());
    ASSERT_EQ(made.status, 0) << made.out;
    const std::string list = readFile(dir.file("list.txt"));
    EXPECT_NE(list.find(entry("a.bin", rhashFile("gost12-256", dir.file("a.bin"))) + expected), std::string::npos)
        << list;
    const RunResult checked = runVeltcheck({"list.txt"}, dir.path());
    EXPECT_EQ(checked.status, 0) << checked.out;

    const RunResult watched = runVeltcheck({"list.txt"}, dir.path(), {}, verdict("a.bin", "Ok!"));
    EXPECT_TRUE(watched.runningAtMark) << watched.out;
}
