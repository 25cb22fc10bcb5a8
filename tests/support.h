// Helpers shared by the unit tests and the fuzz targets.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace testsupport {

std::string toHex(const unsigned char* data, size_t len);
inline std::string toHex(const std::vector<unsigned char>& bytes) { return toHex(bytes.data(), bytes.size()); }
// The bytes of the whole pairs of hex digits (either case) the text begins with.
std::vector<unsigned char> fromHex(const std::string& hex);

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& bytes);

// The rows of a data file: its lines split at blanks, less blank lines and "#" comments.
std::vector<std::vector<std::string>> rows(const std::string& path);

// A fresh directory under parent, by default the system's temporary folder, removed on destruction.
struct TempDir {
    explicit TempDir(const std::string& parent = std::filesystem::temp_directory_path().string());
    ~TempDir() { std::filesystem::remove_all(path_, ignored_); }
    TempDir(const TempDir&) = delete;
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    std::string path_;
    std::error_code ignored_;
};

}  // namespace testsupport
