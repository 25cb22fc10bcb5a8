#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>

#include "cli/hash_list.h"
#include "cli/version.h"

namespace {

constexpr char kHashOid[] = "HASH OID:1.2.643.7.1.1.2.2; TIME:";

struct FileCloser {
    void operator()(FILE* f) const { std::fclose(f); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

std::string creationTime() {
    char stamp[256] = {};
    const std::time_t now = std::time(nullptr);
    const std::tm* local = std::localtime(&now);
    if (local != nullptr) std::strftime(stamp, sizeof stamp, "%x_%X", local);
    return stamp;
}

}  // namespace

int make_hash_file_list(const char* outPath, int fileCount, char** fileNames) {
    if (outPath == nullptr || fileNames == nullptr || fileCount < 1) return 0;

    // Opening creates or empties the file at once; it is written only at the end.
    FilePtr out(std::fopen(outPath, "wb"));
    if (!out) {
        std::printf("\r\n Error: can't create file %s !", outPath);
        return 0;
    }

    std::string list;
    // Room for the entries plus the trailer ("*" and 64 digits) appended after them.
    list.reserve(kHashListMaxBytes + 1 + kDigestHexChars);
    list += VELTCHECK_NAME " " VELTCHECK_VERSION ";";
    list += kHashOid;
    list += creationTime();
    list += ";\r\n";

    for (int i = 0; i < fileCount; ++i) {
        const char* name = fileNames[i] != nullptr ? fileNames[i] : "(null)";
        unsigned char digest[kDigestBytes];
        if (fileNames[i] == nullptr || !fHashFile(name, digest)) {
            std::printf("\r\n%s : HASH error!", name);
            std::printf(" Can't open file %s !", name);
            return 0;
        }
        const size_t nameLen = std::strlen(name);
        if (list.size() + nameLen + 2 > kHashListMaxBytes) return 0;
        list += '#';
        list += name;
        list += '$';
        char hex[kDigestHexChars + 1];
        print_hex_str(digest, kDigestBytes, hex);
        if (list.size() + kDigestHexChars + 2 > kHashListMaxBytes) return 0;
        list += hex;
        list += "\r\n";
    }

    list += '*';
    unsigned char listDigest[kDigestBytes];
    fCalcMemHash(list.data(), static_cast<unsigned int>(list.size()), reinterpret_cast<char*>(listDigest));
    char hex[kDigestHexChars + 1];
    print_hex_str(listDigest, kDigestBytes, hex);
    list += hex;

    std::fwrite(list.data(), 1, list.size(), out.get());
    std::puts(list.c_str());
    return 0;
}
