// GOST R 34.11-2012 ("Streebog"), 256- and 512-bit, behind the hash object.
// Values are little-endian: byte 0 of a block is its least significant byte.
#pragma once

#include <cstdint>

#include "hash/hash.h"

// Allocates a context for the 256-bit variant (is256 != 0) or the 512-bit one.
HashContext* streebogAlloc(int is256);
int streebogInit(HashContext* ctx);
// Absorbs one 64-byte block and adds bitCount to the length counter, with the
// compression ctx was made with.
void streebogCompress(HashContext* ctx, const uint8_t* block, uint32_t bitCount);
// Pads the buffered tail, finishes, and leaves the digest at the start of state.
void streebogFinish(HashContext* ctx);

// The combined substitution/transposition/linear table: T_j[b] at index 256*j + b.
const uint64_t* streebogTable();

// Compressions. The fastest one the CPU supports is chosen at start-up;
// tests and benchmarks may choose another for the contexts made after.
enum StreebogImpl {
    STREEBOG_IMPL_TABLE = 0,        // portable, 64-bit table words
    STREEBOG_IMPL_TABLE_SSE2 = 1,   // 32-bit x86 only: table words in SSE2 registers
    STREEBOG_IMPL_AVX512_GFNI = 2,  // AVX-512 VBMI and GFNI
    STREEBOG_IMPL_COUNT = 3,
};

// h = g_N(h, m) on little-endian words.
using StreebogG = void (*)(uint64_t h[8], const uint64_t n[8], const uint64_t m[8]);

// One compression, as a context made with it runs it. Where this build has
// none by a number (table-sse2 outside 32-bit x86) only name and available
// are set.
struct StreebogCompression {
    const char* name;
    int (*available)();  // 1 if this CPU can run it
    StreebogG g;
    void (*compress)(HashContext* ctx, const uint8_t* block, uint32_t bitCount);
    void (*finish)(HashContext* ctx);
    // Null: the hash object compresses a run of blocks one at a time.
    void (*compressBlocks)(HashContext* ctx, const uint8_t* blocks, uint32_t count);
};

// The compression numbered impl (a StreebogImpl), or null outside 0..STREEBOG_IMPL_COUNT-1.
const StreebogCompression* streebogCompression(int impl);
// 1 if this build and CPU can run impl.
int streebogImplAvailable(int impl);
// Makes impl the one new contexts use; 0, or -1 if it is not available.
int streebogSetImpl(int impl);
// The one new contexts use.
int streebogGetImpl();
const char* streebogImplName(int impl);
