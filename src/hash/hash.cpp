#include "hash/hash.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "base/wipe.h"
#include "hash/gost94.h"
#include "hash/streebog.h"

namespace {

HashContext* allocateFor(uint32_t algId) {
    switch (algId) {
        case HASH_ALG_GOST94: return gost94Alloc();
        case HASH_ALG_GOST12_256: return streebogAlloc(1);
        case HASH_ALG_GOST12_512: return streebogAlloc(0);
        default: return nullptr;
    }
}

}  // namespace

HashContext* hashAllocContext(uint32_t blockLen, uint32_t digestLen) {
    // calloc's alignment covers the 64-bit word reads of the compressions.
    auto* area = static_cast<uint8_t*>(std::calloc(4, blockLen));
    auto* ctx = new (std::nothrow) HashContext{};
    if (area == nullptr || ctx == nullptr) std::abort();
    ctx->state = area;
    ctx->aux1 = area + blockLen;
    ctx->aux2 = area + 2 * blockLen;
    ctx->block = area + 3 * blockLen;
    ctx->blockLen = blockLen;
    ctx->digestLen = digestLen;
    return ctx;
}

HashContext* hashCreate(uint32_t algId) {
    HashContext* ctx = allocateFor(algId);
    // An unknown id is a bug in the caller, never a condition to report.
    if (ctx == nullptr) std::abort();
    ctx->algId = algId;
    return ctx;
}

int hashInit(HashContext* ctx) { return ctx->init(ctx); }

uint32_t hashUpdate(HashContext* ctx, const void* data, uint32_t len) {
    const auto* in = static_cast<const uint8_t*>(data);
    const uint32_t blockLen = ctx->blockLen;
    uint32_t n = ctx->buffered;

    if (n > 0 && len > 0) {
        const uint32_t take = len < blockLen - n ? len : blockLen - n;
        std::memcpy(ctx->block + n, in, take);
        in += take;
        len -= take;
        n += take;
        if (n == blockLen) {
            ctx->compress(ctx, ctx->block, blockLen * 8);
            n = 0;
        }
    }
    if (len >= blockLen) {
        // Compressions read whole 64-bit words; an unaligned input goes through block.
        const bool aligned = reinterpret_cast<uintptr_t>(in) % 8 == 0;
        // The same blocks, compressed in place one after another; a
        // compression that can take them as one run does.
        if (aligned && ctx->compressBlocks != nullptr) {
            const uint32_t run = len / blockLen;
            ctx->compressBlocks(ctx, in, run);
            in += run * blockLen;
            len -= run * blockLen;
        }
        while (len >= blockLen) {
            if (aligned) {
                ctx->compress(ctx, in, blockLen * 8);
            } else {
                std::memcpy(ctx->block, in, blockLen);
                ctx->compress(ctx, ctx->block, blockLen * 8);
            }
            in += blockLen;
            len -= blockLen;
        }
    }
    if (len > 0) {
        std::memcpy(ctx->block + n, in, len);
        n += len;
    }
    ctx->buffered = n;
    return n;
}

void reverseCopy(uint8_t* dst, const uint8_t* src, uint32_t n) {
    for (uint32_t i = 0; i < n; ++i) dst[i] = src[n - 1 - i];
}

uint32_t hashFinal(HashContext* ctx, void* out, int direct) {
    ctx->finish(ctx);
    if (direct) {
        std::memcpy(out, ctx->state, ctx->digestLen);
    } else {
        reverseCopy(static_cast<uint8_t*>(out), ctx->state, ctx->digestLen);
    }
    return ctx->digestLen;
}

void hashFree(HashContext* ctx) {
    if (ctx == nullptr) return;
    // Keyed hashing passes key material through the work area.
    secureZero(ctx->state, 4 * static_cast<size_t>(ctx->blockLen));
    std::free(ctx->state);
    secureZero(ctx, sizeof *ctx);
    delete ctx;
}

HashContext* hashClone(const HashContext* src) {
    // Any compression of the algorithm continues from the same work area.
    HashContext* copy = hashCreate(src->algId);
    std::memcpy(copy->state, src->state, 4 * static_cast<size_t>(src->blockLen));
    copy->buffered = src->buffered;
    return copy;
}

int hashGetAlgId(const HashContext* ctx) {
    return ctx == nullptr ? -1 : static_cast<int>(ctx->algId);
}
