// The compression with AVX-512 VBMI and GFNI.
//
// l is an 8x8 matrix over GF(2^8) with the polynomial x^8+x^4+x^3+x^2+1.
// The isomorphism phi onto the field of vgf2p8mulb (x^8+x^4+x^3+x+1) lets
// one instruction multiply every byte by its own factor, so l becomes seven
// byte moves and eight multiplications. The state is kept in phi's image;
// pi is two vpermi2b over a phi-conjugated table and a select on bit 7, and
// tau costs nothing: the state's layout in the register alternates from one
// step to the next (see Layout). Every constant is derived here from pi, the
// rows of l and the round constants; phi itself is found by searching for a
// root of the polynomial.
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

// Register byte 8r + c holds byte c of word r in the normal layout N, and
// byte r of word c in the transposed layout T. Reading a register in the
// other layout is the transposition tau, so no step moves bytes for it:
// substituting a state held in T leaves tau(pi(x)) in N, where l's byte
// moves stay inside each lane; from N it leaves tau(pi(x)) in T, where they
// cross lanes. The layouts alternate from one step to the next.
enum Layout { N, T };

struct alignas(64) Constants {
    uint8_t pi[4][64];         // phi(pi(phi^-1(v)))
    uint8_t factor[2][8][64];  // [layout of l's result][d]: term d's factor at each byte
    uint8_t transpose[64];     // byte 8j + w takes byte 8w + j
    uint8_t round[2][12][64];  // [layout]: phi(C1..C12)
    uint64_t toPhi[8], fromPhi[8], signMatrix[8];

    Constants() {
        // phi maps x to a root beta of x^8+x^4+x^3+x^2+1 in the AES field.
        uint8_t beta = 2;
        for (;; ++beta) {
            uint8_t p[9] = {1};
            for (int k = 1; k <= 8; ++k) p[k] = mulAes(p[k - 1], beta);
            if ((p[8] ^ p[4] ^ p[3] ^ p[2] ^ p[0]) == 0) break;
        }
        uint8_t phi[256], phiInv[256], sign[256];
        for (int v = 0; v < 256; ++v) {
            uint8_t image = 0, power = 1;
            for (int k = 0; k < 8; ++k, power = mulAes(power, beta))
                if (v & (1 << k)) image ^= power;
            phi[v] = image;
            phiInv[image] = static_cast<uint8_t>(v);
            sign[v] = (v & 0x80) ? 0xFF : 0x00;
        }
        for (int v = 0; v < 256; ++v) pi[v / 64][v % 64] = phi[kPi[phiInv[v]]];
        // c(j, i), the factor from input byte i to output byte j, is byte j of
        // l applied to byte i = 1, that is of row A[63 - 8i].
        const uint64_t* rows = matrixRows();
        auto factorOf = [&](int j, int i) { return phi[static_cast<uint8_t>(rows[63 - 8 * (i & 7)] >> (8 * j))]; };
        for (int d = 0; d < 8; ++d)
            for (int j = 0; j < 8; ++j)
                for (int w = 0; w < 8; ++w) {
                    factor[N][d][8 * w + j] = factorOf(j, j - d + 8);
                    factor[T][d][8 * j + w] = factorOf(j, j ^ d);
                    transpose[8 * j + w] = static_cast<uint8_t>(8 * w + j);
                }
        for (int r = 0; r < 12; ++r) {
            uint8_t plain[64];
            std::memcpy(plain, kRoundConstants[r], 64);
            for (int k = 0; k < 64; ++k) {
                round[N][r][k] = phi[plain[k]];
                round[T][r][k] = phi[plain[transpose[k]]];
            }
        }
        for (int lane = 0; lane < 8; ++lane) {
            toPhi[lane] = bitMatrix(phi);
            fromPhi[lane] = bitMatrix(phiInv);
            signMatrix[lane] = bitMatrix(sign);
        }
    }
};

const Constants& constants() {
    static const Constants instance;
    return instance;
}

VELT_AVX512 inline __m512i load(const void* p) { return _mm512_load_si512(p); }

// Term d of l for a result in layout L: in N, byte j of a word takes byte
// j - d, a rotation inside each lane; in T, lane j takes lane j ^ d, two
// shuffles of which only one crosses 128-bit lanes.
template <Layout L, int D>
VELT_AVX512 inline __m512i term(const Constants& c, __m512i p) {
    __m512i moved = p;
    if (L == N && D != 0) moved = _mm512_rol_epi64(p, 8 * D);
    if (L == T) {
        constexpr int q = D >> 1;  // 128-bit lane k takes lane k ^ q
        if (q != 0) moved = _mm512_shuffle_i64x2(moved, moved, q | (1 ^ q) << 2 | (2 ^ q) << 4 | (3 ^ q) << 6);
        if (D & 1) moved = _mm512_shuffle_epi32(moved, _MM_PERM_BADC);
    }
    return _mm512_gf2p8mul_epi8(moved, load(c.factor[L][D]));
}

// LPS of a state held in layout In, plus add, in the other layout.
template <Layout In>
VELT_AVX512 inline __m512i lpsPlus(const Constants& c, __m512i x, __m512i add) {
    constexpr Layout Out = In == N ? T : N;
    const __m512i low = _mm512_permutex2var_epi8(load(c.pi[0]), x, load(c.pi[1]));
    const __m512i high = _mm512_permutex2var_epi8(load(c.pi[2]), x, load(c.pi[3]));
    // Bit 7 spread over its byte picks the half; an affine map is the
    // quickest way there, and a ternary select the quickest blend.
    const __m512i sign = _mm512_gf2p8affine_epi64_epi8(x, load(c.signMatrix), 0);
    const __m512i p = _mm512_ternarylogic_epi64(sign, high, low, 0xCA);
    // Folding the terms in one at a time keeps few registers live, which
    // 32-bit mode, with eight, needs; 64-bit mode runs it as fast as a tree.
    // (Unoptimised builds define the ternlog intrinsic as a macro, which
    // would split a template argument list: terms go through names.)
    const __m512i u0 = term<Out, 0>(c, p), u1 = term<Out, 1>(c, p);
    __m512i acc = _mm512_ternarylogic_epi64(u0, u1, add, 0x96);
    const __m512i u2 = term<Out, 2>(c, p), u3 = term<Out, 3>(c, p);
    acc = _mm512_ternarylogic_epi64(acc, u2, u3, 0x96);
    const __m512i u4 = term<Out, 4>(c, p), u5 = term<Out, 5>(c, p);
    acc = _mm512_ternarylogic_epi64(acc, u4, u5, 0x96);
    const __m512i u6 = term<Out, 6>(c, p), u7 = term<Out, 7>(c, p);
    return _mm512_ternarylogic_epi64(acc, u6, u7, 0x96);
}

constexpr Layout other(Layout l) { return l == N ? T : N; }

// One round from states in layout In: the key chain carries y = K ^ C, the
// message chain carries x = K ^ t.
template <Layout In, int Round>
VELT_AVX512 inline void roundStep(const Constants& c, __m512i& y, __m512i& x) {
    const __m512i nextC = load(c.round[other(In)][Round + 1]);
    const __m512i nextY = lpsPlus<In>(c, y, nextC);
    x = _mm512_xor_si512(nextY, lpsPlus<In>(c, x, nextC));
    y = nextY;
}

// Rounds Round..10, the first from layout In.
template <Layout In, int Round>
VELT_AVX512 inline void rounds(const Constants& c, __m512i& y, __m512i& x) {
    roundStep<In, Round>(c, y, x);
    if constexpr (Round < 10) rounds<other(In), Round + 1>(c, y, x);
}

// g on phi images, with h ^ n in layout In, m and the final addend in the
// other layout, where the result lands: thirteen steps, each changing the
// layout. The addend is h ^ m, plus whatever the caller wants added to the
// result. E_K(m) is twelve rounds of LSX whose keys come from their own chain
// of LPS steps; the two chains advance side by side, so the key chain's
// latency, thirteen steps, is the whole cost.
template <Layout In>
VELT_AVX512 inline __m512i gPhi(const Constants& c, __m512i hn, __m512i m, __m512i addend) {
    constexpr Layout Out = other(In);
    __m512i y = lpsPlus<In>(c, hn, load(c.round[Out][0]));  // K1 ^ C1
    __m512i x = _mm512_xor_si512(y, _mm512_xor_si512(m, load(c.round[Out][0])));
    rounds<Out, 0>(c, y, x);
    // The last round: K13 = LPS(y), t12 = LPS(x).
    return _mm512_xor_si512(lpsPlus<In>(c, y, addend), lpsPlus<In>(c, x, _mm512_setzero_si512()));
}

struct Converters {
    __m512i toPhi, fromPhi, transpose;
};

VELT_AVX512 inline Converters converters(const Constants& c) {
    return {load(c.toPhi), load(c.fromPhi), load(c.transpose)};
}

VELT_AVX512 inline __m512i loadPhi(const Converters& v, const void* p) {
    return _mm512_gf2p8affine_epi64_epi8(_mm512_loadu_si512(p), v.toPhi, 0);
}

VELT_AVX512 inline void storeFromPhi(const Converters& v, void* p, __m512i x) {
    _mm512_storeu_si512(p, _mm512_gf2p8affine_epi64_epi8(x, v.fromPhi, 0));
}

VELT_AVX512 inline __m512i transposed(const Converters& v, __m512i x) {
    return _mm512_permutexvar_epi8(v.transpose, x);
}

template <Layout L>
VELT_AVX512 inline __m512i inLayout(const Converters& v, __m512i normal) {
    return L == N ? normal : transposed(v, normal);
}

VELT_AVX512 inline void g(void* h, const void* n, const void* m) {
    const Constants& c = constants();
    const Converters v = converters(c);
    const __m512i hPhi = loadPhi(v, h), mPhi = loadPhi(v, m);
    const __m512i out = gPhi<N>(c, _mm512_xor_si512(hPhi, loadPhi(v, n)), transposed(v, mPhi),
                                transposed(v, _mm512_xor_si512(hPhi, mPhi)));
    storeFromPhi(v, h, transposed(v, out));
}

// One block of a run, from h in layout In to h in the other. The next
// block's N is known before this one's g starts, so g adds it to its result
// and the next block starts from h ^ N at once.
template <Layout In>
VELT_AVX512 inline void runBlock(const Constants& c, const Converters& v, HashContext* ctx, const uint8_t* block,
                                 __m512i& h, __m512i& hn) {
    constexpr Layout Out = other(In);
    countBlock(ctx, block, 512);
    const __m512i m = inLayout<Out>(v, loadPhi(v, block));
    const __m512i nextN = inLayout<Out>(v, loadPhi(v, ctx->aux1));
    hn = gPhi<In>(c, hn, m, _mm512_ternarylogic_epi64(transposed(v, h), m, nextN, 0x96));
    h = _mm512_xor_si512(hn, nextN);
}

VELT_AVX512 void gAvx512(uint64_t h[8], const uint64_t n[8], const uint64_t m[8]) { g(h, n, m); }

// The chaining value is read and written in place, whole: a copy through
// smaller moves would cost a failed store forwarding on every block.
VELT_AVX512 void compressAvx512(HashContext* ctx, const uint8_t* block, uint32_t bitCount) {
    g(ctx->state, ctx->aux1, block);
    countBlock(ctx, block, bitCount);
}

// Between the blocks of a run the chaining value stays in a register as it
// leaves g, a phi image in the layout of g's last step; the next block starts
// from that layout. Converting it back each block, through memory, would
// lengthen the only chain that matters.
VELT_AVX512 void compressRunAvx512(HashContext* ctx, const uint8_t* blocks, uint32_t count) {
    const Constants& c = constants();
    const Converters v = converters(c);
    __m512i h = loadPhi(v, ctx->state);  // layout N
    __m512i hn = _mm512_xor_si512(h, loadPhi(v, ctx->aux1));
    uint32_t i = 0;
    for (; i + 2 <= count; i += 2) {
        runBlock<N>(c, v, ctx, blocks + 64 * i, h, hn);
        runBlock<T>(c, v, ctx, blocks + 64 * i + 64, h, hn);
    }
    if (i < count) {
        runBlock<N>(c, v, ctx, blocks + 64 * i, h, hn);
        h = transposed(v, h);
    }
    storeFromPhi(v, ctx->state, h);
}

int cpuHasAvx512Gfni() {
    unsigned a = 0, b = 0, c = 0, d = 0;
    if (!__get_cpuid(1, &a, &b, &c, &d) || !(c & bit_OSXSAVE)) return 0;
    unsigned xcr0Low = 0, xcr0High = 0;
    __asm__ volatile("xgetbv" : "=a"(xcr0Low), "=d"(xcr0High) : "c"(0));
    // The OS must save the SSE, AVX, opmask and both ZMM register states.
    if ((xcr0Low & 0xE6) != 0xE6) return 0;
    if (!__get_cpuid_count(7, 0, &a, &b, &c, &d)) return 0;
    const bool avx512f = b & (1u << 16), avx512bw = b & (1u << 30);
    const bool vbmi = c & (1u << 1), gfni = c & (1u << 8);
    return avx512f && avx512bw && vbmi && gfni ? 1 : 0;
}

}  // namespace

const StreebogCompression kAvx512Compression = {"avx512-gfni",  cpuHasAvx512Gfni,    gAvx512,
                                                compressAvx512, finishWith<gAvx512>, compressRunAvx512};

}  // namespace streebog
