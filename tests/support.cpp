#include "support.h"

#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace testsupport {

std::string toHex(const unsigned char* data, size_t len) {
    static const char kDigits[] = "0123456789ABCDEF";
    std::string out;
    for (size_t i = 0; i < len; ++i) {
        out += kDigits[data[i] >> 4];
        out += kDigits[data[i] & 15];
    }
    return out;
}

std::vector<unsigned char> fromHex(const std::string& hex) {
    std::vector<unsigned char> out;
    for (size_t i = 0; i + 1 < hex.size(); i += 2)
        out.push_back(static_cast<unsigned char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    return out;
}

namespace {

// The standard output of a shell command, upper-cased; throws if it fails or says nothing.
std::string upperOutputOf(const std::string& command) {
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) throw std::runtime_error("cannot run: " + command);
    std::string out;
    char buf[256];
    size_t got;
    while ((got = std::fread(buf, 1, sizeof buf, pipe)) > 0) out.append(buf, got);
    if (pclose(pipe) != 0 || out.empty()) throw std::runtime_error("failed: " + command);
    while (!out.empty() && (out.back() == '\n' || out.back() == ' ')) out.pop_back();
    for (char& c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return out;
}

}  // namespace

std::string rhashFile(const std::string& algorithm, const std::string& path) {
    return upperOutputOf("rhash --printf='%{" + algorithm + "}' '" + path + "' 2>/dev/null");
}

std::string opensslHmac(const std::string& md, const std::string& hexKey, const std::string& bytes) {
    TempDir dir;
    writeFile(dir.file("data"), bytes);
    const std::string out = upperOutputOf("openssl dgst -engine gost -" + md + " -mac hmac -macopt hexkey:" + hexKey +
                                          " '" + dir.file("data") + "' 2>/dev/null");
    return out.substr(out.rfind(' ') + 1);
}

std::string rhashBytes(const std::string& algorithm, const std::string& bytes) {
    TempDir dir;
    writeFile(dir.file("data"), bytes);
    return rhashFile(algorithm, dir.file("data"));
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream all;
    all << in.rdbuf();
    return all.str();
}

void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!out) throw std::runtime_error("cannot write " + path);
}

TempDir::TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "veltcheck-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
    path_ = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace testsupport
