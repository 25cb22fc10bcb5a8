#include <fcntl.h>

#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstring>

#include "card/checksum.h"
#include "cli/hash_list.h"
#include "cli/version.h"

namespace {

constexpr char kDefaultList[] = "veltcheck.txt";

int usage(const char* self) {
    std::printf(VELTCHECK_NAME " ");
    std::printf(VELTCHECK_VERSION);
    std::printf("\nCommand line format\n- Check file hash: %s [file name]", self);
    std::printf("\n- Make file hash list: %s -mfhl <out file> [file name 1...]", self);
    std::printf("\n- Veltora-2 GOST checksum: %s -cs [file name]", self);
    std::printf("\n- Veltora Admin checksum: %s -ta [file name]\n", self);
    return 0;
}

int checkFileHash(const char* listPath) {
    std::puts("\r\ncheck file hash mode:\r");
    const int result = DoParsingFile(listPath);
    if (result == 1) {
        std::printf("\nAll files in '%s' checked - Ok!\n", listPath);
        return 0;
    }
    std::printf("\nError %d in %s\n", result, listPath);
    return -1;
}

int cardMode(const char* banner, int (*enumerate)(const char*, int), int argc, char** argv) {
    std::puts(banner);
    const int result = argc == 3 ? enumerate(argv[2], 2) : enumerate(nullptr, 1);
    if (result >= 0) return 0;
    // The number shown is always 0: the failure's code is deliberately not exposed.
    std::printf("\r\nError %d\r\n", 0);
    return -1;
}

// A standard descriptor closed by our caller would be the next file we
// open, and our messages would be written into it: each closed one is
// opened on /dev/null first.
bool keepStandardDescriptors() {
    for (int fd = 0; fd <= 2; ++fd) {
        if (fcntl(fd, F_GETFD) >= 0 || errno != EBADF) continue;
        // The lowest free descriptor: fd itself, as those below it are open.
        if (open("/dev/null", O_RDWR) != fd) return false;
    }
    return true;
}

bool is(const char* arg, const char* option) { return std::strcmp(arg, option) == 0; }

}  // namespace

int main(int argc, char** argv) {
    if (!keepStandardDescriptors()) return -1;
    std::setlocale(LC_ALL, "Russian");
    const char* self = argc > 0 && argv[0] != nullptr ? argv[0] : VELTCHECK_NAME;

    if (argc <= 1) return checkFileHash(kDefaultList);
    const char* mode = argv[1];
    if (is(mode, "-ta")) return cardMode("\r\nVeltora Admin checksum mode:\r", enumerateTAReadersDoCS, argc, argv);
    if (is(mode, "-cs")) return cardMode("\r\napplet checksum mode:\r", enumerateReadersDoCS, argc, argv);
    if (is(mode, "-mfhl") && argc >= 4) {
        std::puts("\r\nMake file hash list mode:\r");
        return make_hash_file_list(argv[2], argc - 3, &argv[3]);
    }
    if (is(mode, "-h") || is(mode, "-?")) return usage(self);
    // A lone unknown word, "-mfhl" included, names the list to check.
    if (argc == 2) return checkFileHash(mode);
    return usage(self);
}
