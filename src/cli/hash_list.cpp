#include "cli/hash_list.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include "base/file_guard.h"
#include "hash/hash.h"

const char strOk[] = "Ok!";
const char strError[] = "error!";

namespace {

constexpr size_t kListBufferBytes = kHashListMaxBytes + 1;

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

int fCheckMemHash(const char* begin, const char* hexDigest) {
    if (begin == nullptr || hexDigest == nullptr) return 0;
    unsigned char digest[kDigestBytes];
    fCalcMemHash(begin, static_cast<unsigned int>(hexDigest - begin), reinterpret_cast<char*>(digest));
    return hexEquals(digest, kDigestBytes, hexDigest) ? 1 : -1;
}

int fCheckFileHash(const char* path, const char* hexDigest) {
    if (path == nullptr || hexDigest == nullptr) return 0;
    unsigned char digest[kDigestBytes];
    if (!fHashFile(path, digest)) return 0;
    return hexEquals(digest, kDigestBytes, hexDigest) ? 1 : -1;
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
        // A file that cannot be read fails like one that changed.
        if (fCheckFileHash(name, dollar + 1) != 1) {
            printVerdict(strError);
            return 0;
        }
        printVerdict(strOk);
        scan = dollar + 1 + kDigestHexChars;
    }
}
