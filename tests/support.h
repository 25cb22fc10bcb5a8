// Helpers shared by the unit and end-to-end tests.
#pragma once

#include <string>
#include <vector>

namespace testsupport {

std::string toHex(const unsigned char* data, size_t len);
std::vector<unsigned char> fromHex(const std::string& hex);

// Digest of a file by rhash, upper-case hex; algorithm is rhash's name, e.g. "gost12-256".
std::string rhashFile(const std::string& algorithm, const std::string& path);
// The same for bytes, through a scratch file.
std::string rhashBytes(const std::string& algorithm, const std::string& bytes);

std::string readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& bytes);

// The rows of a data file: its lines split at blanks, less blank lines and "#" comments.
std::vector<std::vector<std::string>> rows(const std::string& path);

// A fresh directory under the system's temporary folder, removed on destruction.
struct TempDir {
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    std::string path_;
};

}  // namespace testsupport
