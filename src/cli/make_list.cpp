#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "base/file_guard.h"
#include "base/timestamp.h"
#include "cli/file_digests.h"
#include "cli/hash_list.h"
#include "cli/version.h"

namespace {

constexpr char kHashOid[] = "HASH OID:1.2.643.7.1.1.2.2; TIME:";

std::string creationTime() {
    char stamp[256];
    formatTimeStamp(std::time(nullptr), stamp, sizeof stamp);
    return stamp;
}

void failToHash(const char* name, const char* why) {
    std::printf("\r\n%s : HASH error!", name);
    std::printf(" %s !", why);
}

// "*" ends the entries and "$" ends a name: a list naming such a file could
// never pass its own check, so the name is refused before any work is done.
bool listable(const char* name) {
    const char* bad = std::strpbrk(name, "*$");
    if (bad == nullptr) return true;
    const std::string why = std::string("Can't list a name holding '") + *bad + "'";
    failToHash(name, why.c_str());
    return false;
}

// The whole list reaches the file, or the file is left empty: a failed
// write, flush or close (a full disk, /dev/full) must not leave half a list.
bool writeWhole(FileGuard out, const char* outPath, const std::string& list) {
    std::FILE* file = out.release();
    const bool written = std::fwrite(list.data(), 1, list.size(), file) == list.size() && std::fflush(file) == 0;
    // Emptying is best effort: a file that takes neither is beyond our help.
    if (!written) static_cast<void>(ftruncate(fileno(file), 0) == 0);
    const bool closed = std::fclose(file) == 0;
    if (written && !closed) static_cast<void>(truncate(outPath, 0) == 0);
    return written && closed;
}

}  // namespace

int make_hash_file_list(const char* outPath, int fileCount, char** fileNames) {
    if (outPath == nullptr || fileNames == nullptr || fileCount < 1) return 0;

    // Opening creates or empties the file at once; it is written only at the end.
    FileGuard out(std::fopen(outPath, "wb"));
    if (!out) {
        std::printf("\r\n Error: can't create file %s !", outPath);
        return 0;
    }
    for (int i = 0; i < fileCount; ++i)
        if (fileNames[i] != nullptr && !listable(fileNames[i])) return 0;

    std::string list;
    // Room for the entries plus the trailer ("*" and 64 digits) appended after them.
    list.reserve(kHashListMaxBytes + 1 + kDigestHexChars);
    list += VELTCHECK_NAME " " VELTCHECK_VERSION ";";
    list += kHashOid;
    list += creationTime();
    list += ";\r\n";

    // Files are read ahead on every core; the list still grows in the order
    // of the command line, and the first failure ends the mode.
    FileDigests digests(HASH_ALG_GOST12_256, std::vector<const char*>(fileNames, fileNames + fileCount));
    for (int i = 0; i < fileCount; ++i) {
        const char* name = fileNames[i] != nullptr ? fileNames[i] : "(null)";
        unsigned char digest[kDigestBytes];
        if (digests.next(digest) == 0) {
            failToHash(name, (std::string("Can't open file ") + name).c_str());
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

    // Closed before the echo: a reader of the echo that goes away (a pipe
    // into head) can no longer cut the list short.
    if (!writeWhole(std::move(out), outPath, list)) {
        std::printf("\r\n Error: can't write file %s !", outPath);
        return -1;
    }
    std::puts(list.c_str());
    return 0;
}
