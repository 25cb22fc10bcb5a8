// The table-driven compression: one LPS step is 64 lookups and 56 XORs.
// Round i needs only K_i for both of its steps, the next key LPS(K_i ^ C_i)
// and the message state LPS(K_i ^ t), so each round computes the two side by
// side and the CPU runs two independent chains.
#include <cstring>
#include <utility>

#include "hash/streebog_internal.h"

#if defined(__i386__)
#include <cpuid.h>
#include <emmintrin.h>
#endif

namespace streebog {
namespace {

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
// The rounds are written once, over W, which says how table words are loaded,
// combined and stored.

#if defined(__i386__)
// GCC warns that the rounds, compiled without SSE2, pass SSE2 words in an ABI
// of their own. No such call exists: they are always inlined into their g.
#pragma GCC diagnostic ignored "-Wpsabi"
#endif

inline uint64_t loadWord(const uint8_t* p) {
    uint64_t v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

inline void storeWord(uint8_t* p, uint64_t v) { std::memcpy(p, &v, sizeof v); }

// Table words in pairs of general registers.
struct GeneralWords {
    using Word = uint64_t;
    static Word entry(const uint64_t* t, size_t i) { return t[i]; }
    static Word mix(Word a, Word b) { return a ^ b; }
    static void store(uint8_t* p, Word v) { storeWord(p, v); }
};

// Word I of LPS of the state at x. Always inlined: only inside the caller's
// g may it meet W's instructions (SSE2's need the caller's target). Each
// table is an offset from T, not a pointer of its own: GCC would keep eight
// pointers live, and spill them. The entries are named so that they are
// loaded in this order, not in the order GCC evaluates call arguments.
template <class W, int I>
__attribute__((always_inline)) inline typename W::Word lpsWord(const uint64_t* T, const uint8_t* x) {
    const typename W::Word e0 = W::entry(T, x[I]), e1 = W::entry(T, 256 + x[8 + I]),
                           e2 = W::entry(T, 512 + x[16 + I]), e3 = W::entry(T, 768 + x[24 + I]),
                           e4 = W::entry(T, 1024 + x[32 + I]), e5 = W::entry(T, 1280 + x[40 + I]),
                           e6 = W::entry(T, 1536 + x[48 + I]), e7 = W::entry(T, 1792 + x[56 + I]);
    return W::mix(W::mix(W::mix(e0, e1), W::mix(e2, e3)), W::mix(W::mix(e4, e5), W::mix(e6, e7)));
}

// K_1 = LPS(h ^ n) from cur; next gets K_1 ^ m and K_1 ^ C_1.
template <class W, int I>
__attribute__((always_inline)) inline void firstWord(const uint64_t* T, const uint8_t* cur, uint8_t* next,
                                                     const uint64_t* m, const uint64_t* c) {
    const typename W::Word k = lpsWord<W, I>(T, cur);
    W::store(next + 8 * I, W::mix(k, W::entry(m, I)));
    W::store(next + 64 + 8 * I, W::mix(k, W::entry(c, I)));
}

template <class W, int I>
__attribute__((always_inline)) inline void roundWord(const uint64_t* T, const uint8_t* cur, uint8_t* next,
                                                     const uint64_t* c) {
    const typename W::Word t = lpsWord<W, I>(T, cur), k = lpsWord<W, I>(T, cur + 64);
    W::store(next + 8 * I, W::mix(k, t));
    W::store(next + 64 + 8 * I, W::mix(k, W::entry(c, I)));
}

template <class W, int... I>
__attribute__((always_inline)) inline void firstStep(const uint64_t* T, const uint8_t* cur, uint8_t* next,
                                                     const uint64_t* m, std::integer_sequence<int, I...>) {
    (firstWord<W, I>(T, cur, next, m, kRoundConstants[0]), ...);
}

template <class W, int... I>
__attribute__((always_inline)) inline void roundStep(const uint64_t* T, const uint8_t* cur, uint8_t* next,
                                                     const uint64_t* c, std::integer_sequence<int, I...>) {
    (roundWord<W, I>(T, cur, next, c), ...);
}

template <class W>
__attribute__((always_inline)) inline void gRounds(uint64_t h[8], const uint64_t n[8], const uint64_t m[8]) {
    constexpr auto kWords = std::make_integer_sequence<int, 8>();
    const uint64_t* T = lookupTable();
    alignas(8) uint8_t a[128], b[128];
    for (int i = 0; i < 8; ++i) storeWord(a + 8 * i, h[i] ^ n[i]);
    firstStep<W>(T, a, b, m, kWords);
    uint8_t* cur = b;
    uint8_t* next = a;
    for (int i = 0; i < 12; ++i) {
        // The last round's K ^ C is never read.
        roundStep<W>(T, cur, next, kRoundConstants[i < 11 ? i + 1 : i], kWords);
        uint8_t* done = cur;
        cur = next;
        next = done;
    }
    // cur holds K_13 ^ t_12.
    for (int i = 0; i < 8; ++i) h[i] ^= loadWord(cur + 8 * i) ^ m[i];
}

void gTable(uint64_t h[8], const uint64_t n[8], const uint64_t m[8]) { gRounds<GeneralWords>(h, n, m); }
#endif

#if defined(__i386__)
// On 32-bit x86 a 64-bit table word costs two loads and two XORs in scarce
// general registers; SSE2 loads and XORs it whole.
#define VELT_SSE2 __attribute__((target("sse2")))

struct Sse2Words {
    using Word = __m128i;
    VELT_SSE2 static Word entry(const uint64_t* t, size_t i) {
        return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(t + i));
    }
    VELT_SSE2 static Word mix(Word a, Word b) { return _mm_xor_si128(a, b); }
    VELT_SSE2 static void store(uint8_t* p, Word v) { _mm_storel_epi64(reinterpret_cast<__m128i*>(p), v); }
};

VELT_SSE2 void gTableSse2(uint64_t h[8], const uint64_t n[8], const uint64_t m[8]) { gRounds<Sse2Words>(h, n, m); }

int cpuHasSse2() {
    unsigned a = 0, b = 0, c = 0, d = 0;
    return __get_cpuid(1, &a, &b, &c, &d) && (d & bit_SSE2) ? 1 : 0;
}
#else
// x86-64 table words already fill 64-bit registers: nothing for SSE2 to add.
int never() { return 0; }
#endif

int always() { return 1; }

}  // namespace

const StreebogCompression kTableCompression = {"table", always, gTable, compressWith<gTable>, finishWith<gTable>,
                                               nullptr};
#if defined(__i386__)
const StreebogCompression kTableSse2Compression = {
    "table-sse2", cpuHasSse2, gTableSse2, compressWith<gTableSse2>, finishWith<gTableSse2>, nullptr};
#else
const StreebogCompression kTableSse2Compression = {"table-sse2", never, nullptr, nullptr, nullptr, nullptr};
#endif

}  // namespace streebog
