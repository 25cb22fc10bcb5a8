// The table-driven compression: one LPS step is 64 lookups and 56 XORs.
// Round i needs only K_i for both of its steps, the next key LPS(K_i ^ C_i)
// and the message state LPS(K_i ^ t), so each round computes the two side by
// side and the CPU runs two independent chains.
#include <cstring>

#include "hash/streebog_internal.h"

#if defined(__i386__)
#include <emmintrin.h>
#endif

namespace streebog {
namespace {

#if UINTPTR_MAX <= 0xffffffffu
// The 32-bit compressions keep their state in memory.
inline uint64_t loadWord(const uint8_t* p) {
    uint64_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

inline void storeWord(uint8_t* p, uint64_t v) { std::memcpy(p, &v, sizeof v); }
#endif

#if UINTPTR_MAX > 0xffffffffu
// With 64-bit registers the state stays in them: shifting a word 16 bits at a
// time hands out its bytes as the low and second byte of a register.
struct State {
    uint64_t w[8];
};

inline State loadState(const uint64_t* p) {
    State s;
    std::memcpy(s.w, p, sizeof s.w);
    return s;
}

inline State operator^(const State& a, const State& b) {
    State r;
    for (int i = 0; i < 8; ++i) r.w[i] = a.w[i] ^ b.w[i];
    return r;
}

// Left alone the compiler folds the successive shifts into one shift per byte
// of a copy, about a third more instructions; this keeps each word shifting
// in place. It emits nothing.
inline uint64_t opaque(uint64_t v) {
    asm("" : "+r"(v));
    return v;
}

// Byte B (0 or 1) of every word, each through its own table.
template <int B>
inline uint64_t column(const uint64_t* T, const State& x) {
    return ((T[static_cast<uint8_t>(x.w[0] >> (8 * B))] ^ (T + 256)[static_cast<uint8_t>(x.w[1] >> (8 * B))]) ^
            ((T + 512)[static_cast<uint8_t>(x.w[2] >> (8 * B))] ^ (T + 768)[static_cast<uint8_t>(x.w[3] >> (8 * B))])) ^
           (((T + 1024)[static_cast<uint8_t>(x.w[4] >> (8 * B))] ^
             (T + 1280)[static_cast<uint8_t>(x.w[5] >> (8 * B))]) ^
            ((T + 1536)[static_cast<uint8_t>(x.w[6] >> (8 * B))] ^
             (T + 1792)[static_cast<uint8_t>(x.w[7] >> (8 * B))]));
}

inline void shift16(State& x) {
    for (int j = 0; j < 8; ++j) x.w[j] = opaque(x.w[j] >> 16);
}

inline State lps(const uint64_t* T, State x) {
    State r;
    r.w[0] = column<0>(T, x);
    r.w[1] = column<1>(T, x);
    shift16(x);
    r.w[2] = column<0>(T, x);
    r.w[3] = column<1>(T, x);
    shift16(x);
    r.w[4] = column<0>(T, x);
    r.w[5] = column<1>(T, x);
    shift16(x);
    r.w[6] = column<0>(T, x);
    r.w[7] = column<1>(T, x);
    return r;
}

}  // namespace

void gTable(uint64_t h[8], const uint64_t n[8], const uint64_t m[8]) {
    const uint64_t* T = lookupTable();
    const State msg = loadState(m);
    State k = lps(T, loadState(h) ^ loadState(n));
    State t = msg;
    for (int i = 0; i < 12; ++i) {
        const State keyIn = k ^ loadState(kRoundConstants[i]);
        t = lps(T, k ^ t);
        k = lps(T, keyIn);
    }
    for (int i = 0; i < 8; ++i) h[i] ^= t.w[i] ^ k.w[i] ^ msg.w[i];
}

#else
// Seven general registers cannot hold a 64-bit state, so each round reads its
// bytes from memory: one load per byte, no shifts. A round reads K ^ t and
// K ^ C (128 bytes) from one buffer and writes the next round's into another.

// Word I of LPS of the state at x.
template <int I>
inline uint64_t lpsWord(const uint64_t* T, const uint8_t* x) {
    return ((T[x[I]] ^ (T + 256)[x[8 + I]]) ^ ((T + 512)[x[16 + I]] ^ (T + 768)[x[24 + I]])) ^
           (((T + 1024)[x[32 + I]] ^ (T + 1280)[x[40 + I]]) ^ ((T + 1536)[x[48 + I]] ^ (T + 1792)[x[56 + I]]));
}

// K_1 = LPS(h ^ n) from cur; next gets K_1 ^ m and K_1 ^ C_1.
template <int I>
inline void firstWord(const uint64_t* T, const uint8_t* cur, uint8_t* next, const uint64_t* m, const uint64_t* c) {
    const uint64_t k = lpsWord<I>(T, cur);
    storeWord(next + 8 * I, k ^ m[I]);
    storeWord(next + 64 + 8 * I, k ^ c[I]);
}

template <int I>
inline void roundWord(const uint64_t* T, const uint8_t* cur, uint8_t* next, const uint64_t* c) {
    const uint64_t t = lpsWord<I>(T, cur), k = lpsWord<I>(T, cur + 64);
    storeWord(next + 8 * I, k ^ t);
    storeWord(next + 64 + 8 * I, k ^ c[I]);
}

}  // namespace

void gTable(uint64_t h[8], const uint64_t n[8], const uint64_t m[8]) {
    const uint64_t* T = lookupTable();
    alignas(8) uint8_t a[128], b[128];
    for (int i = 0; i < 8; ++i) storeWord(a + 8 * i, h[i] ^ n[i]);
    firstWord<0>(T, a, b, m, kRoundConstants[0]);
    firstWord<1>(T, a, b, m, kRoundConstants[0]);
    firstWord<2>(T, a, b, m, kRoundConstants[0]);
    firstWord<3>(T, a, b, m, kRoundConstants[0]);
    firstWord<4>(T, a, b, m, kRoundConstants[0]);
    firstWord<5>(T, a, b, m, kRoundConstants[0]);
    firstWord<6>(T, a, b, m, kRoundConstants[0]);
    firstWord<7>(T, a, b, m, kRoundConstants[0]);
    uint8_t* cur = b;
    uint8_t* next = a;
    for (int i = 0; i < 12; ++i) {
        // The last round's K ^ C is never read.
        const uint64_t* c = kRoundConstants[i < 11 ? i + 1 : i];
        roundWord<0>(T, cur, next, c);
        roundWord<1>(T, cur, next, c);
        roundWord<2>(T, cur, next, c);
        roundWord<3>(T, cur, next, c);
        roundWord<4>(T, cur, next, c);
        roundWord<5>(T, cur, next, c);
        roundWord<6>(T, cur, next, c);
        roundWord<7>(T, cur, next, c);
        uint8_t* done = cur;
        cur = next;
        next = done;
    }
    // cur holds K_13 ^ t_12.
    for (int i = 0; i < 8; ++i) h[i] ^= loadWord(cur + 8 * i) ^ m[i];
}
#endif

#if defined(__i386__)
// On 32-bit x86 a 64-bit table word costs two loads and two XORs in scarce
// general registers; SSE2 loads and XORs it whole. Same rounds as above.
namespace {

__attribute__((target("sse2"))) inline __m128i entry(const uint64_t* t, size_t i) {
    return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(t + i));
}

__attribute__((target("sse2"))) inline void storeXmm(uint8_t* p, __m128i v) {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(p), v);
}

template <int I>
__attribute__((target("sse2"))) inline __m128i lpsWordSse2(const uint64_t* T, const uint8_t* x) {
    return _mm_xor_si128(_mm_xor_si128(_mm_xor_si128(entry(T, x[I]), entry(T + 256, x[8 + I])),
                                       _mm_xor_si128(entry(T + 512, x[16 + I]), entry(T + 768, x[24 + I]))),
                         _mm_xor_si128(_mm_xor_si128(entry(T + 1024, x[32 + I]), entry(T + 1280, x[40 + I])),
                                       _mm_xor_si128(entry(T + 1536, x[48 + I]), entry(T + 1792, x[56 + I]))));
}

template <int I>
__attribute__((target("sse2"))) inline void firstWordSse2(const uint64_t* T, const uint8_t* cur, uint8_t* next,
                                                          const uint64_t* m, const uint64_t* c) {
    const __m128i k = lpsWordSse2<I>(T, cur);
    storeXmm(next + 8 * I, _mm_xor_si128(k, entry(m, I)));
    storeXmm(next + 64 + 8 * I, _mm_xor_si128(k, entry(c, I)));
}

template <int I>
__attribute__((target("sse2"))) inline void roundWordSse2(const uint64_t* T, const uint8_t* cur, uint8_t* next,
                                                          const uint64_t* c) {
    const __m128i t = lpsWordSse2<I>(T, cur), k = lpsWordSse2<I>(T, cur + 64);
    storeXmm(next + 8 * I, _mm_xor_si128(k, t));
    storeXmm(next + 64 + 8 * I, _mm_xor_si128(k, entry(c, I)));
}

}  // namespace

__attribute__((target("sse2"))) void gTableSse2(uint64_t h[8], const uint64_t n[8], const uint64_t m[8]) {
    const uint64_t* T = lookupTable();
    alignas(8) uint8_t a[128], b[128];
    for (int i = 0; i < 8; ++i) storeWord(a + 8 * i, h[i] ^ n[i]);
    firstWordSse2<0>(T, a, b, m, kRoundConstants[0]);
    firstWordSse2<1>(T, a, b, m, kRoundConstants[0]);
    firstWordSse2<2>(T, a, b, m, kRoundConstants[0]);
    firstWordSse2<3>(T, a, b, m, kRoundConstants[0]);
    firstWordSse2<4>(T, a, b, m, kRoundConstants[0]);
    firstWordSse2<5>(T, a, b, m, kRoundConstants[0]);
    firstWordSse2<6>(T, a, b, m, kRoundConstants[0]);
    firstWordSse2<7>(T, a, b, m, kRoundConstants[0]);
    uint8_t* cur = b;
    uint8_t* next = a;
    for (int i = 0; i < 12; ++i) {
        const uint64_t* c = kRoundConstants[i < 11 ? i + 1 : i];
        roundWordSse2<0>(T, cur, next, c);
        roundWordSse2<1>(T, cur, next, c);
        roundWordSse2<2>(T, cur, next, c);
        roundWordSse2<3>(T, cur, next, c);
        roundWordSse2<4>(T, cur, next, c);
        roundWordSse2<5>(T, cur, next, c);
        roundWordSse2<6>(T, cur, next, c);
        roundWordSse2<7>(T, cur, next, c);
        uint8_t* done = cur;
        cur = next;
        next = done;
    }
    for (int i = 0; i < 8; ++i) h[i] ^= loadWord(cur + 8 * i) ^ m[i];
}
#endif

}  // namespace streebog
