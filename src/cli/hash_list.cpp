#include "cli/hash_list.h"

#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "hash/hash.h"

const char strOk[] = "Ok!";
const char strError[] = "error!";

namespace {

constexpr size_t kListBufferBytes = kHashListMaxBytes + 1;

struct FileCloser {
    void operator()(FILE* f) const { std::fclose(f); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

// Compares our hex text with the text at `listed`, stopping at the first
// difference: our digits are never zero, so a terminator always stops it.
bool hexMatches(const char* ours, const char* listed) {
    for (unsigned i = 0; i < kDigestHexChars; ++i)
        if (ours[i] != listed[i]) return false;
    return true;
}

}  // namespace

uint32_t hashFileWith(uint32_t algId, const char* path, unsigned char* digest) {
    FilePtr file(std::fopen(path, "rb"));
    if (!file) return 0;
    // fopen accepts a directory; reading it fails, and its "contents" would
    // hash like an empty file.
    struct stat info;
    if (fstat(fileno(file.get()), &info) != 0 || S_ISDIR(info.st_mode)) return 0;

    std::vector<unsigned char> chunk(kHashChunkBytes);
    HashPtr hash(hashCreate(algId));
    hashInit(hash.get());
    std::fseek(file.get(), 0, SEEK_SET);
    while (!std::feof(file.get())) {
        const size_t got = std::fread(chunk.data(), 1, chunk.size(), file.get());
        if (got < 1) break;
        hashUpdate(hash.get(), chunk.data(), static_cast<uint32_t>(got));
    }
    if (std::ferror(file.get())) return 0;
    return hashFinal(hash.get(), digest, 1);
}

bool fHashFile(const char* path, unsigned char digest[32]) {
    return hashFileWith(HASH_ALG_GOST12_256, path, digest) != 0;
}

void fCalcMemHash(const char* data, unsigned int len, char* digest) {
    if (data == nullptr || digest == nullptr) return;
    HashPtr hash(hashCreate(HASH_ALG_GOST12_256));
    hashInit(hash.get());
    hashUpdate(hash.get(), data, len);
    hashFinal(hash.get(), digest, 1);
}

void print_hex(const unsigned char* data, unsigned int len) {
    if (data == nullptr) return;
    for (unsigned int i = 0; i < len; ++i) std::printf("%02X", data[i]);
}

void print_hex_str(const unsigned char* data, unsigned int len, char* out) {
    if (data == nullptr || out == nullptr) return;
    static const char kDigits[] = "0123456789ABCDEF";
    for (unsigned int i = 0; i < len; ++i) {
        out[2 * i] = kDigits[data[i] >> 4];
        out[2 * i + 1] = kDigits[data[i] & 0x0F];
    }
    out[2 * static_cast<size_t>(len)] = '\0';
}

int fCheckMemHash(const char* begin, const char* hexDigest) {
    if (begin == nullptr || hexDigest == nullptr) return 0;
    unsigned char digest[kDigestBytes];
    char hex[kDigestHexChars + 1];
    fCalcMemHash(begin, static_cast<unsigned int>(hexDigest - begin), reinterpret_cast<char*>(digest));
    print_hex_str(digest, kDigestBytes, hex);
    return hexMatches(hex, hexDigest) ? 1 : -1;
}

int fCheckFileHash(const char* path, const char* hexDigest) {
    if (path == nullptr || hexDigest == nullptr) return 0;
    unsigned char digest[kDigestBytes];
    if (!fHashFile(path, digest)) return 0;
    char hex[kDigestHexChars + 1];
    print_hex_str(digest, kDigestBytes, hex);
    return hexMatches(hex, hexDigest) ? 1 : -1;
}

int DoParsingFile(const char* listPath) {
    if (listPath == nullptr) return -1;
    FilePtr file(std::fopen(listPath, "rb"));
    if (!file) return -1;

    // One byte more than the largest list: the text is always zero-terminated.
    std::vector<char> list(kListBufferBytes, '\0');
    std::fseek(file.get(), 0, SEEK_SET);
    const size_t got = std::fread(list.data(), 1, list.size(), file.get());
    file.reset();
    if (got == 0 || got == list.size()) return -2;

    std::printf("\nfile '%s' check - ", listPath);
    char* const text = list.data();
    const char* star = std::strchr(text, '*');
    if (star == nullptr) {
        std::printf("%s", strError);
        return -3;
    }
    if (fCheckMemHash(text, star + 1) != 1) {
        std::printf("%s", strError);
        return -4;
    }
    std::printf("%s", strOk);

    // The header and even text after the trailer are scanned for entries alike.
    char* scan = text;
    for (;;) {
        const char* hash = std::strchr(scan, '#');
        char* dollar = std::strchr(scan, '$');
        if (hash == nullptr && dollar == nullptr) return 1;
        if (hash == nullptr || dollar == nullptr || hash > dollar) return 0;

        *dollar = '\0';
        const char* name = hash + 1;
        std::printf("\nfile '%s' check - ", name);
        unsigned char digest[kDigestBytes];
        char hex[kDigestHexChars + 1];
        if (!fHashFile(name, digest)) {
            std::printf("%s", strError);
            return 0;
        }
        print_hex_str(digest, kDigestBytes, hex);
        if (!hexMatches(hex, dollar + 1)) {
            std::printf("%s", strError);
            return 0;
        }
        std::printf("%s", strOk);
        scan = dollar + 1 + kDigestHexChars;
    }
}
