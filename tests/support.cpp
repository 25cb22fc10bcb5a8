#include "support.h"

#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

namespace testsupport {

std::string toHex(const unsigned char* data, size_t len) {
    std::string out;
    for (size_t i = 0; i < len; ++i) out += {"0123456789ABCDEF"[data[i] >> 4], "0123456789ABCDEF"[data[i] & 15]};
    return out;
}

std::vector<unsigned char> fromHex(const std::string& hex) {
    std::vector<unsigned char> out;
    for (size_t i = 0; i + 1 < hex.size(); i += 2)
        out.push_back(static_cast<unsigned char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    return out;
}

// rhash's output, upper-cased; throws if it fails or says nothing.
std::string rhashFile(const std::string& algorithm, const std::string& path) {
    const std::string command = "rhash --printf='%{" + algorithm + "}' '" + path + "' 2>/dev/null";
    FILE* pipe = popen(command.c_str(), "r");
    std::string out;
    char buf[256];
    for (size_t got; pipe != nullptr && (got = std::fread(buf, 1, sizeof buf, pipe)) > 0;) out.append(buf, got);
    if (pipe == nullptr || pclose(pipe) != 0 || out.empty()) throw std::runtime_error("failed: " + command);
    for (char& c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return out;
}

std::string rhashBytes(const std::string& algorithm, const std::string& bytes) {
    TempDir dir;
    writeFile(dir.file("data"), bytes);
    return rhashFile(algorithm, dir.file("data"));
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

void writeFile(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!out) throw std::runtime_error("cannot write " + path);
}

std::vector<std::vector<std::string>> rows(const std::string& path) {
    std::ifstream in(path);
    if (!in) throw std::runtime_error("cannot read " + path);
    std::vector<std::vector<std::string>> out;
    for (std::string line; std::getline(in, line);) {
        std::istringstream fields(line);
        out.emplace_back(std::istream_iterator<std::string>(fields), std::istream_iterator<std::string>());
        if (out.back().empty() || out.back()[0][0] == '#') out.pop_back();
    }
    return out;
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
