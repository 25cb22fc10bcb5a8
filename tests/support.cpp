#include "support.h"

#include <unistd.h>

#include <cctype>
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

// Stops at the first pair that is not two hex digits: "null", "-" and a NUL read as no bytes.
std::vector<unsigned char> fromHex(const std::string& hex) {
    std::vector<unsigned char> out;
    for (size_t i = 0; i + 1 < hex.size() && std::isxdigit(hex[i] & 0xFF) && std::isxdigit(hex[i + 1] & 0xFF); i += 2)
        out.push_back(static_cast<unsigned char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    return out;
}

std::string readFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

void writeFile(const std::string& path, const std::string& bytes) {
    if (!(std::ofstream(path, std::ios::binary) << bytes)) throw std::runtime_error("cannot write " + path);
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

TempDir::TempDir(const std::string& parent) : path_(parent + "/veltcheck-test-XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
}

}  // namespace testsupport
