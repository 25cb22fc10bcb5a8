// Shared by the GOST R 34.11-2012 compressions (internal).
#pragma once

#include <x86intrin.h>

#include <cstdint>
#include <cstring>

#include "hash/hash.h"

namespace streebog {

extern const uint8_t kPi[256];                // the substitution pi
extern const uint64_t kRoundConstants[12][8];  // C1..C12, little-endian words

// The rows A[0..63] of the linear map l: bit i of a word selects A[63 - i].
const uint64_t* matrixRows();
// pi, the transposition and l folded together: T_j[b] at 256 * j + b.
const uint64_t* lookupTable();

// h = g_N(h, m) on little-endian words.
using GFunction = void (*)(uint64_t h[8], const uint64_t n[8], const uint64_t m[8]);

void gTable(uint64_t h[8], const uint64_t n[8], const uint64_t m[8]);
#if defined(__i386__)
void gTableSse2(uint64_t h[8], const uint64_t n[8], const uint64_t m[8]);
#endif
void gAvx512(uint64_t h[8], const uint64_t n[8], const uint64_t m[8]);
// A whole block for a context: g on the context's own memory, then countBlock.
void compressAvx512(HashContext* ctx, const uint8_t* block, uint32_t bitCount);
// count whole blocks in a row, as count calls of compressAvx512 would.
void compressRunAvx512(HashContext* ctx, const uint8_t* blocks, uint32_t count);

// Compresses count whole blocks in a row with ctx's compression if it has a
// form that keeps its chaining value in registers between them; returns
// false, having done nothing, if it has not.
bool compressRun(HashContext* ctx, const uint8_t* blocks, uint32_t count);

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

bool cpuHasSse2();
bool cpuHasAvx512Gfni();

}  // namespace streebog
