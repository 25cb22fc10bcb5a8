// Prints the digest of a file for a hash id, reading it in chunks as veltcheck
// does. The benchmark needs it for GOST R 34.11-94, which no mode offers.
// "hashfile -l" lists the GOST R 34.11-2012 compressions this build and CPU
// can run, marking the one in use, so a forced build can be checked.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cli/hash_list.h"
#include "hash/hash.h"
#include "hash/streebog.h"

namespace {

int usage() {
    std::fprintf(stderr, "usage: hashfile ALG_ID FILE   (1 GOST R 34.11-94, 2 and 3 GOST R 34.11-2012)\n");
    std::fprintf(stderr, "       hashfile -l\n");
    return 2;
}

void listImplementations() {
    for (int impl = 0; impl < STREEBOG_IMPL_COUNT; ++impl) {
        if (!streebogImplAvailable(impl)) continue;
        std::printf("%d %s%s\n", impl, streebogImplName(impl), impl == streebogGetImpl() ? " (in use)" : "");
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "-l") == 0) {
        listImplementations();
        return 0;
    }
    if (argc != 3) return usage();
    const unsigned long algId = std::strtoul(argv[1], nullptr, 10);
    // hashCreate aborts on an unknown id; say why instead.
    if (algId < HASH_ALG_GOST94 || algId > HASH_ALG_GOST12_512) return usage();

    // Byte order as veltcheck writes its lists, which is also how rhash and
    // OpenSSL print these digests.
    unsigned char digest[64];
    const uint32_t len = hashFileWith(static_cast<uint32_t>(algId), argv[2], digest);
    if (len == 0) {
        std::perror(argv[2]);
        return 1;
    }
    for (uint32_t i = 0; i < len; ++i) std::printf("%02x", digest[i]);
    std::printf("\n");
    return 0;
}
