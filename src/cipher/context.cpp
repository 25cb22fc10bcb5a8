// The context's life cycle: allocate, key for a mode, copy, clear, free.
#include <cstdlib>
#include <cstring>

#include "cipher/cipher.h"
#include "cipher/core.h"
#include "cipher/modes_internal.h"

using cipher_core::secureZero;

namespace {

bool takesSegment(uint32_t mode) { return mode >= CIPHER_CTR_ENCRYPT && mode != CIPHER_CBC_ENCRYPT && mode != CIPHER_CBC_DECRYPT; }

uint8_t* copyOf(const uint8_t* src, uint32_t n) {
    auto* p = static_cast<uint8_t*>(std::malloc(n));
    if (p != nullptr) std::memcpy(p, src, n);
    return p;
}

// The checks of each mode's set-up, in the order the statuses are reported.
uint32_t checkArguments(uint32_t mode, const uint8_t* key, int32_t segmentLen, const uint8_t* iv,
                        uint32_t ivLen, uint8_t padding) {
    if (key == nullptr) return CIPHER_NULL_KEY;
    if (takesSegment(mode) && (segmentLen < 1 || segmentLen > 8)) return CIPHER_BAD_SEGMENT;
    switch (mode) {
        case CIPHER_ECB_ENCRYPT:
        case CIPHER_ECB_DECRYPT:
            return padding <= 3 ? CIPHER_OK : CIPHER_BAD_PADDING;
        case CIPHER_CTR_ENCRYPT:
        case CIPHER_CTR_DECRYPT:
            if (iv == nullptr || ivLen != 4) return CIPHER_BAD_IV;
            return padding == 0 ? CIPHER_OK : CIPHER_BAD_PADDING;
        case CIPHER_OFB_ENCRYPT:
        case CIPHER_OFB_DECRYPT:
            if (iv == nullptr || ivLen < 8 || ivLen % 8 != 0) return CIPHER_BAD_IV;
            return padding == 0 ? CIPHER_OK : CIPHER_BAD_PADDING;
        case CIPHER_CBC_ENCRYPT:
        case CIPHER_CBC_DECRYPT:
            if (iv == nullptr || ivLen < 8 || ivLen % 8 != 0) return CIPHER_BAD_IV;
            return padding <= 3 ? CIPHER_OK : CIPHER_BAD_PADDING;
        case CIPHER_CFB_ENCRYPT:
        case CIPHER_CFB_DECRYPT:
            if (iv == nullptr || ivLen < 8) return CIPHER_BAD_IV;
            return padding == 0 ? CIPHER_OK : CIPHER_BAD_PADDING;
        default:  // CIPHER_MAC: the IV arguments are not used
            return padding == CIPHER_PAD_ONE_ZEROS_IF ? CIPHER_OK : CIPHER_BAD_PADDING;
    }
}

}  // namespace

uint32_t cipherIvBytes(const CipherCtx* ctx) { return isCounterMode(ctx->mode) ? 4 : ctx->ivLen; }

uint32_t cipherRegisterBytes(const CipherCtx* ctx) { return isCounterMode(ctx->mode) ? 8 : ctx->ivLen; }

uint32_t cipherCtxAlloc(CipherCtx** holder) {
    if (holder == nullptr) return CIPHER_NULL_CONTEXT;
    *holder = static_cast<CipherCtx*>(std::calloc(1, sizeof(CipherCtx)));
    return *holder == nullptr ? CIPHER_NO_MEMORY : CIPHER_OK;
}

uint32_t cipherCtxInit(CipherCtx* ctx, uint32_t mode, const uint8_t* key, int32_t segmentLen, const uint8_t* iv,
                       uint32_t ivLen, uint8_t padding) {
    if (ctx == nullptr) return CIPHER_NULL_CONTEXT;
    cipherCtxClear(ctx);
    if (mode == 0 || mode > CIPHER_MAC) return CIPHER_BAD_MODE;
    const uint32_t status = checkArguments(mode, key, segmentLen, iv, ivLen, padding);
    if (status != CIPHER_OK) return status;

    if (isCounterMode(mode)) {
        ctx->iv = copyOf(iv, 4);
        // The counter block is the IV as the high half and zero as the low half.
        ctx->reg = static_cast<uint8_t*>(std::calloc(1, 8));
        if (ctx->reg != nullptr) std::memcpy(ctx->reg, iv, 4);
        ctx->ivLen = 8;
    } else if (mode != CIPHER_ECB_ENCRYPT && mode != CIPHER_ECB_DECRYPT && mode != CIPHER_MAC) {
        ctx->iv = copyOf(iv, ivLen);
        ctx->reg = copyOf(iv, ivLen);
        ctx->ivLen = ivLen;
    }
    const bool needsBuffers = mode != CIPHER_ECB_ENCRYPT && mode != CIPHER_ECB_DECRYPT && mode != CIPHER_MAC;
    if (needsBuffers && (ctx->iv == nullptr || ctx->reg == nullptr)) {
        cipherCtxClear(ctx);
        return CIPHER_NO_MEMORY;
    }
    cipher_core::loadKey(ctx->key, key);
    ctx->mode = mode;
    ctx->padding = padding;
    ctx->segmentLen = takesSegment(mode) ? static_cast<uint32_t>(segmentLen) : 8;
    return CIPHER_OK;
}

void cipherCtxClear(CipherCtx* ctx) {
    if (ctx == nullptr) return;
    if (ctx->iv != nullptr) secureZero(ctx->iv, cipherIvBytes(ctx));
    if (ctx->reg != nullptr) secureZero(ctx->reg, cipherRegisterBytes(ctx));
    std::free(ctx->iv);
    std::free(ctx->reg);
    ctx->iv = nullptr;
    ctx->reg = nullptr;
    ctx->ivLen = 0;
    ctx->segmentLen = 0;
    secureZero(ctx->pending, sizeof ctx->pending);
    ctx->pendingLen = 0;
    secureZero(ctx->key, sizeof ctx->key);
    ctx->mode = 0;
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
    const uint32_t ivBytes = cipherIvBytes(src), regBytes = cipherRegisterBytes(src);
    // A wiped-out buffer of a finished stream has nothing to copy.
    dst->iv = src->iv != nullptr && ivBytes > 0 ? copyOf(src->iv, ivBytes) : nullptr;
    dst->reg = src->reg != nullptr && regBytes > 0 ? copyOf(src->reg, regBytes) : nullptr;
    if ((dst->iv == nullptr && src->iv != nullptr && ivBytes > 0) ||
        (dst->reg == nullptr && src->reg != nullptr && regBytes > 0)) {
        cipherCtxClear(dst);
        return CIPHER_NO_MEMORY;
    }
    return CIPHER_OK;
}

void cipherReset(CipherCtx* ctx) {
    if (ctx == nullptr) return;
    if (ctx->iv != nullptr) secureZero(ctx->iv, cipherIvBytes(ctx));
    if (ctx->reg != nullptr) secureZero(ctx->reg, cipherRegisterBytes(ctx));
    secureZero(ctx->key, sizeof ctx->key);
    secureZero(ctx->pending, sizeof ctx->pending);
    ctx->pendingLen = 0;
    ctx->ivLen = 0;
    ctx->segmentLen = 0;
    ctx->mode = 0;
}

uint32_t cipherCtxSize() { return sizeof(CipherCtx); }

uint32_t cipherGetMode(const CipherCtx* ctx) { return ctx == nullptr ? 0xFFFFFFFFu : ctx->mode; }

uint32_t cipherGetSegmentLen(const CipherCtx* ctx) { return ctx == nullptr ? 0xFFFFFFFFu : ctx->segmentLen; }

int cipherGetPadding(const CipherCtx* ctx) { return ctx == nullptr ? -1 : ctx->padding; }
