// What the fuzz targets share: reading the input from the front, cuttings of
// a stream into updates, a check that aborts, a private working directory.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

// Aborts, so libFuzzer keeps the input, also in builds made with NDEBUG.
#define FUZZ_CHECK(cond) ((cond) ? (void)0 : fuzzFail(#cond, __FILE__, __LINE__))

[[noreturn]] inline void fuzzFail(const char* what, const char* file, int line) {
    std::fprintf(stderr, "%s:%d: check failed: %s\n", file, line, what);
    std::abort();
}

// The input read from the front; past its end every byte reads as zero.
struct Input {
    const uint8_t* data;
    size_t size;

    uint8_t byte() {
        if (size == 0) return 0;
        --size;
        return *data++;
    }
    uint16_t u16() {
        const uint8_t low = byte();
        return static_cast<uint16_t>(low | byte() << 8);
    }
    // n bytes, zero-filled where the input ends sooner.
    std::vector<uint8_t> bytes(size_t n) {
        std::vector<uint8_t> out(n, 0);
        const size_t got = std::min(n, size);
        std::copy(data, data + got, out.begin());
        data += got;
        size -= got;
        return out;
    }
};

// A count byte, then one size byte per piece; the pieces repeat to the end
// of the stream. Zero pieces are zero-length updates; a cutting of zeros
// only would never end, so it gets one piece of 64.
// A hex digit's value, or -1: the harnesses' own decoding, independent of the library's.
inline int digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

inline std::vector<size_t> readCutting(Input& in) {
    std::vector<size_t> cut(in.byte() % 16);
    for (size_t& piece : cut) piece = in.byte();
    if (std::none_of(cut.begin(), cut.end(), [](size_t n) { return n > 0; })) cut.push_back(64);
    return cut;
}

// Calls piece(offset, length) for the pieces of a stream of len bytes.
template <class F>
void forEachPiece(const std::vector<size_t>& cut, size_t len, F piece) {
    size_t done = 0;
    for (size_t i = 0; done < len; ++i) {
        const size_t n = std::min(cut[i % cut.size()], len - done);
        piece(done, n);
        done += n;
    }
}

// A directory of this process's own for the files the code under test
// opens, removed at exit; in memory where /dev/shm allows, as every input
// writes files.
inline const char* scratchDir() {
    static char dir[] = "/dev/shm/veltfuzz.XXXXXX";
    static const bool made = [] {
        if (mkdtemp(dir) == nullptr && mkdtemp(std::strcpy(dir, "/tmp/veltfuzz.XXXXXX")) == nullptr)
            fuzzFail("scratch directory", __FILE__, __LINE__);
        std::atexit([] {
            std::error_code ignored;
            std::filesystem::remove_all(dir, ignored);
        });
        return true;
    }();
    (void)made;
    return dir;
}

inline void writeFile(const std::string& name, const void* data, size_t size) {
    FILE* f = std::fopen(name.c_str(), "wb");
    if (f == nullptr || std::fwrite(data, 1, size, f) != size || std::fclose(f) != 0)
        fuzzFail("writing a scratch file", __FILE__, __LINE__);
}
