// The modes of GOST R 34.13-2015 over the 64-bit block transform.
#include <cstdlib>
#include <cstring>

#include "cipher/cipher.h"
#include "cipher/core.h"
#include "cipher/modes_internal.h"

using cipher_core::decryptBlock;
using cipher_core::encryptBlock;
using cipher_core::secureZero;

namespace {

constexpr uint32_t kBlock = 8;
constexpr uint32_t kMacStateBytes = 64;

bool isGammaMode(uint32_t m) {
    return (m >= CIPHER_CTR_ENCRYPT && m <= CIPHER_OFB_DECRYPT) || m == CIPHER_CFB_ENCRYPT || m == CIPHER_CFB_DECRYPT;
}
bool isBlockMode(uint32_t m) { return m == CIPHER_ECB_ENCRYPT || m == CIPHER_ECB_DECRYPT || m == CIPHER_CBC_ENCRYPT || m == CIPHER_CBC_DECRYPT; }
bool isDecryptBlockMode(uint32_t m) { return m == CIPHER_ECB_DECRYPT || m == CIPHER_CBC_DECRYPT; }

void xorBlock(uint8_t* dst, const uint8_t* a, const uint8_t* b) {
    for (uint32_t i = 0; i < kBlock; ++i) dst[i] = a[i] ^ b[i];
}

// Moves the register left by n bytes; the freed last n bytes are the caller's to fill.
void shiftRegister(CipherCtx* ctx, uint32_t n) {
    std::memmove(ctx->reg, ctx->reg + n, ctx->ivLen - n);
}

// ---- ECB and CBC -------------------------------------------------------

// One whole block of a block mode; updates the CBC register.
void processBlock(CipherCtx* ctx, const uint8_t in[kBlock], uint8_t out[kBlock]) {
    uint8_t x[kBlock];
    switch (ctx->mode) {
        case CIPHER_ECB_ENCRYPT: encryptBlock(ctx->key, in, out); return;
        case CIPHER_ECB_DECRYPT: decryptBlock(ctx->key, in, out); return;
        case CIPHER_CBC_ENCRYPT:
            xorBlock(x, in, ctx->reg);
            encryptBlock(ctx->key, x, out);
            shiftRegister(ctx, kBlock);
            std::memcpy(ctx->reg + ctx->ivLen - kBlock, out, kBlock);
            return;
        default:  // CIPHER_CBC_DECRYPT
            std::memcpy(x, in, kBlock);  // in may be out
            decryptBlock(ctx->key, x, out);
            xorBlock(out, out, ctx->reg);
            shiftRegister(ctx, kBlock);
            std::memcpy(ctx->reg + ctx->ivLen - kBlock, x, kBlock);
            return;
    }
}

// Whole blocks this update processes. Decryption with padding keeps the last
// whole block back for the final, which strips the padding.
uint32_t blocksToProcess(const CipherCtx* ctx, uint32_t inLen) {
    const uint64_t total = uint64_t{ctx->pendingLen} + inLen;
    if (isDecryptBlockMode(ctx->mode) && ctx->padding != CIPHER_PAD_NONE)
        return total > kBlock ? static_cast<uint32_t>((total - 1) / kBlock) : 0;
    return static_cast<uint32_t>(total / kBlock);
}

// The pending bytes put the output up to 8 bytes ahead of the input, so with
// in == out each block's input is read before the previous output is
// written, and the bytes left over are saved before any output at all.
void updateBlocks(CipherCtx* ctx, const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t* outLen) {
    const uint32_t blocks = blocksToProcess(ctx, inLen);
    const uint32_t pending = ctx->pendingLen;
    if (blocks == 0) {
        std::memcpy(ctx->pending + pending, in, inLen);
        ctx->pendingLen = pending + inLen;
        return;
    }
    const uint32_t consumed = blocks * kBlock - pending;
    uint8_t rest[kBlock];
    const uint32_t restLen = inLen - consumed;
    std::memcpy(rest, in + consumed, restLen);

    uint8_t current[kBlock], next[kBlock] = {};
    std::memcpy(current, ctx->pending, pending);
    std::memcpy(current + pending, in, kBlock - pending);
    uint32_t inPos = kBlock - pending;
    for (uint32_t b = 0; b < blocks; ++b) {
        if (b + 1 < blocks) {
            std::memcpy(next, in + inPos, kBlock);
            inPos += kBlock;
        }
        processBlock(ctx, current, out + b * kBlock);
        std::memcpy(current, next, kBlock);
    }
    secureZero(current, kBlock);
    secureZero(next, kBlock);
    std::memcpy(ctx->pending, rest, restLen);
    secureZero(ctx->pending + restLen, kBlock - restLen);
    ctx->pendingLen = restLen;
    *outLen = blocks * kBlock;
    secureZero(rest, kBlock);
}

// ---- CTR, OFB, CFB -----------------------------------------------------

// Makes the next gamma block into pending; only its first segmentLen bytes are used.
void nextGamma(CipherCtx* ctx) {
    uint8_t* reg = ctx->reg;
    switch (ctx->mode) {
        case CIPHER_CTR_ENCRYPT:
        case CIPHER_CTR_DECRYPT:
            encryptBlock(ctx->key, reg, ctx->pending);
            // The counter is one big-endian 64-bit number: low half first, carry upward.
            for (int i = 7; i >= 0 && ++reg[i] == 0; --i) {
            }
            break;
        case CIPHER_OFB_ENCRYPT:
        case CIPHER_OFB_DECRYPT:
            encryptBlock(ctx->key, reg, ctx->pending);
            shiftRegister(ctx, kBlock);
            std::memcpy(reg + ctx->ivLen - kBlock, ctx->pending, kBlock);
            break;
        default:  // CFB: cipher-text bytes refill the freed end as they are made
            encryptBlock(ctx->key, reg, ctx->pending);
            shiftRegister(ctx, ctx->segmentLen);
            break;
    }
}

void updateGamma(CipherCtx* ctx, const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t* outLen) {
    const uint32_t s = ctx->segmentLen;
    uint32_t used = 0, left = ctx->pendingLen;  // unused gamma is pending[used, used + left)
    for (uint32_t i = 0; i < inLen; ++i) {
        if (left == 0) {
            nextGamma(ctx);
            used = 0;
            left = s;
        }
        const uint8_t inByte = in[i];
        const uint8_t outByte = inByte ^ ctx->pending[used];
        out[i] = outByte;
        if (ctx->mode == CIPHER_CFB_ENCRYPT || ctx->mode == CIPHER_CFB_DECRYPT)
            ctx->reg[ctx->ivLen - left] = ctx->mode == CIPHER_CFB_ENCRYPT ? outByte : inByte;
        ++used;
        --left;
    }
    std::memmove(ctx->pending, ctx->pending + used, left);
    secureZero(ctx->pending + left, kBlock - left);
    ctx->pendingLen = left;
    *outLen = inLen;
}

// ---- MAC ---------------------------------------------------------------

// The MAC state as sixteen words; 64-bit values as (low, high) word pairs.
enum MacWord : uint32_t { kChain = 8, kR = 10, kK1 = 12, kK2 = 14 };

uint64_t macGet(const CipherCtx* ctx, MacWord w) {
    uint32_t pair[2];
    std::memcpy(pair, ctx->reg + 4 * w, 8);
    return (uint64_t{pair[1]} << 32) | pair[0];
}

void macSet(CipherCtx* ctx, MacWord w, uint64_t v) {
    const uint32_t pair[2] = {static_cast<uint32_t>(v), static_cast<uint32_t>(v >> 32)};
    std::memcpy(ctx->reg + 4 * w, pair, 8);
}

uint64_t toNumber(const uint8_t b[kBlock]) {
    uint64_t v = 0;
    for (uint32_t i = 0; i < kBlock; ++i) v = (v << 8) | b[i];
    return v;
}

void toBytes(uint64_t v, uint8_t b[kBlock]) {
    for (int i = 7; i >= 0; --i, v >>= 8) b[i] = static_cast<uint8_t>(v);
}

uint64_t encryptNumber(const CipherCtx* ctx, uint64_t v) {
    uint8_t b[kBlock];
    toBytes(v, b);
    encryptBlock(ctx->key, b, b);
    const uint64_t r = toNumber(b);
    secureZero(b, kBlock);
    return r;
}

uint64_t doubled(uint64_t v) { return (v << 1) ^ ((v >> 63) ? 0x1B : 0); }

// R = E(0), K1 = R * x, K2 = K1 * x; the chaining value starts at zero.
void macSubkeys(CipherCtx* ctx) {
    const uint64_t r = encryptNumber(ctx, 0);
    macSet(ctx, kR, r);
    macSet(ctx, kK1, doubled(r));
    macSet(ctx, kK2, doubled(doubled(r)));
    macSet(ctx, kChain, 0);
}

uint32_t macCreateState(CipherCtx* ctx) {
    ctx->reg = static_cast<uint8_t*>(std::calloc(1, kMacStateBytes));
    if (ctx->reg == nullptr) return CIPHER_NO_MEMORY;
    ctx->ivLen = kMacStateBytes;
    macSubkeys(ctx);
    return CIPHER_OK;
}

void macFold(CipherCtx* ctx, const uint8_t block[kBlock]) {
    macSet(ctx, kChain, encryptNumber(ctx, macGet(ctx, kChain) ^ toNumber(block)));
}

// The last block, whole or not, is always held back for the final.
uint32_t updateMac(CipherCtx* ctx, const uint8_t* in, uint32_t inLen) {
    if (ctx->reg == nullptr) {
        const uint32_t status = macCreateState(ctx);
        if (status != CIPHER_OK) return status;
    }
    if (ctx->pendingLen + inLen <= kBlock) {
        std::memcpy(ctx->pending + ctx->pendingLen, in, inLen);
        ctx->pendingLen += inLen;
        return CIPHER_OK;
    }
    const uint32_t fill = kBlock - ctx->pendingLen;
    std::memcpy(ctx->pending + ctx->pendingLen, in, fill);
    macFold(ctx, ctx->pending);
    in += fill;
    inLen -= fill;
    while (inLen > kBlock) {
        macFold(ctx, in);
        in += kBlock;
        inLen -= kBlock;
    }
    std::memcpy(ctx->pending, in, inLen);
    secureZero(ctx->pending + inLen, kBlock - inLen);
    ctx->pendingLen = inLen;
    return CIPHER_OK;
}

uint32_t macFinal(CipherCtx* ctx, uint8_t* out, uint32_t* outLen) {
    const uint32_t macLen = ctx->segmentLen;
    if (*outLen < macLen) {
        *outLen = macLen;
        return CIPHER_SHORT_OUTPUT;
    }
    // A stream that never got data is the MAC of the padding block alone.
    if (ctx->reg == nullptr) {
        const uint32_t status = macCreateState(ctx);
        if (status != CIPHER_OK) return status;
    }
    MacWord subkey = kK1;
    if (ctx->pendingLen != kBlock) {
        ctx->pending[ctx->pendingLen] = 0x80;
        secureZero(ctx->pending + ctx->pendingLen + 1, kBlock - ctx->pendingLen - 1);
        subkey = kK2;
    }
    uint8_t mac[kBlock];
    toBytes(encryptNumber(ctx, macGet(ctx, kChain) ^ toNumber(ctx->pending) ^ macGet(ctx, subkey)), mac);
    std::memcpy(out, mac, macLen);
    *outLen = macLen;
    secureZero(mac, kBlock);
    // The state is wiped here and freed by the next clear.
    secureZero(ctx->reg, kMacStateBytes);
    cipherReset(ctx);
    return CIPHER_OK;
}

// Bytes this update writes, computed exactly so the capacity is never exceeded.
uint32_t blockOutputBytes(const CipherCtx* ctx, uint32_t inLen) { return blocksToProcess(ctx, inLen) * kBlock; }

// The last block of ECB or CBC: pending bytes, padded for encryption.
uint32_t finalBlock(CipherCtx* ctx, uint8_t* out, uint32_t* outLen) {
    const uint32_t mode = ctx->mode, padding = ctx->padding, pending = ctx->pendingLen;
    const bool decrypt = isDecryptBlockMode(mode);

    if (decrypt) {
        if ((padding == CIPHER_PAD_ZEROS || padding == CIPHER_PAD_ONE_ZEROS_IF) && pending != 0 && *outLen == 0) {
            *outLen = kBlock;
            return CIPHER_SHORT_OUTPUT;
        }
        if (pending % kBlock != 0) {
            *outLen = kBlock - pending;
            return CIPHER_PARTIAL_BLOCK;
        }
        // Without a held-back block there is nothing to decrypt, unless the
        // padding says a block must be there.
        if (pending == 0 && padding != CIPHER_PAD_ONE_ZEROS) {
            cipherReset(ctx);
            *outLen = 0;
            return CIPHER_OK;
        }
    } else {
        if (padding != CIPHER_PAD_NONE && (pending != 0 || padding == CIPHER_PAD_ONE_ZEROS) && *outLen < kBlock) {
            *outLen = kBlock;
            return CIPHER_SHORT_OUTPUT;
        }
        if (pending == 0 && padding != CIPHER_PAD_ONE_ZEROS) {
            cipherReset(ctx);
            *outLen = 0;
            return CIPHER_OK;
        }
        if (padding == CIPHER_PAD_NONE) {
            *outLen = kBlock - pending;
            return CIPHER_PARTIAL_BLOCK;
        }
    }

    uint32_t count = pending;
    uint8_t block[kBlock] = {};
    std::memcpy(block, ctx->pending, pending);
    if (!decrypt && (padding == CIPHER_PAD_ONE_ZEROS || padding == CIPHER_PAD_ONE_ZEROS_IF)) block[count++] = 0x80;
    if (count > ctx->segmentLen) {
        cipherReset(ctx);
        *outLen = 0;
        return CIPHER_NO_MEMORY;
    }

    // Work on a copy of the register so a failed final can be called again.
    uint8_t result[kBlock];
    uint8_t* savedReg = nullptr;
    const uint32_t regBytes = cipherRegisterBytes(ctx);
    if (ctx->reg != nullptr && regBytes > 0) {
        savedReg = static_cast<uint8_t*>(std::malloc(regBytes));
        if (savedReg == nullptr) return CIPHER_NO_MEMORY;
        std::memcpy(savedReg, ctx->reg, regBytes);
    }
    processBlock(ctx, block, result);
    if (savedReg != nullptr) {
        std::memcpy(ctx->reg, savedReg, regBytes);
        secureZero(savedReg, regBytes);
        std::free(savedReg);
    }
    secureZero(block, kBlock);

    uint32_t length = *outLen < kBlock ? *outLen : kBlock;
    if (decrypt && padding == CIPHER_PAD_ONE_ZEROS) {
        int last = kBlock - 1;
        while (last >= 0 && result[last] == 0) --last;
        if (last < 0 || result[last] != 0x80) {
            secureZero(result, kBlock);
            *outLen = 0;
            ctx->pendingLen = kBlock;
            return CIPHER_BAD_PADDING;
        }
        const uint32_t plain = static_cast<uint32_t>(last);
        if (*outLen < plain) {
            secureZero(result, kBlock);
            *outLen = plain;
            ctx->pendingLen = kBlock;
            return CIPHER_SHORT_OUTPUT;
        }
        length = plain;
    }
    std::memcpy(out, result, length);
    secureZero(result, kBlock);
    *outLen = length;
    cipherReset(ctx);
    return CIPHER_OK;
}

}  // namespace

uint32_t cipherUpdate(CipherCtx* ctx, const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t* outLen) {
    if (ctx == nullptr) return CIPHER_NULL_CONTEXT;
    if (outLen == nullptr) return CIPHER_SHORT_OUTPUT;
    if (inLen == 0) {
        *outLen = 0;
        return CIPHER_OK;
    }
    const uint32_t capacity = out == nullptr ? 0 : *outLen;
    const uint32_t mode = ctx->mode;
    uint32_t needed = 0;
    if (isGammaMode(mode)) needed = inLen;
    else if (isBlockMode(mode)) needed = blockOutputBytes(ctx, inLen);
    if (needed > capacity || (in == nullptr && mode != 0 && mode <= CIPHER_MAC)) {
        *outLen = 0;
        return CIPHER_SHORT_OUTPUT;
    }
    *outLen = 0;
    if (mode == 0 || mode > CIPHER_MAC) return CIPHER_BAD_MODE;

    if (mode == CIPHER_MAC) return updateMac(ctx, in, inLen);
    if (isGammaMode(mode)) {
        updateGamma(ctx, in, inLen, out, outLen);
    } else {
        updateBlocks(ctx, in, inLen, out, outLen);
    }
    return CIPHER_OK;
}

uint32_t cipherFinal(CipherCtx* ctx, uint8_t* out, uint32_t* outLen) {
    if (ctx == nullptr) return CIPHER_NULL_CONTEXT;
    if (outLen == nullptr) return CIPHER_SHORT_OUTPUT;
    const uint32_t mode = ctx->mode;

    if (out == nullptr) {  // a length query
        if (isGammaMode(mode)) *outLen = 0;
        else if (isBlockMode(mode) && (ctx->pendingLen != 0 || ctx->padding == CIPHER_PAD_ONE_ZEROS)) *outLen = kBlock;
        else if (mode == CIPHER_MAC) *outLen = ctx->segmentLen;
        return CIPHER_OK;
    }
    if (mode == CIPHER_MAC) return macFinal(ctx, out, outLen);
    if (isGammaMode(mode)) {  // unused gamma is dropped
        *outLen = 0;
        cipherReset(ctx);
        return CIPHER_OK;
    }
    if (!isBlockMode(mode)) {
        *outLen = 0;
        return CIPHER_BAD_MODE;
    }
    return finalBlock(ctx, out, outLen);
}
