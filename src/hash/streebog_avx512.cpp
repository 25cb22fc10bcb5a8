// The compression with AVX-512 VBMI and GFNI.
//
// l is an 8x8 matrix over GF(2^8) with the polynomial x^8+x^4+x^3+x^2+1.
// The isomorphism phi onto the field of vgf2p8mulb (x^8+x^4+x^3+x+1) lets
// one instruction multiply every byte by its own factor, so l becomes seven
// in-lane byte rotations and eight multiplications. The state is kept in
// phi's image and transposed (byte w of lane j holds byte j of word w):
// then pi (two vpermi2b over a phi-conjugated table and a blend on bit 7)
// also performs the transposition tau, and one vpermb per step transposes
// back. Every constant is derived here from pi, the rows of l and the round
// constants; phi itself is found by searching for a root of the polynomial.
#include <cpuid.h>
#include <immintrin.h>

#include <cstring>

#include "hash/streebog_internal.h"

#define VELT_AVX512 __attribute__((target("avx512f,avx512bw,avx512vbmi,gfni")))

// GCC 12's vpermb intrinsic starts from an "undefined" register and then
// warns about it at every use; clang has no such warning to silence.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

namespace streebog {
namespace {

uint8_t mulAes(uint8_t a, uint8_t b) {
    uint8_t r = 0;
    for (; b != 0; b >>= 1) {
        if (b & 1) r ^= a;
        a = static_cast<uint8_t>((a << 1) ^ ((a & 0x80) ? 0x1B : 0));
    }
    return r;
}

// The 8x8 bit matrix of a linear byte map f, in vgf2p8affineqb's order:
// output bit b takes its row from matrix byte 7 - b.
uint64_t bitMatrix(const uint8_t (&f)[256]) {
    uint64_t m = 0;
    for (int b = 0; b < 8; ++b) {
        uint64_t row = 0;
        for (int k = 0; k < 8; ++k) row |= uint64_t{(f[1u << k] >> b) & 1u} << k;
        m |= row << (8 * (7 - b));
    }
    return m;
}

struct alignas(64) Constants {
    uint8_t pi[4][64];        // phi(pi(phi^-1(v)))
    uint8_t factor[8][64];    // [d]: byte j of every lane: phi(c(j, j - d))
    uint8_t transpose[64];    // byte 8j + w takes byte 8w + j
    uint64_t round[12][8];    // phi(C1..C12), transposed
    uint64_t toPhi[8], fromPhi[8];

    Constants() {
        // phi maps x to a root beta of x^8+x^4+x^3+x^2+1 in the AES field.
        uint8_t beta = 2;
        for (;; ++beta) {
            uint8_t p[9] = {1};
            for (int k = 1; k <= 8; ++k) p[k] = mulAes(p[k - 1], beta);
            if ((p[8] ^ p[4] ^ p[3] ^ p[2] ^ p[0]) == 0) break;
        }
        uint8_t phi[256], phiInv[256];
        for (int v = 0; v < 256; ++v) {
            uint8_t image = 0, power = 1;
            for (int k = 0; k < 8; ++k, power = mulAes(power, beta))
                if (v & (1 << k)) image ^= power;
            phi[v] = image;
            phiInv[image] = static_cast<uint8_t>(v);
        }
        for (int v = 0; v < 256; ++v) pi[v / 64][v % 64] = phi[kPi[phiInv[v]]];
        // c(j, i), the factor from input byte i to output byte j, is byte j of
        // l applied to byte i = 1, that is of row A[63 - 8i].
        const uint64_t* rows = matrixRows();
        for (int d = 0; d < 8; ++d)
            for (int j = 0; j < 8; ++j) {
                const int i = (j - d + 8) % 8;
                const uint8_t c = static_cast<uint8_t>(rows[63 - 8 * i] >> (8 * j));
                for (int lane = 0; lane < 8; ++lane) factor[d][8 * lane + j] = phi[c];
            }
        for (int j = 0; j < 8; ++j)
            for (int w = 0; w < 8; ++w) transpose[8 * j + w] = static_cast<uint8_t>(8 * w + j);
        for (int r = 0; r < 12; ++r) {
            uint8_t plain[64], moved[64];
            std::memcpy(plain, kRoundConstants[r], 64);
            for (int k = 0; k < 64; ++k) moved[k] = phi[plain[transpose[k]]];
            std::memcpy(round[r], moved, 64);
        }
        for (int lane = 0; lane < 8; ++lane) {
            toPhi[lane] = bitMatrix(phi);
            fromPhi[lane] = bitMatrix(phiInv);
        }
    }
};

const Constants& constants() {
    static const Constants instance;
    return instance;
}

VELT_AVX512 inline __m512i load(const void* p) { return _mm512_load_si512(p); }

struct Registers {
    __m512i pi0, pi1, pi2, pi3, transpose;
    __m512i factor[8];
};

// LPS in phi's image; x and the result are transposed.
VELT_AVX512 inline __m512i lps(const Registers& r, __m512i x) {
    const __m512i low = _mm512_permutex2var_epi8(r.pi0, x, r.pi1);
    const __m512i high = _mm512_permutex2var_epi8(r.pi2, x, r.pi3);
    // Substituting the transposed state leaves tau(pi(x)) in the normal layout.
    const __m512i p = _mm512_mask_blend_epi8(_mm512_movepi8_mask(x), low, high);
    const __m512i y0 = _mm512_gf2p8mul_epi8(p, r.factor[0]);
    const __m512i y1 = _mm512_gf2p8mul_epi8(_mm512_rol_epi64(p, 8), r.factor[1]);
    const __m512i y2 = _mm512_gf2p8mul_epi8(_mm512_rol_epi64(p, 16), r.factor[2]);
    const __m512i y3 = _mm512_gf2p8mul_epi8(_mm512_rol_epi64(p, 24), r.factor[3]);
    const __m512i y4 = _mm512_gf2p8mul_epi8(_mm512_rol_epi64(p, 32), r.factor[4]);
    const __m512i y5 = _mm512_gf2p8mul_epi8(_mm512_rol_epi64(p, 40), r.factor[5]);
    const __m512i y6 = _mm512_gf2p8mul_epi8(_mm512_rol_epi64(p, 48), r.factor[6]);
    const __m512i y7 = _mm512_gf2p8mul_epi8(_mm512_rol_epi64(p, 56), r.factor[7]);
    const __m512i y = _mm512_xor_si512(_mm512_xor_si512(_mm512_xor_si512(y0, y1), _mm512_xor_si512(y2, y3)),
                                       _mm512_xor_si512(_mm512_xor_si512(y4, y5), _mm512_xor_si512(y6, y7)));
    return _mm512_permutexvar_epi8(r.transpose, y);
}

// Into phi's image and transposed, or back.
VELT_AVX512 inline __m512i enter(const Registers& r, __m512i v, __m512i toPhi) {
    return _mm512_permutexvar_epi8(r.transpose, _mm512_gf2p8affine_epi64_epi8(v, toPhi, 0));
}
VELT_AVX512 inline __m512i leave(const Registers& r, __m512i v, __m512i fromPhi) {
    return _mm512_gf2p8affine_epi64_epi8(_mm512_permutexvar_epi8(r.transpose, v), fromPhi, 0);
}

}  // namespace

VELT_AVX512 void gAvx512(uint64_t h[8], const uint64_t n[8], const uint64_t m[8]) {
    const Constants& c = constants();
    Registers r;
    r.pi0 = load(c.pi[0]);
    r.pi1 = load(c.pi[1]);
    r.pi2 = load(c.pi[2]);
    r.pi3 = load(c.pi[3]);
    r.transpose = load(c.transpose);
    for (int d = 0; d < 8; ++d) r.factor[d] = load(c.factor[d]);
    const __m512i toPhi = load(c.toPhi);
    const __m512i hT = enter(r, _mm512_loadu_si512(h), toPhi);
    const __m512i nT = enter(r, _mm512_loadu_si512(n), toPhi);
    const __m512i mT = enter(r, _mm512_loadu_si512(m), toPhi);

    // The key chain runs ahead of the message chain; written out, the two
    // interleave and hide each other's latency.
    __m512i k = lps(r, _mm512_xor_si512(hT, nT));
    __m512i t = lps(r, _mm512_xor_si512(k, mT));
#pragma GCC unroll 11
    for (int i = 0; i < 11; ++i) {
        k = lps(r, _mm512_xor_si512(k, load(c.round[i])));
        t = lps(r, _mm512_xor_si512(k, t));
    }
    k = lps(r, _mm512_xor_si512(k, load(c.round[11])));
    const __m512i out = _mm512_xor_si512(_mm512_xor_si512(hT, mT), _mm512_xor_si512(t, k));
    _mm512_storeu_si512(h, leave(r, out, load(c.fromPhi)));
}

bool cpuHasAvx512Gfni() {
    unsigned a = 0, b = 0, c = 0, d = 0;
    if (!__get_cpuid(1, &a, &b, &c, &d) || !(c & bit_OSXSAVE)) return false;
    unsigned xcr0Low = 0, xcr0High = 0;
    __asm__ volatile("xgetbv" : "=a"(xcr0Low), "=d"(xcr0High) : "c"(0));
    // The OS must save the SSE, AVX, opmask and both ZMM register states.
    if ((xcr0Low & 0xE6) != 0xE6) return false;
    if (!__get_cpuid_count(7, 0, &a, &b, &c, &d)) return false;
    const bool avx512f = b & (1u << 16), avx512bw = b & (1u << 30);
    const bool vbmi = c & (1u << 1), gfni = c & (1u << 8);
    return avx512f && avx512bw && vbmi && gfni;
}

bool cpuHasSse2() {
    unsigned a = 0, b = 0, c = 0, d = 0;
    return __get_cpuid(1, &a, &b, &c, &d) && (d & bit_SSE2);
}

}  // namespace streebog
