// Shared by the GOST R 34.11-2012 compressions (internal).
#pragma once

#include <cstdint>

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

// N += bitCount and Sigma += the block, in a context's work area.
void countBlock(HashContext* ctx, const uint8_t* block, uint32_t bitCount);

bool cpuHasSse2();
bool cpuHasAvx512Gfni();

}  // namespace streebog
