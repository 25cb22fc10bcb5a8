// What the fuzz targets share: a check that aborts, a hex digit's value, a private scratch directory.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

// Aborts, so libFuzzer keeps the input, also in builds made with NDEBUG.
#define FUZZ_CHECK(cond) ((cond) ? (void)0 : fuzzFail(#cond, __FILE__, __LINE__))

[[noreturn]] inline void fuzzFail(const char* what, const char* file, int line) {
    std::fprintf(stderr, "%s:%d: check failed: %s\n", file, line, what);
    std::abort();
}

// A hex digit's value, or -1: the harnesses' own decoding, independent of the library's.
inline int digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

// A directory of this process's own for the files the code under test opens, removed at exit; in memory where
// /dev/shm allows, as every input writes files.
inline const char* scratchDir() {
    static struct Dir {
        char path[32] = "/dev/shm/veltfuzz.XXXXXX";
        Dir() {
            if (mkdtemp(path) == nullptr && mkdtemp(std::strcpy(path, "/tmp/veltfuzz.XXXXXX")) == nullptr)
                fuzzFail("scratch directory", __FILE__, __LINE__);
        }
        ~Dir() { std::filesystem::remove_all(path, ignored); }
        std::error_code ignored;
    } dir;
    return dir.path;
}

inline void writeFile(const std::string& name, const void* data, size_t size) {
    FILE* f = std::fopen(name.c_str(), "wb");
    if (f == nullptr || std::fwrite(data, 1, size, f) != size || std::fclose(f) != 0)
        fuzzFail("writing a scratch file", __FILE__, __LINE__);
}
