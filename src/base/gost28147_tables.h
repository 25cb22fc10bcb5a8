// GOST 28147-89 round lookups, for the cipher and for GOST R 34.11-94 hashing,
// which differ only in their S-boxes.
#pragma once

#include <cstdint>

// A round's substitution and 11-bit rotation folded into one lookup per byte
// of its input: the round function of x is t[0][x & 0xFF] ^ t[1][(x >> 8) & 0xFF]
// ^ t[2][(x >> 16) & 0xFF] ^ t[3][x >> 24].
struct alignas(64) Gost28147Tables {
    uint32_t t[4][256];
};

// sbox[0] acts on the least significant nibble. Built at compile time by the
// users, so a round reaches the tables without a guard or a pointer load.
constexpr Gost28147Tables gost28147Tables(const uint8_t (&sbox)[8][16]) {
    Gost28147Tables r{};
    for (int i = 0; i < 4; ++i)
        for (uint32_t x = 0; x < 256; ++x) {
            const uint32_t w = ((uint32_t{sbox[2 * i + 1][x >> 4]} << 4) | sbox[2 * i][x & 15]) << (8 * i);
            r.t[i][x] = (w << 11) | (w >> 21);
        }
    return r;
}
