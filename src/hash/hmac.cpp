#include "hash/hmac.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include "base/wipe.h"

namespace {

constexpr uint32_t kKeyBytes = 32;
constexpr uint32_t kMacBytes = 32;

struct HmacFreer {
    void operator()(HmacContext* ctx) const { hmacFree(ctx); }
};
using HmacPtr = std::unique_ptr<HmacContext, HmacFreer>;

bool badInput(const uint8_t* key, const uint8_t* label, int labelLen, const uint8_t* seed, int seedLen,
              const uint8_t* out) {
    return key == nullptr || label == nullptr || seed == nullptr || out == nullptr || labelLen < 0 || seedLen < 0;
}

// label || 00 || seed, fed after the prefix and before the suffix of each block.
void feedLabelAndSeed(HmacContext* mac, const uint8_t* label, int labelLen, const uint8_t* seed, int seedLen) {
    const uint8_t zero = 0x00;
    hmacUpdate(mac, label, static_cast<uint32_t>(labelLen));
    hmacUpdate(mac, &zero, 1);
    hmacUpdate(mac, seed, static_cast<uint32_t>(seedLen));
}

}  // namespace

HmacContext* hmacCreate(uint32_t algId) {
    auto* ctx = new (std::nothrow) HmacContext{};
    if (ctx == nullptr) std::abort();
    ctx->hash = hashCreate(algId);
    ctx->pad = static_cast<uint8_t*>(std::calloc(1, ctx->hash->blockLen));
    if (ctx->pad == nullptr) std::abort();
    return ctx;
}

uint32_t hmacSetKey(HmacContext* ctx, const void* key, uint32_t keyLen) {
    HashContext* hash = ctx->hash;
    const uint32_t blockLen = hash->blockLen;
    std::memset(ctx->pad, 0, blockLen);
    if (keyLen > blockLen) {
        hashInit(hash);
        hashUpdate(hash, key, keyLen);
        hashFinal(hash, ctx->pad, 1);
    } else if (keyLen > 0) {
        std::memcpy(ctx->pad, key, keyLen);
    }
    for (uint32_t i = 0; i < blockLen; ++i) ctx->pad[i] ^= 0x36;
    hashInit(hash);
    return hashUpdate(hash, ctx->pad, blockLen);
}

uint32_t hmacUpdate(HmacContext* ctx, const void* data, uint32_t len) { return hashUpdate(ctx->hash, data, len); }

uint32_t hmacFinal(HmacContext* ctx, void* out, int direct) {
    HashContext* hash = ctx->hash;
    std::vector<uint8_t> inner(hash->digestLen);
    WipeGuard wipeInner(inner.data(), inner.size());
    hashFinal(hash, inner.data(), 1);
    // 0x36 ^ 0x6A = 0x5C: the inner pad becomes the outer one without the key kept elsewhere.
    for (uint32_t i = 0; i < hash->blockLen; ++i) ctx->pad[i] ^= 0x6A;
    hashInit(hash);
    hashUpdate(hash, ctx->pad, hash->blockLen);
    hashUpdate(hash, inner.data(), hash->digestLen);
    return hashFinal(hash, out, direct);
}

void hmacFree(HmacContext* ctx) {
    if (ctx == nullptr) return;
    secureZero(ctx->pad, ctx->hash->blockLen);
    std::free(ctx->pad);
    hashFree(ctx->hash);
    delete ctx;
}

int kdf256(const uint8_t* key, const uint8_t* label, int labelLen, const uint8_t* seed, int seedLen, uint8_t* out) {
    if (badInput(key, label, labelLen, seed, seedLen, out)) return -1;
    HmacPtr mac(hmacCreate(HASH_ALG_GOST12_256));
    hmacSetKey(mac.get(), key, kKeyBytes);
    const uint8_t prefix = 0x01, suffix[2] = {0x01, 0x00};
    hmacUpdate(mac.get(), &prefix, 1);
    feedLabelAndSeed(mac.get(), label, labelLen, seed, seedLen);
    hmacUpdate(mac.get(), suffix, sizeof suffix);
    if (hmacFinal(mac.get(), out, 1) != kMacBytes) {
        std::memset(out, 0, kMacBytes);
        return -1;
    }
    return 1;
}

int kdfTree256(const uint8_t* key, const uint8_t* label, int labelLen, const uint8_t* seed, int seedLen, int R,
               uint64_t L, uint8_t* out) {
    if (badInput(key, label, labelLen, seed, seedLen, out)) return -1;
    if (R < 1 || R > 4 || L == 0 || L % kMacBytes != 0) return -2;
    const uint64_t maxBlocks = (uint64_t{1} << (8 * R)) - 1;
    if (L / kMacBytes > maxBlocks) return -2;

    // The output length in bits, big-endian in as few bytes as it needs.
    uint8_t bits[9];
    int bitsLen = 0;
    for (uint64_t v = 8 * L; v != 0; v >>= 8) ++bitsLen;
    for (int i = 0, shift = 8 * (bitsLen - 1); i < bitsLen; ++i, shift -= 8)
        bits[i] = static_cast<uint8_t>((8 * L) >> shift);

    HmacPtr mac(hmacCreate(HASH_ALG_GOST12_256));
    const uint64_t blocks = L / kMacBytes;
    for (uint64_t i = 1; i <= blocks; ++i) {
        hmacSetKey(mac.get(), key, kKeyBytes);
        uint8_t counter[4];
        for (int b = 0; b < R; ++b) counter[b] = static_cast<uint8_t>(i >> (8 * (R - 1 - b)));
        hmacUpdate(mac.get(), counter, static_cast<uint32_t>(R));
        feedLabelAndSeed(mac.get(), label, labelLen, seed, seedLen);
        hmacUpdate(mac.get(), bits, static_cast<uint32_t>(bitsLen));
        if (hmacFinal(mac.get(), out + kMacBytes * (i - 1), 1) != kMacBytes) {
            std::memset(out, 0, kMacBytes * i);
            return -1;
        }
    }
    return 1;
}
