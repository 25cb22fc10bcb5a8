#include "hash/gost94.h"

#include <cstring>

namespace {

constexpr uint32_t kBlockBytes = 32;
constexpr int kWords = 8;
using Words = uint32_t[kWords];

// id-GostR3411-94-CryptoProParamSet; S0 acts on the least significant nibble.
constexpr uint8_t kSBox[8][16] = {
    {10, 4, 5, 6, 8, 1, 3, 7, 13, 12, 14, 0, 9, 2, 11, 15},
    {5, 15, 4, 0, 2, 13, 11, 9, 1, 7, 6, 3, 12, 14, 10, 8},
    {7, 15, 12, 14, 9, 4, 1, 0, 3, 11, 5, 2, 6, 10, 8, 13},
    {4, 10, 7, 12, 0, 15, 2, 8, 14, 1, 6, 5, 13, 11, 9, 3},
    {7, 6, 4, 11, 9, 12, 2, 10, 1, 8, 0, 14, 15, 13, 3, 5},
    {7, 6, 2, 4, 13, 9, 15, 0, 10, 1, 5, 11, 8, 14, 12, 3},
    {13, 14, 4, 1, 7, 0, 5, 10, 3, 12, 8, 15, 6, 2, 9, 11},
    {1, 3, 10, 9, 5, 11, 4, 15, 8, 6, 7, 14, 13, 0, 2, 12},
};

// One round's substitution and 11-bit rotation as four lookups.
struct Tables {
    uint32_t t[4][256];
    Tables() {
        for (int i = 0; i < 4; ++i)
            for (uint32_t x = 0; x < 256; ++x) {
                const uint32_t w = ((uint32_t{kSBox[2 * i + 1][x >> 4]} << 4) | kSBox[2 * i][x & 15]) << (8 * i);
                t[i][x] = (w << 11) | (w >> 21);
            }
    }
};

const Tables& tables() {
    static const Tables instance;
    return instance;
}

inline uint32_t g(const Tables& T, uint32_t x) {
    return T.t[0][x & 0xFF] ^ T.t[1][(x >> 8) & 0xFF] ^ T.t[2][(x >> 16) & 0xFF] ^ T.t[3][x >> 24];
}

// GOST 28147-89 simple substitution of the block (low, high) under key words k0..k7.
void encrypt(const Tables& T, const Words key, uint32_t& low, uint32_t& high) {
    uint32_t r = low, l = high;
    for (int round = 0; round < 32; round += 2) {
        const int a = round < 24 ? round % 8 : 7 - round % 8, b = round < 24 ? a + 1 : a - 1;
        l ^= g(T, r + key[a]);
        r ^= g(T, l + key[b]);
    }
    low = l;
    high = r;
}

// P: output byte i + 4k takes input byte 8i + k (i = 0..3, k = 0..7).
void transposeBytes(Words out, const Words in) {
    uint8_t src[kBlockBytes], dst[kBlockBytes];
    std::memcpy(src, in, kBlockBytes);
    for (int i = 0; i < 4; ++i)
        for (int k = 0; k < 8; ++k) dst[i + 4 * k] = src[8 * i + k];
    std::memcpy(out, dst, kBlockBytes);
}

// A: (y4 y3 y2 y1) -> (y1^y2, y4, y3, y2) on 64-bit parts.
void mixA(Words y) {
    const uint32_t lo = y[0] ^ y[2], hi = y[1] ^ y[3];
    std::memmove(y, y + 2, 6 * sizeof(uint32_t));
    y[6] = lo;
    y[7] = hi;
}

// psi: shift right by one 16-bit word; the new top word is the XOR of words 1, 2, 3, 4, 13 and 16.
void psi(uint16_t y[16], int times) {
    for (int n = 0; n < times; ++n) {
        const uint16_t top = y[0] ^ y[1] ^ y[2] ^ y[3] ^ y[12] ^ y[15];
        std::memmove(y, y + 1, 15 * sizeof(uint16_t));
        y[15] = top;
    }
}

// The step function f(H, M).
void step(Words h, const Words m) {
    static constexpr Words kC3 = {0xff00ff00, 0xff00ff00, 0x00ff00ff, 0x00ff00ff,
                                  0x00ffff00, 0xff0000ff, 0x000000ff, 0xff00ffff};
    const Tables& T = tables();
    Words u, v, w, key, s;
    std::memcpy(u, h, sizeof u);
    std::memcpy(v, m, sizeof v);
    for (int j = 0; j < 4; ++j) {
        if (j > 0) {
            mixA(u);
            if (j == 2)
                for (int i = 0; i < kWords; ++i) u[i] ^= kC3[i];
            mixA(v);
            mixA(v);
        }
        for (int i = 0; i < kWords; ++i) w[i] = u[i] ^ v[i];
        transposeBytes(key, w);
        s[2 * j] = h[2 * j];
        s[2 * j + 1] = h[2 * j + 1];
        encrypt(T, key, s[2 * j], s[2 * j + 1]);
    }
    uint16_t y[16], mw[16], hw[16];
    std::memcpy(y, s, sizeof y);
    std::memcpy(mw, m, sizeof mw);
    std::memcpy(hw, h, sizeof hw);
    psi(y, 12);
    for (int i = 0; i < 16; ++i) y[i] ^= mw[i];
    psi(y, 1);
    for (int i = 0; i < 16; ++i) y[i] ^= hw[i];
    psi(y, 61);
    std::memcpy(h, y, sizeof y);
}

// acc += v modulo 2^256.
void add256(Words acc, const Words v) {
    uint64_t carry = 0;
    for (int i = 0; i < kWords; ++i) {
        const uint64_t sum = uint64_t{acc[i]} + v[i] + carry;
        acc[i] = static_cast<uint32_t>(sum);
        carry = sum >> 32;
    }
}

void absorb(HashContext* ctx, const uint8_t* block, uint32_t bitCount) {
    Words h, length, sigma, m, count = {bitCount};
    std::memcpy(h, ctx->state, kBlockBytes);
    std::memcpy(length, ctx->aux1, kBlockBytes);
    std::memcpy(sigma, ctx->aux2, kBlockBytes);
    std::memcpy(m, block, kBlockBytes);
    add256(sigma, m);
    add256(length, count);
    step(h, m);
    std::memcpy(ctx->state, h, kBlockBytes);
    std::memcpy(ctx->aux1, length, kBlockBytes);
    std::memcpy(ctx->aux2, sigma, kBlockBytes);
}

}  // namespace

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "words are copied straight from little-endian memory");

HashContext* gost94Alloc() {
    tables();
    HashContext* ctx = hashAllocContext(kBlockBytes, 32);
    ctx->init = gost94Init;
    ctx->compress = gost94Compress;
    ctx->finish = gost94Finish;
    return ctx;
}

int gost94Init(HashContext* ctx) {
    std::memset(ctx->state, 0, 4 * kBlockBytes);
    ctx->buffered = 0;
    return 0;
}

void gost94Compress(HashContext* ctx, const uint8_t* block, uint32_t bitCount) { absorb(ctx, block, bitCount); }

void gost94Finish(HashContext* ctx) {
    const uint32_t n = ctx->buffered;
    if (n > 0) {
        std::memset(ctx->block + n, 0, kBlockBytes - n);
        absorb(ctx, ctx->block, 8 * n);
    }
    Words h, length, sigma;
    std::memcpy(h, ctx->state, kBlockBytes);
    std::memcpy(length, ctx->aux1, kBlockBytes);
    std::memcpy(sigma, ctx->aux2, kBlockBytes);
    step(h, length);
    step(h, sigma);
    std::memcpy(ctx->state, h, kBlockBytes);
    ctx->buffered = 0;
}
