#include "cipher/core.h"

#include "base/gost28147_tables.h"

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

using Tables = Gost28147Tables;

const Tables& tables() {
    static constexpr Tables instance = gost28147Tables(kSBox);
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

// Eight rounds, two at a time with the halves' roles alternating so no
// swaps are written; the key words run K1..K8, or K8..K1 when reversed.
template <bool kReversed>
inline void eightRounds(const Tables& T, const uint32_t k[8], uint32_t& a1, uint32_t& a0) {
    constexpr int r = kReversed ? 7 : 0;  // r ^ i is i, or 7 - i
    a1 ^= g(T, a0, k[r ^ 0]);
    a0 ^= g(T, a1, k[r ^ 1]);
    a1 ^= g(T, a0, k[r ^ 2]);
    a0 ^= g(T, a1, k[r ^ 3]);
    a1 ^= g(T, a0, k[r ^ 4]);
    a0 ^= g(T, a1, k[r ^ 5]);
    a1 ^= g(T, a0, k[r ^ 6]);
    a0 ^= g(T, a1, k[r ^ 7]);
}

// The 32 rounds on the halves a1 (high) and a0 (low). Encryption takes the
// key forward three times, then reversed; decryption forward once, then
// reversed three times. Both end without a swap: after an even number of
// alternating rounds a0 holds the last result, the high half of the output.
template <bool kDecrypt>
inline void rounds(const uint32_t k[8], uint32_t& a1, uint32_t& a0) {
    const Tables& T = tables();
    eightRounds<false>(T, k, a1, a0);
    eightRounds<kDecrypt>(T, k, a1, a0);
    eightRounds<kDecrypt>(T, k, a1, a0);
    eightRounds<true>(T, k, a1, a0);
}

template <bool kDecrypt>
void transform(const uint32_t k[8], const uint8_t in[8], uint8_t out[8]) {
    uint32_t a1 = loadBE(in), a0 = loadBE(in + 4);
    rounds<kDecrypt>(k, a1, a0);
    storeBE(out, a0);
    storeBE(out + 4, a1);
}

}  // namespace

void loadKey(uint32_t key[8], const uint8_t* bytes) {
    for (int i = 0; i < 8; ++i) key[i] = loadBE(bytes + 4 * i);
}

void encryptBlock(const uint32_t k[8], const uint8_t in[8], uint8_t out[8]) { transform<false>(k, in, out); }

void decryptBlock(const uint32_t k[8], const uint8_t in[8], uint8_t out[8]) { transform<true>(k, in, out); }

uint64_t encryptNumber(const uint32_t k[8], uint64_t block) {
    uint32_t a1 = static_cast<uint32_t>(block >> 32), a0 = static_cast<uint32_t>(block);
    rounds<false>(k, a1, a0);
    return (uint64_t{a0} << 32) | a1;
}

}  // namespace cipher_core
