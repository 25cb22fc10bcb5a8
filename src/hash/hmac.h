// Keyed hashing (HMAC) over any hash object algorithm, and the two key
// derivations of R 50.1.113-2016 over HMAC with GOST R 34.11-2012 256-bit.
#pragma once

#include <cstdint>

#include "hash/hash.h"

struct HmacContext {
    HashContext* hash;  // owned
    uint8_t* pad;       // owned, block length: key ^ 0x36, then key ^ 0x5C during the final
};

// A context for algId (an unknown id aborts, as hashCreate does).
HmacContext* hmacCreate(uint32_t algId);
// Starts a computation under key; a key longer than the block is replaced by
// its digest. Returns the inner hashUpdate's result.
uint32_t hmacSetKey(HmacContext* ctx, const void* key, uint32_t keyLen);
// Feeds data; returns the inner hashUpdate's result.
uint32_t hmacUpdate(HmacContext* ctx, const void* data, uint32_t len);
// Writes the MAC (digest length bytes) to out, byte-reversed when direct is 0; returns its length.
uint32_t hmacFinal(HmacContext* ctx, void* out, int direct);
// Wipes and releases the context. Null is allowed.
void hmacFree(HmacContext* ctx);

// KDF_GOSTR3411_2012_256: 32 bytes to out from a 32-byte key. 1, or -1 for a
// null pointer or a negative length.
int kdf256(const uint8_t* key, const uint8_t* label, int labelLen, const uint8_t* seed, int seedLen, uint8_t* out);
// KDF_TREE_GOSTR3411_2012_256: L bytes to out, with an R-byte block counter.
// 1; -1 for a null pointer or a negative length; -2 unless L is a non-zero
// multiple of 32 of at most 32 * (2^(8R) - 1) and R is 1 to 4.
int kdfTree256(const uint8_t* key, const uint8_t* label, int labelLen, const uint8_t* seed, int seedLen, int R,
               uint64_t L, uint8_t* out);
