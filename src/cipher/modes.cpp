// The modes of GOST R 34.13-2015 over the 64-bit block transform.
#include <cstdlib>
#include <cstring>

#include "base/wipe.h"
#include "cipher/cipher.h"
#include "cipher/core.h"
#include "cipher/modes_internal.h"

using cipher_core::decryptBlock;
using cipher_core::encryptBlock;
using cipher_core::encryptNumber;

namespace {

constexpr uint32_t kBlock = 8;
constexpr uint32_t kMacStateBytes = 64;

constexpr uint8_t kAnyPadding = 0x0F;
constexpr uint8_t kNoPadding = 1u << CIPHER_PAD_NONE;
constexpr uint8_t kMacPadding = 1u << CIPHER_PAD_ONE_ZEROS_IF;

// Mode n is row n - 1.
constexpr CipherMode kModes[] = {
    // kind          decrypt segment IV rule                 paddings
    {CipherKind::kEcb, false, false, CipherIvRule::kNone, kAnyPadding},        // CIPHER_ECB_ENCRYPT
    {CipherKind::kEcb, true, false, CipherIvRule::kNone, kAnyPadding},         // CIPHER_ECB_DECRYPT
    {CipherKind::kCtr, false, true, CipherIvRule::kFour, kNoPadding},          // CIPHER_CTR_ENCRYPT
    {CipherKind::kCtr, true, true, CipherIvRule::kFour, kNoPadding},           // CIPHER_CTR_DECRYPT
    {CipherKind::kOfb, false, true, CipherIvRule::kBlocks, kNoPadding},        // CIPHER_OFB_ENCRYPT
    {CipherKind::kOfb, true, true, CipherIvRule::kBlocks, kNoPadding},         // CIPHER_OFB_DECRYPT
    {CipherKind::kCbc, false, false, CipherIvRule::kBlocks, kAnyPadding},      // CIPHER_CBC_ENCRYPT
    {CipherKind::kCbc, true, false, CipherIvRule::kBlocks, kAnyPadding},       // CIPHER_CBC_DECRYPT
    {CipherKind::kCfb, false, true, CipherIvRule::kAtLeastBlock, kNoPadding},  // CIPHER_CFB_ENCRYPT
    {CipherKind::kCfb, true, true, CipherIvRule::kAtLeastBlock, kNoPadding},   // CIPHER_CFB_DECRYPT
    {CipherKind::kMac, false, true, CipherIvRule::kNone, kMacPadding},         // CIPHER_MAC
};
static_assert(sizeof kModes / sizeof kModes[0] == CIPHER_MAC, "one row a mode");

// One 8-byte operation, whatever overlaps: byte stores would stall the block's word loads that follow.
void xorBlock(uint8_t* dst, const uint8_t* a, const uint8_t* b) {
    uint64_t x, y;
    std::memcpy(&x, a, kBlock);
    std::memcpy(&y, b, kBlock);
    x ^= y;
    std::memcpy(dst, &x, kBlock);
}

// Moves a register of regLen bytes left by n; the freed last n bytes are the caller's to fill.
void shiftRegister(uint8_t* reg, uint32_t regLen, uint32_t n) { std::memmove(reg, reg + n, regLen - n); }

// ---- ECB and CBC -------------------------------------------------------
// Whole blocks, in place. The CBC register holds regLen bytes, the oldest
// cipher block first; a single block reads only its first 8.

void ecbBlocks(const uint32_t key[8], bool decrypt, uint8_t* data, uint32_t blocks) {
    for (uint32_t b = 0; b < blocks; ++b, data += kBlock) {
        if (decrypt) decryptBlock(key, data, data);
        else encryptBlock(key, data, data);
    }
}

void cbcEncryptBlocks(const uint32_t key[8], uint8_t* reg, uint32_t regLen, uint8_t* data, uint32_t blocks) {
    for (uint32_t b = 0; b < blocks; ++b, data += kBlock) {
        xorBlock(data, data, reg);
        encryptBlock(key, data, data);
        shiftRegister(reg, regLen, kBlock);
        std::memcpy(reg + regLen - kBlock, data, kBlock);
    }
}

void cbcDecryptBlocks(const uint32_t key[8], uint8_t* reg, uint32_t regLen, uint8_t* data, uint32_t blocks) {
    uint8_t cipherText[kBlock];
    WipeGuard wipe(cipherText, sizeof cipherText);
    for (uint32_t b = 0; b < blocks; ++b, data += kBlock) {
        std::memcpy(cipherText, data, kBlock);
        decryptBlock(key, data, data);
        xorBlock(data, data, reg);
        shiftRegister(reg, regLen, kBlock);
        std::memcpy(reg + regLen - kBlock, cipherText, kBlock);
    }
}

void processBlocks(const CipherMode& m, const uint32_t key[8], uint8_t* reg, uint32_t regLen, uint8_t* data,
                   uint32_t blocks) {
    if (m.kind == CipherKind::kEcb) ecbBlocks(key, m.decrypt, data, blocks);
    else if (m.decrypt) cbcDecryptBlocks(key, reg, regLen, data, blocks);
    else cbcEncryptBlocks(key, reg, regLen, data, blocks);
}

// Whole blocks this update processes. Decryption with padding keeps the last
// whole block back for the final, which strips the padding.
uint32_t blocksToProcess(const CipherCtx* ctx, const CipherMode& m, uint32_t inLen) {
    const uint64_t total = uint64_t{ctx->pendingLen} + inLen;
    if (m.decrypt && ctx->padding != CIPHER_PAD_NONE)
        return total > kBlock ? static_cast<uint32_t>((total - 1) / kBlock) : 0;
    return static_cast<uint32_t>(total / kBlock);
}

// The blocks are assembled in out, pending bytes first, and processed there;
// the bytes left over are saved first, as with in == out the move overwrites them.
void updateBlocks(CipherCtx* ctx, const CipherMode& m, const uint8_t* in, uint32_t inLen, uint8_t* out,
                  uint32_t* outLen) {
    const uint32_t blocks = blocksToProcess(ctx, m, inLen);
    const uint32_t pending = ctx->pendingLen;
    if (blocks == 0) {
        std::memcpy(ctx->pending + pending, in, inLen);
        ctx->pendingLen = pending + inLen;
        return;
    }
    const uint32_t consumed = blocks * kBlock - pending;
    const uint32_t restLen = inLen - consumed;
    uint8_t rest[kBlock];
    WipeGuard wipe(rest, sizeof rest);
    std::memcpy(rest, in + consumed, restLen);
    std::memmove(out + pending, in, consumed);
    std::memcpy(out, ctx->pending, pending);
    processBlocks(m, ctx->key, ctx->reg, ctx->ivLen, out, blocks);
    std::memcpy(ctx->pending, rest, restLen);
    secureZero(ctx->pending + restLen, kBlock - restLen);
    ctx->pendingLen = restLen;
    *outLen = blocks * kBlock;
}

// ---- The final of ECB and CBC ------------------------------------------

// Held bytes, or the whole block that padding 2 adds after any data.
bool hasLastBlock(const CipherCtx* ctx) { return ctx->pendingLen != 0 || ctx->padding == CIPHER_PAD_ONE_ZEROS; }

bool addsMarker(const CipherCtx* ctx, const CipherMode& m) {
    return !m.decrypt && (ctx->padding == CIPHER_PAD_ONE_ZEROS || ctx->padding == CIPHER_PAD_ONE_ZEROS_IF);
}

// Step 1, what the final writes, given a last block: CIPHER_OK to go on, or
// the status to return at once with *outLen the room needed or the bytes a
// partial block lacks. These keep the context for another call.
uint32_t lastBlockStatus(const CipherCtx* ctx, const CipherMode& m, uint32_t* outLen) {
    const uint32_t pending = ctx->pendingLen, padding = ctx->padding;
    // Encryption with padding writes a whole block. Decryption with padding 1
    // or 3, which stays in the plain text, wants some room and writes what
    // fits; with padding 2 the room is checked once the padding is stripped.
    const bool paddingStays = padding == CIPHER_PAD_ZEROS || padding == CIPHER_PAD_ONE_ZEROS_IF;
    const uint32_t room = m.decrypt ? (paddingStays ? 1 : 0) : (padding != CIPHER_PAD_NONE ? kBlock : 0);
    if (*outLen < room) {
        *outLen = kBlock;
        return CIPHER_SHORT_OUTPUT;
    }
    const bool padsPartial = !m.decrypt && padding != CIPHER_PAD_NONE;
    if (pending % kBlock != 0 && !padsPartial) {
        *outLen = kBlock - pending;
        return CIPHER_PARTIAL_BLOCK;
    }
    if (pending + (addsMarker(ctx, m) ? 1 : 0) > kBlock) {  // more than a block: no update leaves that
        *outLen = 0;
        return CIPHER_NO_MEMORY;
    }
    return CIPHER_OK;
}

// Step 2: the held bytes, padded on encryption, through the mode as one
// block. CBC reads a copy of the register, so a final refused afterwards
// finds the context as it was.
void processLastBlock(const CipherCtx* ctx, const CipherMode& m, uint8_t block[kBlock]) {
    std::memset(block, 0, kBlock);
    std::memcpy(block, ctx->pending, ctx->pendingLen);
    if (addsMarker(ctx, m)) block[ctx->pendingLen] = 0x80;
    uint8_t reg[kBlock] = {};
    WipeGuard wipe(reg, sizeof reg);
    if (m.kind == CipherKind::kCbc) std::memcpy(reg, ctx->reg, kBlock);
    processBlocks(m, ctx->key, reg, kBlock, block, 1);
}

// Step 3, decryption with padding 2: the plain bytes before the 80 00 .. 00
// that ends the block, or CIPHER_BAD_PADDING.
uint32_t stripPadding(const uint8_t block[kBlock], uint32_t* plainLen) {
    uint32_t end = kBlock;
    while (end > 0 && block[end - 1] == 0) --end;
    if (end == 0 || block[end - 1] != 0x80) return CIPHER_BAD_PADDING;
    *plainLen = end - 1;
    return CIPHER_OK;
}

uint32_t finalBlock(CipherCtx* ctx, const CipherMode& m, uint8_t* out, uint32_t* outLen) {
    if (!hasLastBlock(ctx)) {
        cipherReset(ctx);
        *outLen = 0;
        return CIPHER_OK;
    }
    uint32_t status = lastBlockStatus(ctx, m, outLen);
    if (status == CIPHER_NO_MEMORY) cipherReset(ctx);
    if (status != CIPHER_OK) return status;

    uint8_t block[kBlock];
    WipeGuard wipe(block, sizeof block);
    processLastBlock(ctx, m, block);
    uint32_t length = *outLen < kBlock ? *outLen : kBlock;
    if (m.decrypt && ctx->padding == CIPHER_PAD_ONE_ZEROS) {
        status = stripPadding(block, &length);
        if (status == CIPHER_OK && *outLen < length) status = CIPHER_SHORT_OUTPUT;
        if (status != CIPHER_OK) {
            *outLen = status == CIPHER_SHORT_OUTPUT ? length : 0;
            ctx->pendingLen = kBlock;  // the block stays for another call
            return status;
        }
    }
    std::memcpy(out, block, length);
    *outLen = length;
    cipherReset(ctx);
    return CIPHER_OK;
}

// ---- CTR, OFB, CFB -----------------------------------------------------
// Each step makes the next gamma block into pending; only its first
// segmentLen bytes are used.

void ctrStep(CipherCtx* ctx) {
    uint8_t* counter = ctx->reg;
    encryptBlock(ctx->key, counter, ctx->pending);
    // The counter is one big-endian 64-bit number: low half first, carry upward.
    for (int i = 7; i >= 0 && ++counter[i] == 0; --i) {
    }
}

void ofbStep(CipherCtx* ctx) {
    encryptBlock(ctx->key, ctx->reg, ctx->pending);
    shiftRegister(ctx->reg, ctx->ivLen, kBlock);
    std::memcpy(ctx->reg + ctx->ivLen - kBlock, ctx->pending, kBlock);
}

// The cipher text refills the freed end of the register as it is made.
void cfbStep(CipherCtx* ctx) {
    encryptBlock(ctx->key, ctx->reg, ctx->pending);
    shiftRegister(ctx->reg, ctx->ivLen, ctx->segmentLen);
}

// XORs the data with the gamma, a segment (or what is left of one) at a
// time. The unused gamma is pending[used, used + left); feedback gets each
// byte's register slot with its input and output.
template <void (*kStep)(CipherCtx*), typename Feedback>
void applyGamma(CipherCtx* ctx, const uint8_t* in, uint32_t inLen, uint8_t* out, Feedback feedback) {
    const uint32_t s = ctx->segmentLen;
    uint32_t used = 0, left = ctx->pendingLen;
    while (inLen > 0) {
        if (left == 0) {
            kStep(ctx);
            used = 0;
            left = s;
        }
        const uint32_t n = left < inLen ? left : inLen;
        const uint8_t* gamma = ctx->pending + used;
        uint8_t* slot = ctx->reg + ctx->ivLen - left;
        for (uint32_t i = 0; i < n; ++i) {
            const uint8_t inByte = in[i];
            const uint8_t outByte = inByte ^ gamma[i];
            out[i] = outByte;
            feedback(slot + i, inByte, outByte);
        }
        in += n;
        out += n;
        inLen -= n;
        used += n;
        left -= n;
    }
    std::memmove(ctx->pending, ctx->pending + used, left);
    secureZero(ctx->pending + left, kBlock - left);
    ctx->pendingLen = left;
}

struct NoFeedback {
    void operator()(uint8_t*, uint8_t, uint8_t) const {}
};

void ctrProcess(CipherCtx* ctx, const uint8_t* in, uint32_t inLen, uint8_t* out) {
    applyGamma<ctrStep>(ctx, in, inLen, out, NoFeedback{});
}

void ofbProcess(CipherCtx* ctx, const uint8_t* in, uint32_t inLen, uint8_t* out) {
    applyGamma<ofbStep>(ctx, in, inLen, out, NoFeedback{});
}

void cfbEncrypt(CipherCtx* ctx, const uint8_t* in, uint32_t inLen, uint8_t* out) {
    applyGamma<cfbStep>(ctx, in, inLen, out, [](uint8_t* slot, uint8_t, uint8_t cipherByte) { *slot = cipherByte; });
}

void cfbDecrypt(CipherCtx* ctx, const uint8_t* in, uint32_t inLen, uint8_t* out) {
    applyGamma<cfbStep>(ctx, in, inLen, out, [](uint8_t* slot, uint8_t cipherByte, uint8_t) { *slot = cipherByte; });
}

// ---- MAC ---------------------------------------------------------------

// The MAC state as sixteen words; 64-bit values as (low, high) word pairs.
enum MacWord : uint32_t { kChain = 8, kR = 10, kK1 = 12, kK2 = 14 };

uint64_t macGet(const CipherCtx* ctx, MacWord w) {
    uint32_t low, high;
    std::memcpy(&low, ctx->reg + 4 * w, 4);
    std::memcpy(&high, ctx->reg + 4 * w + 4, 4);
    return (uint64_t{high} << 32) | low;
}

void macSet(CipherCtx* ctx, MacWord w, uint64_t v) {
    const uint32_t low = static_cast<uint32_t>(v), high = static_cast<uint32_t>(v >> 32);
    std::memcpy(ctx->reg + 4 * w, &low, 4);
    std::memcpy(ctx->reg + 4 * w + 4, &high, 4);
}

uint64_t toNumber(const uint8_t b[kBlock]) {
    uint64_t v = 0;
    for (uint32_t i = 0; i < kBlock; ++i) v = (v << 8) | b[i];
    return v;
}

void toBytes(uint64_t v, uint8_t b[kBlock]) {
    for (int i = 7; i >= 0; --i, v >>= 8) b[i] = static_cast<uint8_t>(v);
}

uint64_t doubled(uint64_t v) { return (v << 1) ^ ((v >> 63) ? 0x1B : 0); }

// R = E(0), K1 = R * x, K2 = K1 * x; the chaining value starts at zero.
void macSubkeys(CipherCtx* ctx) {
    const uint64_t r = encryptNumber(ctx->key, 0);
    macSet(ctx, kR, r);
    macSet(ctx, kK1, doubled(r));
    macSet(ctx, kK2, doubled(doubled(r)));
    macSet(ctx, kChain, 0);
}

// Made with the first data or the final.
uint32_t macCreateState(CipherCtx* ctx) {
    if (ctx->reg != nullptr) return CIPHER_OK;
    ctx->reg = static_cast<uint8_t*>(std::calloc(1, kMacStateBytes));
    if (ctx->reg == nullptr) return CIPHER_NO_MEMORY;
    ctx->ivLen = kMacStateBytes;
    macSubkeys(ctx);
    return CIPHER_OK;
}

void macFold(CipherCtx* ctx, const uint8_t block[kBlock]) {
    macSet(ctx, kChain, encryptNumber(ctx->key, macGet(ctx, kChain) ^ toNumber(block)));
}

// The last block, whole or not, is always held back for the final.
uint32_t updateMac(CipherCtx* ctx, const uint8_t* in, uint32_t inLen) {
    const uint32_t status = macCreateState(ctx);
    if (status != CIPHER_OK) return status;
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

// A stream that never got data is the MAC of the padding block alone.
uint32_t macFinal(CipherCtx* ctx, uint8_t* out, uint32_t* outLen) {
    const uint32_t macLen = ctx->segmentLen;
    if (*outLen < macLen) {
        *outLen = macLen;
        return CIPHER_SHORT_OUTPUT;
    }
    const uint32_t status = macCreateState(ctx);
    if (status != CIPHER_OK) return status;
    MacWord subkey = kK1;
    if (ctx->pendingLen != kBlock) {
        ctx->pending[ctx->pendingLen] = 0x80;
        secureZero(ctx->pending + ctx->pendingLen + 1, kBlock - ctx->pendingLen - 1);
        subkey = kK2;
    }
    uint8_t mac[kBlock];
    WipeGuard wipe(mac, sizeof mac);
    toBytes(encryptNumber(ctx->key, macGet(ctx, kChain) ^ toNumber(ctx->pending) ^ macGet(ctx, subkey)), mac);
    std::memcpy(out, mac, macLen);
    *outLen = macLen;
    cipherReset(ctx);  // wipes the state; the next clear frees it
    return CIPHER_OK;
}

// Bytes an update writes, exactly, so the capacity is never exceeded.
uint32_t updateWrites(const CipherCtx* ctx, const CipherMode& m, uint32_t inLen) {
    switch (m.kind) {
        case CipherKind::kEcb:
        case CipherKind::kCbc: return blocksToProcess(ctx, m, inLen) * kBlock;
        case CipherKind::kMac: return 0;
        default: return inLen;
    }
}

// Bytes a final writes at most, for a length query; other cases leave *outLen as it is.
void finalWrites(const CipherCtx* ctx, const CipherMode& m, uint32_t* outLen) {
    switch (m.kind) {
        case CipherKind::kEcb:
        case CipherKind::kCbc:
            if (hasLastBlock(ctx)) *outLen = kBlock;
            return;
        case CipherKind::kMac: *outLen = ctx->segmentLen; return;
        default: *outLen = 0; return;
    }
}

}  // namespace

const CipherMode* cipherMode(uint32_t mode) { return mode == 0 || mode > CIPHER_MAC ? nullptr : &kModes[mode - 1]; }

uint32_t cipherUpdate(CipherCtx* ctx, const uint8_t* in, uint32_t inLen, uint8_t* out, uint32_t* outLen) {
    if (ctx == nullptr) return CIPHER_NULL_CONTEXT;
    if (outLen == nullptr) return CIPHER_SHORT_OUTPUT;
    if (inLen == 0) {
        *outLen = 0;
        return CIPHER_OK;
    }
    const CipherMode* m = cipherMode(ctx->mode);
    const uint32_t capacity = out == nullptr ? 0 : *outLen;
    if (m != nullptr && (updateWrites(ctx, *m, inLen) > capacity || in == nullptr)) {
        *outLen = 0;
        return CIPHER_SHORT_OUTPUT;
    }
    *outLen = 0;
    if (m == nullptr) return CIPHER_BAD_MODE;

    switch (m->kind) {
        case CipherKind::kEcb:
        case CipherKind::kCbc: updateBlocks(ctx, *m, in, inLen, out, outLen); return CIPHER_OK;
        case CipherKind::kMac: return updateMac(ctx, in, inLen);
        case CipherKind::kCtr: ctrProcess(ctx, in, inLen, out); break;
        case CipherKind::kOfb: ofbProcess(ctx, in, inLen, out); break;
        case CipherKind::kCfb:
            if (m->decrypt) cfbDecrypt(ctx, in, inLen, out);
            else cfbEncrypt(ctx, in, inLen, out);
            break;
    }
    *outLen = inLen;
    return CIPHER_OK;
}

uint32_t cipherFinal(CipherCtx* ctx, uint8_t* out, uint32_t* outLen) {
    if (ctx == nullptr) return CIPHER_NULL_CONTEXT;
    if (outLen == nullptr) return CIPHER_SHORT_OUTPUT;
    const CipherMode* m = cipherMode(ctx->mode);
    if (out == nullptr) {  // a length query
        if (m != nullptr) finalWrites(ctx, *m, outLen);
        return CIPHER_OK;
    }
    if (m == nullptr) {
        *outLen = 0;
        return CIPHER_BAD_MODE;
    }
    switch (m->kind) {
        case CipherKind::kEcb:
        case CipherKind::kCbc: return finalBlock(ctx, *m, out, outLen);
        case CipherKind::kMac: return macFinal(ctx, out, outLen);
        default:  // unused gamma is dropped
            *outLen = 0;
            cipherReset(ctx);
            return CIPHER_OK;
    }
}
