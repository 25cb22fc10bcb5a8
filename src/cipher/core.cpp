#include "cipher/core.h"

#include <cstring>

namespace cipher_core {
namespace {

// id-tc26-gost-28147-param-Z; S0 acts on the least significant nibble.
constexpr uint8_t kSBox[8][16] = {
    {12, 4, 6, 2, 10, 5, 11, 9, 14, 8, 13, 7, 0, 3, 15, 1},
    {6, 8, 2, 3, 9, 10, 5, 12, 1, 14, 4, 7, 11, 13, 0, 15},
    {11, 3, 5, 8, 2, 15, 10, 13, 14, 1, 7, 4, 12, 9, 6, 0},
    {12, 8, 2, 1, 13, 4, 15, 6, 7, 0, 10, 5, 3, 14, 9, 11},
    {7, 15, 5, 10, 8, 1, 6, 13, 0, 9, 3, 14, 11, 4, 2, 12},
    {5, 13, 15, 6, 9, 2, 12, 10, 11, 7, 8, 1, 4, 3, 14, 0},
    {8, 14, 2, 5, 6, 9, 1, 12, 15, 4, 11, 0, 13, 10, 3, 7},
    {1, 7, 14, 13, 0, 5, 8, 3, 4, 15, 10, 6, 9, 12, 11, 2},
};

// Substitution and the 11-bit rotation folded into one lookup per byte.
struct Tables {
    uint32_t t[4][256];
    Tables() {
        for (int i = 0; i < 4; ++i)
            for (uint32_t x = 0; x < 256; ++x) {
                const uint32_t byte = (uint32_t{kSBox[2 * i + 1][x >> 4]} << 4) | kSBox[2 * i][x & 15];
                const uint32_t w = byte << (8 * i);
                t[i][x] = (w << 11) | (w >> 21);
            }
    }
};

const Tables& tables() {
    static const Tables instance;
    return instance;
}

inline uint32_t g(const Tables& T, uint32_t a, uint32_t k) {
    const uint32_t x = a + k;
    return T.t[0][x & 0xFF] ^ T.t[1][(x >> 8) & 0xFF] ^ T.t[2][(x >> 16) & 0xFF] ^ T.t[3][x >> 24];
}

inline uint32_t loadBE(const uint8_t* p) {
    return (uint32_t{p[0]} << 24) | (uint32_t{p[1]} << 16) | (uint32_t{p[2]} << 8) | p[3];
}

inline void storeBE(uint8_t* p, uint32_t v) {
    p[0] = static_cast<uint8_t>(v >> 24);
    p[1] = static_cast<uint8_t>(v >> 16);
    p[2] = static_cast<uint8_t>(v >> 8);
    p[3] = static_cast<uint8_t>(v);
}

// Two Feistel rounds with the halves' roles alternating, so no swaps are written.
#define VELT_ROUND_PAIR(ka, kb) \
    a1 ^= g(T, a0, (ka));       \
    a0 ^= g(T, a1, (kb));

// Rounds 1..32 with the given key order; the last round leaves the halves unswapped.
#define VELT_32_ROUNDS(k0, k1, k2, k3, k4, k5, k6, k7)         \
    VELT_ROUND_PAIR(k[k0], k[k1]) VELT_ROUND_PAIR(k[k2], k[k3]) \
    VELT_ROUND_PAIR(k[k4], k[k5]) VELT_ROUND_PAIR(k[k6], k[k7])

}  // namespace

void loadKey(uint32_t key[8], const uint8_t* bytes) {
    for (int i = 0; i < 8; ++i) key[i] = loadBE(bytes + 4 * i);
}

void encryptBlock(const uint32_t k[8], const uint8_t in[8], uint8_t out[8]) {
    const Tables& T = tables();
    uint32_t a1 = loadBE(in), a0 = loadBE(in + 4);
    VELT_32_ROUNDS(0, 1, 2, 3, 4, 5, 6, 7)
    VELT_32_ROUNDS(0, 1, 2, 3, 4, 5, 6, 7)
    VELT_32_ROUNDS(0, 1, 2, 3, 4, 5, 6, 7)
    VELT_32_ROUNDS(7, 6, 5, 4, 3, 2, 1, 0)
    // After an even number of alternating rounds a0 holds the last result:
    // the output is that value as the high half, with no final swap.
    storeBE(out, a0);
    storeBE(out + 4, a1);
}

void decryptBlock(const uint32_t k[8], const uint8_t in[8], uint8_t out[8]) {
    const Tables& T = tables();
    uint32_t a1 = loadBE(in), a0 = loadBE(in + 4);
    VELT_32_ROUNDS(0, 1, 2, 3, 4, 5, 6, 7)
    VELT_32_ROUNDS(7, 6, 5, 4, 3, 2, 1, 0)
    VELT_32_ROUNDS(7, 6, 5, 4, 3, 2, 1, 0)
    VELT_32_ROUNDS(7, 6, 5, 4, 3, 2, 1, 0)
    storeBE(out, a0);
    storeBE(out + 4, a1);
}

#undef VELT_32_ROUNDS
#undef VELT_ROUND_PAIR

void secureZero(void* p, uint32_t n) {
    if (p != nullptr && n > 0) explicit_bzero(p, n);
}

}  // namespace cipher_core
