// Shared by the GOST R 34.11-2012 compressions (internal).
#pragma once

#include <x86intrin.h>

#include <cstdint>
#include <cstring>

#include "hash/hash.h"
#include "hash/streebog.h"

namespace streebog {

extern const uint8_t kPi[256];                // the substitution pi
extern const uint64_t kRoundConstants[12][8];  // C1..C12, little-endian words

// The rows A[0..63] of the linear map l: bit i of a word selects A[63 - i].
const uint64_t* matrixRows();
// pi, the transposition and l folded together: T_j[b] at 256 * j + b.
const uint64_t* lookupTable();

namespace counter {
// The counters are added in the machine's word size with one add-with-carry
// chain: a 64-bit addition would be a call or a branchy sequence on 32-bit x86.
#if defined(__x86_64__)
using Word = unsigned long long;
inline unsigned char addWord(unsigned char carry, Word a, Word b, Word* sum) { return _addcarry_u64(carry, a, b, sum); }
#else
using Word = unsigned int;
inline unsigned char addWord(unsigned char carry, Word a, Word b, Word* sum) { return _addcarry_u32(carry, a, b, sum); }
#endif

inline Word wordAt(const uint8_t* p, int i) {
    Word w;
    std::memcpy(&w, p + i * sizeof(Word), sizeof w);
    return w;
}

inline void setWordAt(uint8_t* p, int i, Word w) { std::memcpy(p + i * sizeof(Word), &w, sizeof w); }
}  // namespace counter

// N += bitCount and Sigma += the block, in a context's work area. Inline: the
// AVX-512 run does this between its blocks.
inline void countBlock(HashContext* ctx, const uint8_t* block, uint32_t bitCount) {
    using namespace counter;
    unsigned char nCarry = 0, sigmaCarry = 0;
    for (int i = 0; i < static_cast<int>(64 / sizeof(Word)); ++i) {
        Word w;
        nCarry = addWord(nCarry, wordAt(ctx->aux1, i), i == 0 ? bitCount : 0, &w);
        setWordAt(ctx->aux1, i, w);
        sigmaCarry = addWord(sigmaCarry, wordAt(ctx->aux2, i), wordAt(block, i), &w);
        setWordAt(ctx->aux2, i, w);
    }
}

// One block for a context with g: h = g_N(h, m), then countBlock.
void absorb(StreebogG g, HashContext* ctx, const uint8_t* block, uint32_t bitCount);
// Pads the buffered tail, absorbs it and finishes with g.
void finish(StreebogG g, HashContext* ctx);

// A compression's context operations when all it brings is its g.
template <StreebogG G>
void compressWith(HashContext* ctx, const uint8_t* block, uint32_t bitCount) {
    absorb(G, ctx, block, bitCount);
}

template <StreebogG G>
void finishWith(HashContext* ctx) {
    finish(G, ctx);
}

// Each compression's descriptor, beside its code.
extern const StreebogCompression kTableCompression;      // streebog_table.cpp
extern const StreebogCompression kTableSse2Compression;  // streebog_table.cpp
extern const StreebogCompression kAvx512Compression;     // streebog_avx512.cpp

}  // namespace streebog
