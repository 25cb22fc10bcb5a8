#include "cli/hash_list.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "base/file_guard.h"
#include "hash/hash.h"

const char strOk[] = "Ok!";
const char strError[] = "error!";

namespace {

constexpr size_t kListBufferBytes = kHashListMaxBytes + 1;

// Compares our hex text with the text at `listed`, stopping at the first
// difference: our digits are never zero, so a terminator always stops it.
bool hexMatches(const char* ours, const char* listed) {
    for (unsigned i = 0; i < kDigestHexChars; ++i)
        if (ours[i] != listed[i]) return false;
    return true;
}

// A verdict goes out as soon as it is decided: an operator following a log
// sees progress, and a run stopped midway leaves what it decided.
void printVerdict(const char* word) {
    std::printf("%s", word);
    std::fflush(stdout);
}

}  // namespace

uint32_t hashFileWith(uint32_t algId, const char* path, unsigned char* digest) {
    // Never waits: a FIFO would block the open until a writer came, and a
    // FIFO, a socket or a character device (/dev/zero) may never end. Only
    // regular files and block devices have contents to vouch for; a
    // directory is refused too, as it would hash like an empty file.
    const FdGuard file(open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (file.get() < 0) return 0;
    struct stat info;
    if (fstat(file.get(), &info) != 0 || !(S_ISREG(info.st_mode) || S_ISBLK(info.st_mode))) return 0;

    std::vector<unsigned char> chunk(kHashChunkBytes);
    HashPtr hash(hashCreate(algId));
    hashInit(hash.get());
    for (;;) {
        const ssize_t got = read(file.get(), chunk.data(), chunk.size());
        if (got == 0) break;
        if (got < 0) {
            if (errno == EINTR) continue;
            return 0;  // a read error leaves no digest to trust
        }
        hashUpdate(hash.get(), chunk.data(), static_cast<uint32_t>(got));
    }
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
    FileGuard file(std::fopen(listPath, "rb"));
    if (!file) return -1;

    // One byte more than the largest list: the text is always zero-terminated.
    std::vector<char> list(kListBufferBytes, '\0');
    const size_t got = std::fread(list.data(), 1, list.size(), file.get());
    file.reset();
    if (got == 0 || got == list.size()) return -2;

    std::printf("\nfile '%s' check - ", listPath);
    char* const text = list.data();
    const char* star = std::strchr(text, '*');
    if (star == nullptr) {
        printVerdict(strError);
        return -3;
    }
    if (fCheckMemHash(text, star + 1) != 1) {
        printVerdict(strError);
        return -4;
    }
    printVerdict(strOk);

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
            printVerdict(strError);
            return 0;
        }
        print_hex_str(digest, kDigestBytes, hex);
        if (!hexMatches(hex, dollar + 1)) {
            printVerdict(strError);
            return 0;
        }
        printVerdict(strOk);
        scan = dollar + 1 + kDigestHexChars;
    }
}
