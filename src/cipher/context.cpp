// The context's life cycle: allocate, key for a mode, copy, reset, clear, free.
#include <cstdlib>
#include <cstring>

#include "base/wipe.h"
#include "cipher/cipher.h"
#include "cipher/core.h"
#include "cipher/modes_internal.h"

namespace {

constexpr uint32_t kCounterIvBytes = 4;
constexpr uint32_t kCounterBytes = 8;

uint8_t* copyOf(const uint8_t* src, uint32_t n) {
    auto* p = static_cast<uint8_t*>(std::malloc(n));
    if (p != nullptr) std::memcpy(p, src, n);
    return p;
}

bool ivFits(CipherIvRule rule, const uint8_t* iv, uint32_t ivLen) {
    switch (rule) {
        case CipherIvRule::kNone: return true;  // the IV arguments are not used
        case CipherIvRule::kFour: return iv != nullptr && ivLen == kCounterIvBytes;
        case CipherIvRule::kBlocks: return iv != nullptr && ivLen >= 8 && ivLen % 8 == 0;
        case CipherIvRule::kAtLeastBlock: return iv != nullptr && ivLen >= 8;
    }
    return false;
}

// The set-up checks, in the order the statuses are reported.
uint32_t checkArguments(const CipherMode& m, const uint8_t* key, int32_t segmentLen, const uint8_t* iv, uint32_t ivLen,
                        uint8_t padding) {
    if (key == nullptr) return CIPHER_NULL_KEY;
    if (m.segment && (segmentLen < 1 || segmentLen > 8)) return CIPHER_BAD_SEGMENT;
    if (!ivFits(m.iv, iv, ivLen)) return CIPHER_BAD_IV;
    const bool accepted = padding < 8 && ((m.paddings >> padding) & 1) != 0;
    return accepted ? CIPHER_OK : CIPHER_BAD_PADDING;
}

// The counter modes' buffers have fixed sizes: the 4-byte IV, the 8-byte counter block.
bool hasCounter(const CipherCtx* ctx) {
    const CipherMode* m = cipherMode(ctx->mode);
    return m != nullptr && m->iv == CipherIvRule::kFour;
}

// Sizes of the owned buffers; ivLen is 0 once reset.
uint32_t ivBytes(const CipherCtx* ctx) { return hasCounter(ctx) ? kCounterIvBytes : ctx->ivLen; }

uint32_t registerBytes(const CipherCtx* ctx) { return hasCounter(ctx) ? kCounterBytes : ctx->ivLen; }

}  // namespace

uint32_t cipherCtxAlloc(CipherCtx** holder) {
    if (holder == nullptr) return CIPHER_NULL_CONTEXT;
    *holder = static_cast<CipherCtx*>(std::calloc(1, sizeof(CipherCtx)));
    return *holder == nullptr ? CIPHER_NO_MEMORY : CIPHER_OK;
}

uint32_t cipherCtxInit(CipherCtx* ctx, uint32_t mode, const uint8_t* key, int32_t segmentLen, const uint8_t* iv,
                       uint32_t ivLen, uint8_t padding) {
    if (ctx == nullptr) return CIPHER_NULL_CONTEXT;
    cipherCtxClear(ctx);
    const CipherMode* m = cipherMode(mode);
    if (m == nullptr) return CIPHER_BAD_MODE;
    const uint32_t status = checkArguments(*m, key, segmentLen, iv, ivLen, padding);
    if (status != CIPHER_OK) return status;

    // The mode first, so a clear after a failed allocation wipes the right sizes.
    ctx->mode = mode;
    if (m->iv == CipherIvRule::kFour) {
        ctx->iv = copyOf(iv, kCounterIvBytes);
        // The counter block is the IV as the high half and zero as the low half.
        ctx->reg = static_cast<uint8_t*>(std::calloc(1, kCounterBytes));
        if (ctx->reg != nullptr) std::memcpy(ctx->reg, iv, kCounterIvBytes);
        ctx->ivLen = kCounterBytes;
    } else if (m->iv != CipherIvRule::kNone) {
        ctx->iv = copyOf(iv, ivLen);
        ctx->reg = copyOf(iv, ivLen);
        ctx->ivLen = ivLen;
    }
    // ECB has no register; the MAC makes its state with the first data.
    if (m->iv != CipherIvRule::kNone && (ctx->iv == nullptr || ctx->reg == nullptr)) {
        cipherCtxClear(ctx);
        return CIPHER_NO_MEMORY;
    }
    cipher_core::loadKey(ctx->key, key);
    ctx->padding = padding;
    ctx->segmentLen = m->segment ? static_cast<uint32_t>(segmentLen) : 8;
    return CIPHER_OK;
}

void cipherReset(CipherCtx* ctx) {
    if (ctx == nullptr) return;
    if (ctx->iv != nullptr) secureZero(ctx->iv, ivBytes(ctx));
    if (ctx->reg != nullptr) secureZero(ctx->reg, registerBytes(ctx));
    secureZero(ctx->key, sizeof ctx->key);
    secureZero(ctx->pending, sizeof ctx->pending);
    ctx->pendingLen = 0;
    ctx->ivLen = 0;
    ctx->segmentLen = 0;
    ctx->mode = 0;
}

void cipherCtxClear(CipherCtx* ctx) {
    if (ctx == nullptr) return;
    cipherReset(ctx);
    std::free(ctx->iv);
    std::free(ctx->reg);
    ctx->iv = nullptr;
    ctx->reg = nullptr;
}

uint32_t cipherCtxFree(CipherCtx** holder) {
    if (holder == nullptr || *holder == nullptr) return CIPHER_NULL_CONTEXT;
    cipherCtxClear(*holder);
    std::free(*holder);
    *holder = nullptr;
    return CIPHER_OK;
}

uint32_t cipherCtxCopy(CipherCtx* dst, const CipherCtx* src) {
    if (dst == nullptr || src == nullptr) return CIPHER_NULL_CONTEXT;
    if (dst == src) return CIPHER_OK;
    cipherCtxClear(dst);
    *dst = *src;
    const uint32_t ivLen = ivBytes(src), regLen = registerBytes(src);
    // A wiped-out buffer of a finished stream has nothing to copy.
    dst->iv = src->iv != nullptr && ivLen > 0 ? copyOf(src->iv, ivLen) : nullptr;
    dst->reg = src->reg != nullptr && regLen > 0 ? copyOf(src->reg, regLen) : nullptr;
    if ((dst->iv == nullptr && src->iv != nullptr && ivLen > 0) ||
        (dst->reg == nullptr && src->reg != nullptr && regLen > 0)) {
        cipherCtxClear(dst);
        return CIPHER_NO_MEMORY;
    }
    return CIPHER_OK;
}

uint32_t cipherCtxSize() { return sizeof(CipherCtx); }

uint32_t cipherGetMode(const CipherCtx* ctx) { return ctx == nullptr ? 0xFFFFFFFFu : ctx->mode; }

uint32_t cipherGetSegmentLen(const CipherCtx* ctx) { return ctx == nullptr ? 0xFFFFFFFFu : ctx->segmentLen; }

int cipherGetPadding(const CipherCtx* ctx) { return ctx == nullptr ? -1 : ctx->padding; }
