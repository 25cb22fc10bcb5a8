// The table-driven compression: one LPS step is 64 lookups and 56 XORs.
#include <cstring>

#include "hash/streebog_internal.h"

#if defined(__i386__)
#include <emmintrin.h>
#endif

namespace streebog {
namespace {

using Block = uint64_t[8];

// out = LPS(k ^ a); out may alias k or a. The state goes through memory once
// so that every byte is one load, with no shifting in scarce registers.
inline void lpsx(const uint64_t* T, Block out, const Block k, const Block a) {
    union {
        uint64_t words[8];
        uint8_t bytes[64];
    } x;
    for (int i = 0; i < 8; ++i) x.words[i] = k[i] ^ a[i];
    const uint8_t* b = x.bytes;
    for (int i = 0; i < 8; ++i)
        out[i] = T[b[i]] ^ T[256 + b[8 + i]] ^ T[512 + b[16 + i]] ^ T[768 + b[24 + i]] ^ T[1024 + b[32 + i]] ^
                 T[1280 + b[40 + i]] ^ T[1536 + b[48 + i]] ^ T[1792 + b[56 + i]];
}

}  // namespace

void gTable(uint64_t h[8], const uint64_t n[8], const uint64_t m[8]) {
    const uint64_t* T = lookupTable();
    Block k, t;
    lpsx(T, k, h, n);
    lpsx(T, t, k, m);
    for (int i = 0; i < 11; ++i) {
        lpsx(T, k, k, kRoundConstants[i]);
        lpsx(T, t, k, t);
    }
    lpsx(T, k, k, kRoundConstants[11]);
    for (int i = 0; i < 8; ++i) h[i] ^= t[i] ^ k[i] ^ m[i];
}

#if defined(__i386__)
// On 32-bit x86 a 64-bit table word costs two loads and two XORs in scarce
// general registers; SSE2 loads and XORs it whole.
namespace {

__attribute__((target("sse2"))) inline __m128i entry(const uint64_t* T, int j, uint8_t byte) {
    return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(T + 256 * j + byte));
}

__attribute__((target("sse2"))) void lpsxSse2(const uint64_t* T, Block out, const Block k, const Block a) {
    alignas(16) uint8_t x[64];
    for (int q = 0; q < 4; ++q) {
        const __m128i v = _mm_xor_si128(_mm_loadu_si128(reinterpret_cast<const __m128i*>(k) + q),
                                        _mm_loadu_si128(reinterpret_cast<const __m128i*>(a) + q));
        _mm_store_si128(reinterpret_cast<__m128i*>(x) + q, v);
    }
    for (int i = 0; i < 8; ++i) {
        const __m128i w = _mm_xor_si128(
            _mm_xor_si128(_mm_xor_si128(entry(T, 0, x[i]), entry(T, 1, x[8 + i])),
                          _mm_xor_si128(entry(T, 2, x[16 + i]), entry(T, 3, x[24 + i]))),
            _mm_xor_si128(_mm_xor_si128(entry(T, 4, x[32 + i]), entry(T, 5, x[40 + i])),
                          _mm_xor_si128(entry(T, 6, x[48 + i]), entry(T, 7, x[56 + i]))));
        _mm_storel_epi64(reinterpret_cast<__m128i*>(out + i), w);
    }
}

}  // namespace

__attribute__((target("sse2"))) void gTableSse2(uint64_t h[8], const uint64_t n[8], const uint64_t m[8]) {
    const uint64_t* T = lookupTable();
    alignas(16) Block k, t;
    lpsxSse2(T, k, h, n);
    lpsxSse2(T, t, k, m);
    for (int i = 0; i < 11; ++i) {
        lpsxSse2(T, k, k, kRoundConstants[i]);
        lpsxSse2(T, t, k, t);
    }
    lpsxSse2(T, k, k, kRoundConstants[11]);
    for (int i = 0; i < 8; ++i) h[i] ^= t[i] ^ k[i] ^ m[i];
}
#endif

}  // namespace streebog
