// GOST 28147-89 (the 64-bit cipher of GOST R 34.12-2015, S-boxes
// id-tc26-gost-28147-param-Z) and the modes of GOST R 34.13-2015 behind one
// streaming interface: init selects the mode, update takes data in any
// pieces, final ends the stream (padding, MAC) and wipes the context.
//
// Keys, blocks and counters are big-endian byte strings. Every operation
// returns a status code (CIPHER_*); key material and buffers are overwritten
// with zeros before they are released.
#pragma once

#include <cstdint>

enum : uint32_t {
    CIPHER_OK = 0,
    CIPHER_NO_MEMORY = 1,      // allocation failed; or final found more than a block pending
    CIPHER_NULL_CONTEXT = 2,   // null context or null holder
    CIPHER_SHORT_OUTPUT = 3,   // output too small; *outLen says how much is needed (or 0)
    CIPHER_BAD_MODE = 4,       // mode 0 or above 11
    CIPHER_NULL_KEY = 5,
    CIPHER_BAD_IV = 6,         // IV missing or of a length the mode does not take
    CIPHER_BAD_SEGMENT = 7,    // segment or MAC length outside 1..8
    CIPHER_BAD_PADDING = 8,    // padding not allowed for the mode, or wrong on decryption
    CIPHER_PARTIAL_BLOCK = 9,  // final without padding on a partial block; *outLen says how many bytes are missing
};

enum : uint32_t {
    CIPHER_ECB_ENCRYPT = 1,
    CIPHER_ECB_DECRYPT = 2,
    CIPHER_CTR_ENCRYPT = 3,  // IV 4 bytes; segment 1..8
    CIPHER_CTR_DECRYPT = 4,
    CIPHER_OFB_ENCRYPT = 5,  // IV a multiple of 8 bytes; segment 1..8
    CIPHER_OFB_DECRYPT = 6,
    CIPHER_CBC_ENCRYPT = 7,  // IV a multiple of 8 bytes
    CIPHER_CBC_DECRYPT = 8,
    CIPHER_CFB_ENCRYPT = 9,  // IV of 8 bytes or more; segment 1..8
    CIPHER_CFB_DECRYPT = 10,
    CIPHER_MAC = 11,         // segment = MAC length 1..8; padding 3; no IV
};

// Padding procedures of GOST R 34.13-2015.
enum : uint8_t {
    CIPHER_PAD_NONE = 0,
    CIPHER_PAD_ZEROS = 1,         // zeros to the block end; nothing after whole blocks
    CIPHER_PAD_ONE_ZEROS = 2,     // 80 00.. always added
    CIPHER_PAD_ONE_ZEROS_IF = 3,  // 80 00.. only after a partial block
};

struct CipherCtx {
    uint32_t mode;        // 1..11; 0 = not initialised or finished
    uint32_t key[8];      // K1..K8, big-endian words of the 32-byte key
    uint8_t* iv;          // owned copy of the IV (4 bytes for CTR)
    uint32_t ivLen;       // register length: the IV length; 8 for CTR; 64 for MAC
    uint32_t segmentLen;  // bytes per step; the MAC length for mode 11
    uint8_t padding;
    uint8_t* reg;         // owned feedback register / counter block / MAC state
    uint8_t pending[8];   // bytes held between calls, or unused CTR/OFB/CFB gamma
    uint32_t pendingLen;
    uint32_t reserved;    // pads the record to the 72 bytes other tools allocate on 32-bit x86
};
static_assert(sizeof(void*) != 4 || sizeof(CipherCtx) == 72, "the record is 72 bytes on 32-bit x86");

// Allocates a zeroed context into *holder.
uint32_t cipherCtxAlloc(CipherCtx** holder);
// Clears ctx, then keys it for mode; see the mode list for iv and segmentLen.
uint32_t cipherCtxInit(CipherCtx* ctx, uint32_t mode, const uint8_t* key, int32_t segmentLen,
                       const uint8_t* iv, uint32_t ivLen, uint8_t padding);
// Wipes and frees the buffers, wipes the key; mode 0. Null is allowed.
void cipherCtxClear(CipherCtx* ctx);
// Clears and frees *holder and sets it to null.
uint32_t cipherCtxFree(CipherCtx** holder);
// dst becomes an independent copy of src.
uint32_t cipherCtxCopy(CipherCtx* dst, const CipherCtx* src);
// End-of-stream wipe: key, pending and buffer contents zeroed (buffers kept); mode 0.
void cipherReset(CipherCtx* ctx);
// Size of the context record callers may allocate.
uint32_t cipherCtxSize();
uint32_t cipherGetMode(const CipherCtx* ctx);        // 0xFFFFFFFF for null
uint32_t cipherGetSegmentLen(const CipherCtx* ctx);  // 0xFFFFFFFF for null
int cipherGetPadding(const CipherCtx* ctx);          // -1 for null

// Processes inLen bytes. *outLen holds the output capacity on entry and the
// bytes written on return. in and out may be the same buffer.
uint32_t cipherUpdate(CipherCtx* ctx, const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t* outLen);
// Ends the stream: padding, the last block, the MAC. With out null, only
// reports in *outLen the length a final would write.
uint32_t cipherFinal(CipherCtx* ctx, uint8_t* out, uint32_t* outLen);
