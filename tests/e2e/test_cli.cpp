// The rows of cli_rows.txt (what they say is explained at its top), and the
// runs that need files too large to keep as rows.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "run_program.h"
#include "support.h"

using testsupport::readFile;
using testsupport::rhashBytes;
using testsupport::rhashFile;
using testsupport::TempDir;
using testsupport::writeFile;

namespace {

const char kNoService[] = "PCSCLITE_CSOCK_NAME=/nonexistent/pcscd.comm";

struct Row {
    std::string name;
    std::vector<std::pair<std::string, std::string>> steps;  // directive, argument
};

std::map<std::string, std::string> gDefines;

std::vector<Row> readRows(const std::string& path) {
    std::vector<Row> rows;
    std::ifstream in(path);
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        const size_t colon = line.find(':');
        const std::string key = line.substr(0, colon);
        const std::string value = line.size() > colon + 1 ? line.substr(colon + 2) : "";
        if (key == "define") gDefines[value.substr(0, value.find(" = "))] = value.substr(value.find(" = ") + 3);
        else if (key == "row") rows.push_back({value, {}});
        else rows.back().steps.emplace_back(key, value);
    }
    return rows;
}

class Runner {
public:
    explicit Runner(const Row& row) : row_(row) {
        writeFile(dir_.file("a.bin"), "alpha\n");
        std::string b(70000, '\0');
        for (size_t i = 0; i < b.size(); ++i) b[i] = static_cast<char>(i * 31 + 5);
        writeFile(dir_.file("b.bin"), b);
        std::filesystem::create_directory(dir_.file("sub"));
        writeFile(dir_.file("sub/c.bin"), "012345678901234567890123456789012345678901234567890123456789012");
        writeFile(dir_.file("x*y"), "");
        writeFile(dir_.file("p$q"), "");
    }

    void run() {
        for (const auto& [key, value] : row_.steps) {
            SCOPED_TRACE(key + ": " + value.substr(0, 100));
            if (key != "out" && key != "status" && key != "after") finishStep();
            if (key == "run" || key == "shell") {
                before_ = listing();
                ran_ = true;
                result_ = key == "run" ? shell("veltcheck " + value + " > \"$OUT\"", std::getenv("VELT_VALGRIND"))
                                       : shell(value, false);
                digests_.clear();
                expected_.clear();
            } else if (key == "out") {
                expected_ += value;
            } else if (key == "status") {
                checkOutput();
                EXPECT_EQ(result_.status, std::stoi(value));
            } else if (key == "after") {
                afterStep(value);
            } else {
                prepare(key, value);
            }
        }
        finishStep();
    }

private:
    // file:, list:, fifo:, poke:, cut:.
    void prepare(const std::string& key, const std::string& value) {
        digests_.clear();
        std::istringstream words(value);
        std::string name;
        words >> name;
        const std::string path = dir_.file(name);
        const size_t eq = value.find(" = ");
        const std::string text = eq == std::string::npos ? "" : value.substr(eq + 3);
        if (key == "file") {
            writeFile(path, expand(text, kFixedTime));
        } else if (key == "list") {
            const std::string body = expand(text, kFixedTime) + "*";
            writeFile(path, body + rhashBytes("gost12-256", body));
        } else if (key == "fifo") {
            ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
        } else if (key == "poke" || key == "cut") {
            long n = 0;
            words >> n;
            std::string bytes = readFile(path);
            if (key == "cut") bytes.resize(bytes.size() - static_cast<size_t>(n));
            else bytes[n < 0 ? bytes.size() + n : static_cast<size_t>(n)] ^= 1;
            writeFile(path, bytes);
        } else {
            FAIL() << "unknown directive " << key;
        }
    }

    void checkOutput() {
        const std::string want = expand(expected_, stampIn(result_.out));
        EXPECT_EQ(result_.out, want);
        expected_.clear();
    }

    void afterStep(const std::string& value) {
        const std::string name = value.substr(0, value.find(' '));
        named_.push_back(name);
        const std::string path = dir_.file(name);
        if (value == name + " absent") {
            EXPECT_FALSE(std::filesystem::exists(path)) << name;
            return;
        }
        ASSERT_TRUE(std::filesystem::exists(path)) << name;
        if (value == name) return;
        const std::string got = readFile(path);
        const size_t eq = value.find(" =");
        EXPECT_EQ(got, expand(value.substr(std::min(value.size(), eq + 3)), stampIn(got))) << name;
    }

    // A run creates no file but those its after: lines name.
    void finishStep() {
        if (!ran_) return;
        ran_ = false;
        for (const std::string& name : listing()) {
            if (before_.count(name) == 0 && std::find(named_.begin(), named_.end(), name) == named_.end())
                ADD_FAILURE() << "the run created " << name;
        }
        named_.clear();
    }

    std::set<std::string> listing() const {
        std::set<std::string> names;
        for (const auto& e : std::filesystem::recursive_directory_iterator(dir_.path()))
            names.insert(std::filesystem::relative(e.path(), dir_.path()).string());
        return names;
    }

    // Runs command with bash in the row's folder, veltcheck standing for the
    // program (under valgrind's memcheck for run: rows when VELT_VALGRIND is
    // set: valgrind needs the descriptors shell: rows close), $OUT for a file
    // whose contents become the result's output.
    RunResult shell(const std::string& command, bool valgrind) {
        const TempDir scratch;
        const std::string bin = VELTCHECK_BIN, binDir = bin.substr(0, bin.rfind('/'));
        const std::string program = !valgrind
                                        ? "(exec -a veltcheck '" + bin + "' \"$@\")"
                                        : "PATH='" + binDir + "':$PATH valgrind --quiet --error-exitcode=99 "
                                          "--leak-check=full --errors-for-leak-kinds=definite veltcheck \"$@\"";
        writeFile(scratch.file("run.sh"), "export " + std::string(kNoService) + " OUT='" + scratch.file("out") +
                                              "'\nveltcheck() { " + program + "; }\ncd '" + dir_.path() + "' && " +
                                              expand(command) + "\n");
        const int status = std::system(("bash " + scratch.file("run.sh")).c_str());
        return {std::filesystem::exists(scratch.file("out")) ? readFile(scratch.file("out")) : "",
                WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status)};
    }

    static std::string stampIn(const std::string& text) {
        std::smatch m;
        const std::regex stamp("TIME:(\\d\\d/\\d\\d/\\d\\d_\\d\\d:\\d\\d:\\d\\d);");
        return std::regex_search(text, m, stamp) ? m[1].str() : "(no time stamp)";
    }

    std::string digest(const std::string& name) {
        auto it = digests_.find(name);
        if (it == digests_.end()) it = digests_.emplace(name, rhashFile("gost12-256", dir_.file(name))).first;
        return it->second;
    }

    std::string expand(const std::string& text, const std::string& stamp = kFixedTime) {
        std::string out;
        size_t header = 0;
        expandInto(out, text, stamp, header);
        return out;
    }

    void expandInto(std::string& out, const std::string& text, const std::string& stamp, size_t& header) {
        for (size_t i = 0; i < text.size(); ++i) {
            const char c = text[i];
            if (c == '\\' && i + 1 < text.size()) {
                const char e = text[++i];
                if (e == 'x') {
                    out += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
                    i += 2;
                } else {
                    out += e == 'r' ? '\r' : e == 'n' ? '\n' : e == '0' ? '\0' : e;
                }
            } else if (c == '{') {
                size_t end = i + 1;
                for (int depth = 1; depth > 0; ++end) depth += text[end] == '{' ? 1 : text[end] == '}' ? -1 : 0;
                expandBrace(out, text.substr(i + 1, end - i - 2), stamp, header);
                i = end - 1;
            } else {
                out += c;
            }
        }
    }

    void expandBrace(std::string& out, const std::string& brace, const std::string& stamp, size_t& header) {
        const size_t colon = brace.find(':'), star = brace.find('*');
        const std::string op = brace.substr(0, colon);
        std::string arg;
        size_t inner = 0;
        if (colon != std::string::npos) expandInto(arg, brace.substr(colon + 1), stamp, inner);
        if (star != std::string::npos && star < colon && std::isdigit(static_cast<unsigned char>(brace[0]))) {
            std::string once;
            expandInto(once, brace.substr(star + 1), stamp, inner);
            for (int n = std::stoi(brace.substr(0, star)); n > 0; --n) out += once;
        } else if (op == "digest") {
            out += digest(arg);
        } else if (op == "lower") {
            for (char ch : arg) out += static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
        } else if (op == "header") {
            header = out.size();
            out += "veltcheck 1.1.0.205;HASH OID:1.2.643.7.1.1.2.2; TIME:" + stamp + ";\r\n";
        } else if (op == "trailer") {
            const std::string list = out.substr(header) + "*";
            out += "*" + rhashBytes("gost12-256", list);
        } else if (gDefines.count(op) != 0) {
            // $1 and $2: the arguments, split at the first colon of the expanded text.
            const std::string a = arg.substr(0, arg.find(':'));
            const std::string b = arg.find(':') == std::string::npos ? "" : arg.substr(arg.find(':') + 1);
            const std::string text = std::regex_replace(std::regex_replace(gDefines[op], std::regex("\\$1"), a),
                                                        std::regex("\\$2"), b);
            expandInto(out, text, stamp, header);
        } else {
            ADD_FAILURE() << "unknown expansion {" << brace << "}";
        }
    }

    static constexpr const char* kFixedTime = "01/02/03_04:05:06";
    const Row& row_;
    TempDir dir_;
    RunResult result_{"", -1};
    std::string expected_;
    std::map<std::string, std::string> digests_;
    std::set<std::string> before_;
    std::vector<std::string> named_;
    bool ran_ = false;
};

}  // namespace

TEST(Cli, Rows) {
    const std::vector<Row> rows = readRows(VELT_E2E_ROWS);
    ASSERT_GT(rows.size(), 20u);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Runner(row).run();
    }
}

// Files past every 32-bit bound (sparse, all zeros) are listed and checked
// with the digests rhash gives them (zero_files.txt); and a check shows each
// verdict as it is decided, while later files are still being read.
TEST(LargeFiles, ListedAndCheckedPastEvery32BitBound) {
#if defined(VELT_SANITIZE)
    GTEST_SKIP() << "13 GiB to hash twice: the optimised builds only";
#endif
    TempDir dir;
    writeFile(dir.file("a.bin"), "alpha\n");
    std::vector<std::string> args = {"-mfhl", "list.txt", "a.bin"};
    std::string entries = "#a.bin$" + rhashFile("gost12-256", dir.file("a.bin")) + "\r\n";
    std::ifstream vectors(VELT_VECTORS_DIR "/zero_files.txt");
    uintmax_t size = 0;
    std::string line, digest;
    while (std::getline(vectors, line)) {
        if (line.empty() || line[0] == '#' || !(std::istringstream(line) >> size >> digest)) continue;
        args.push_back("z" + std::to_string(size));
        writeFile(dir.file(args.back()), "");
        std::filesystem::resize_file(dir.file(args.back()), size);
        entries += "#" + args.back() + "$" + digest + "\r\n";
    }
    ASSERT_EQ(args.size(), 7u);
    ASSERT_EQ(runVeltcheck(args, dir.path()).status, 0);
    EXPECT_NE(readFile(dir.file("list.txt")).find(entries), std::string::npos);
    const RunResult checked = runVeltcheck({"list.txt"}, dir.path());
    EXPECT_EQ(checked.status, 0) << checked.out;
    const RunResult watched = runVeltcheck({"list.txt"}, dir.path(), {}, "\nfile 'a.bin' check - Ok!");
    EXPECT_TRUE(watched.runningAtMark) << watched.out;
}
