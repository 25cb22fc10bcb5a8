#include "cli/hash_list.h"

#include <cstdio>
#include <cstring>
#include <vector>

#include "base/file_guard.h"
#include "cli/file_digests.h"
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

// 1 when the digest (null: there is none, the file could not be hashed)
// equals the 64 hex digits at hexDigest, -1 when it does not, 0 without one.
int checkDigest(const unsigned char* digest, const char* hexDigest) {
    if (digest == nullptr) return 0;
    return hexEquals(digest, kDigestBytes, hexDigest) ? 1 : -1;
}

struct Entry {
    const char* name;
    const char* hexDigest;
};

// The entries of the list text, as the check will take them: from the text's
// start (header and even text after the trailer alike), each "#name$" with
// the 64 bytes after "$", each "$" becoming the name's end. complete is
// whether the scan ended with neither marker left; it stops early at a lone
// "#" or "$", a "$" before its "#", or an entry whose digits run short, which
// can only fail and is kept as the last entry.
std::vector<Entry> listEntries(char* text, bool* complete) {
    std::vector<Entry> entries;
    *complete = false;
    for (char* scan = text;;) {
        const char* hash = std::strchr(scan, '#');
        char* dollar = std::strchr(scan, '$');
        if (hash == nullptr && dollar == nullptr) {
            *complete = true;
            return entries;
        }
        if (hash == nullptr || dollar == nullptr || hash > dollar) return entries;
        *dollar = '\0';
        entries.push_back({hash + 1, dollar + 1});
        if (strnlen(dollar + 1, kDigestHexChars) < kDigestHexChars) return entries;
        scan = dollar + 1 + kDigestHexChars;
    }
}

}  // namespace

uint32_t hashFileWith(uint32_t algId, const char* path, unsigned char* digest) {
    return threadFileReader().hash(algId, path, digest);
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
    return checkDigest(digest, hexDigest);
}

int fCheckFileHash(const char* path, const char* hexDigest) {
    if (path == nullptr || hexDigest == nullptr) return 0;
    unsigned char digest[kDigestBytes];
    return checkDigest(fHashFile(path, digest) ? digest : nullptr, hexDigest);
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

    bool complete = false;
    const std::vector<Entry> entries = listEntries(text, &complete);
    std::vector<const char*> names;
    for (const Entry& entry : entries) names.push_back(entry.name);
    // Files are read ahead on every core; each verdict still comes in list
    // order, and the first failure ends the check.
    FileDigests digests(HASH_ALG_GOST12_256, names);
    for (const Entry& entry : entries) {
        std::printf("\nfile '%s' check - ", entry.name);
        unsigned char digest[kDigestBytes];
        // A file that cannot be read fails like one that changed.
        if (checkDigest(digests.next(digest) != 0 ? digest : nullptr, entry.hexDigest) != 1) {
            printVerdict(strError);
            return 0;
        }
        printVerdict(strOk);
    }
    return complete ? 1 : 0;
}
