// The hash object: one streaming interface over the system's hash algorithms.
// Partial blocks are buffered here, once, for every algorithm; an algorithm
// supplies only an allocator and the operations of the record below.
#pragma once

#include <cstdint>
#include <memory>

enum : uint32_t {
    HASH_ALG_GOST94 = 1,      // GOST R 34.11-94, CryptoPro parameters
    HASH_ALG_GOST12_256 = 2,  // GOST R 34.11-2012, 256-bit digest
    HASH_ALG_GOST12_512 = 3,  // GOST R 34.11-2012, 512-bit digest
};

struct HashContext {
    uint32_t algId;
    uint8_t* state;     // work area start: chaining value, then the digest
    uint8_t* aux1;      // second quarter of the work area
    uint8_t* aux2;      // third quarter
    uint8_t* block;     // last quarter: the partial block
    uint32_t buffered;  // bytes held in block, always < blockLen between calls
    uint32_t digestLen;
    uint32_t blockLen;
    int (*init)(HashContext* ctx);
    void (*compress)(HashContext* ctx, const uint8_t* block, uint32_t bitCount);
    void (*finish)(HashContext* ctx);
    // Optional: compresses count whole blocks in a row, 8-byte aligned, as
    // count calls of compress would; for a compression that keeps its chaining
    // value in registers between blocks. Null: each block goes through compress.
    void (*compressBlocks)(HashContext* ctx, const uint8_t* blocks, uint32_t count);
};

// New object for algId. An unknown id is a programming error: the process aborts.
HashContext* hashCreate(uint32_t algId);
// Resets the object to the algorithm's initial state; returns 0.
int hashInit(HashContext* ctx);
// Absorbs len bytes; returns the number of bytes now buffered.
uint32_t hashUpdate(HashContext* ctx, const void* data, uint32_t len);
// Finishes and writes the digest to out, as computed (direct != 0) or byte-reversed; returns its length.
uint32_t hashFinal(HashContext* ctx, void* out, int direct);
// Releases the object and its work area (wiped first). Null is allowed.
void hashFree(HashContext* ctx);
// Independent copy of src, mid-computation included.
HashContext* hashClone(const HashContext* src);
// The algorithm id, or -1 for null.
int hashGetAlgId(const HashContext* ctx);

// Owns a hash object: hashFree on every path.
struct HashFreer {
    void operator()(HashContext* ctx) const { hashFree(ctx); }
};
using HashPtr = std::unique_ptr<HashContext, HashFreer>;

// Writes src[n-1], ..., src[0] to dst[0..n-1].
void reverseCopy(uint8_t* dst, const uint8_t* src, uint32_t n);

// For algorithm allocators: a record with a zeroed work area of four times
// blockLen bytes, 8-byte aligned, the four pointers set into it and every
// operation null.
HashContext* hashAllocContext(uint32_t blockLen, uint32_t digestLen);
