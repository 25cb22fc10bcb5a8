// GOST R 34.11-94 with the CryptoPro S-boxes (id-GostR3411-94-CryptoProParamSet),
// zero starting vector, 256-bit digest, behind the hash object as id 1.
// Values are 256-bit little-endian numbers of eight 32-bit words.
#pragma once

#include <cstdint>

#include "hash/hash.h"

// A context with 32-byte blocks and a 32-byte digest.
HashContext* gost94Alloc();
int gost94Init(HashContext* ctx);
// Sigma += block, length += bitCount, H = f(H, block).
void gost94Compress(HashContext* ctx, const uint8_t* block, uint32_t bitCount);
// Zero-pads and absorbs the buffered tail, then folds in the length and Sigma.
void gost94Finish(HashContext* ctx);
