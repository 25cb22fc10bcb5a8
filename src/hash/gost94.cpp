#include "hash/gost94.h"

#include <cstring>
#include <type_traits>
#include <utility>

#include "base/gost28147_tables.h"

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

constexpr Gost28147Tables kRound = gost28147Tables(kSBox);

inline uint32_t g(uint32_t x) {
    return kRound.t[0][x & 0xFF] ^ kRound.t[1][(x >> 8) & 0xFF] ^ kRound.t[2][(x >> 16) & 0xFF] ^ kRound.t[3][x >> 24];
}

// f(0) .. f(N - 1) written out: GCC turns loops this short into vector code
// that moves the words between register files through the stack.
template <typename F, size_t... I>
inline void unrolled(F f, std::index_sequence<I...>) {
    (f(static_cast<int>(I)), ...);
}

template <int N, typename F>
inline void unrolled(F f) {
    unrolled(f, std::make_index_sequence<N>());
}

// 256-bit values outside the rounds are held in the widest native word, a Part:
// one per 64-bit part y1..y4 on x86-64, two on 32-bit x86; y1 first.
using Part = std::conditional_t<sizeof(void*) >= 8, uint64_t, uint32_t>;
constexpr int kPer = 8 / sizeof(Part);  // Parts in a 64-bit part
constexpr int kParts = 4 * kPer;
constexpr int kWordsPerPart = sizeof(Part) / 4;
using Value = Part[kParts];

inline uint32_t wordOf(const Value v, int i) {
    return static_cast<uint32_t>(v[i / kWordsPerPart] >> (32 * (i % kWordsPerPart)));
}

// The four encryptions of a step are independent: they run round by round side
// by side, four chains for the CPU to overlap instead of one long one.
constexpr int kChains = 4;
using PerChain = uint32_t[kChains];
using Keys = uint32_t[8][kChains];  // key[i][c]: word i of chain c's key

// A: (y4 y3 y2 y1) -> (y1^y2, y4, y3, y2).
inline void mixA(Value y) {
    Part top[kPer];
    for (int h = 0; h < kPer; ++h) top[h] = y[h] ^ y[kPer + h];
    for (int i = 0; i < 3 * kPer; ++i) y[i] = y[i + kPer];
    for (int h = 0; h < kPer; ++h) y[3 * kPer + h] = top[h];
}

// Exchanges the bits of a at mask << shift with those of b at mask.
inline void swapMasked(Part& a, Part& b, int shift, Part mask) {
    const Part t = ((a >> shift) ^ b) & mask;
    b ^= t;
    a ^= t << shift;
}

// P: key byte i + 4k is byte 8i + k of u ^ v (i = 0..3, k = 0..7), byte k of
// the 64-bit part y(i+1): on each 32-bit half of the four parts, a 4x4 byte
// transpose, done on all the halves a Part holds at once.
inline void keyFrom(Keys key, int chain, const Value u, const Value v) {
    constexpr Part kEven8 = static_cast<Part>(0x00FF00FF00FF00FF), kEven16 = static_cast<Part>(0x0000FFFF0000FFFF);
    for (int h = 0; h < kPer; ++h) {
        Part r[4];
        unrolled<4>([&](int i) { r[i] = u[i * kPer + h] ^ v[i * kPer + h]; });
        swapMasked(r[0], r[1], 8, kEven8);
        swapMasked(r[2], r[3], 8, kEven8);
        swapMasked(r[0], r[2], 16, kEven16);
        swapMasked(r[1], r[3], 16, kEven16);
        unrolled<4>([&](int k) {
            for (int s = 0; s < kWordsPerPart; ++s)
                key[k + 4 * (h + s)][chain] = static_cast<uint32_t>(r[k] >> (32 * s));
        });
    }
}

struct Constant {
    Value v;
};

constexpr Constant fromWords(const Words w) {
    Constant c{};
    for (int i = 0; i < kWords; ++i)
        c.v[i / kWordsPerPart] |= static_cast<Part>(Part{w[i]} << (32 * (i % kWordsPerPart)));
    return c;
}

// U, V and the four keys, written out rather than looped so that U and V stay
// in registers.
void makeKeys(Keys key, const Value h, const Value m) {
    static constexpr Words kC3Words = {0xff00ff00, 0xff00ff00, 0x00ff00ff, 0x00ff00ff,
                                       0x00ffff00, 0xff0000ff, 0x000000ff, 0xff00ffff};
    static constexpr Constant kC3 = fromWords(kC3Words);
    Value u, v;
    unrolled<kParts>([&](int i) {
        u[i] = h[i];
        v[i] = m[i];
    });
    keyFrom(key, 0, u, v);
    mixA(u);
    mixA(v);
    mixA(v);
    keyFrom(key, 1, u, v);
    mixA(u);
    unrolled<kParts>([&](int i) { u[i] ^= kC3.v[i]; });
    mixA(v);
    mixA(v);
    keyFrom(key, 2, u, v);
    mixA(u);
    mixA(v);
    mixA(v);
    keyFrom(key, 3, u, v);
}

template <size_t... C>
inline void roundAll(PerChain x, const PerChain y, const PerChain k, std::index_sequence<C...>) {
    ((x[C] ^= g(y[C] + k[C])), ...);
}

inline void roundAll(PerChain x, const PerChain y, const PerChain k) {
    roundAll(x, y, k, std::make_index_sequence<kChains>());
}

// GOST 28147-89 simple substitution of the 64-bit parts of h, chain c taking
// part c under key c.
void encrypt4(const Keys key, const Value h, Value s) {
    PerChain r, l;
    unrolled<kChains>([&](int c) {
        r[c] = wordOf(h, 2 * c);
        l[c] = wordOf(h, 2 * c + 1);
    });
    for (int pass = 0; pass < 3; ++pass)
        for (int i = 0; i < 8; i += 2) {
            roundAll(l, r, key[i]);
            roundAll(r, l, key[i + 1]);
        }
    for (int i = 7; i > 0; i -= 2) {
        roundAll(l, r, key[i]);
        roundAll(r, l, key[i - 1]);
    }
    Words out;
    unrolled<kChains>([&](int c) {
        out[2 * c] = l[c];
        out[2 * c + 1] = r[c];
    });
    unrolled<kParts>([&](int i) {
        s[i] = 0;
        for (int w = 0; w < kWordsPerPart; ++w) s[i] |= static_cast<Part>(Part{out[i * kWordsPerPart + w]} << (32 * w));
    });
}

// psi on sixteen 16-bit words, y0 least significant: shift down one word, the
// new top word being y0 ^ y1 ^ y2 ^ y3 ^ y12 ^ y15. It only moves and XORs
// whole words, so psi^n makes each output word the XOR of a fixed set of input
// words; the sets are worked out at compile time by running psi on them.
struct WordSets {
    uint16_t of[16];  // bit i of of[j]: output word j takes input word i
};

constexpr WordSets psiPower(int n) {
    WordSets s{};
    for (int j = 0; j < 16; ++j) s.of[j] = static_cast<uint16_t>(1u << j);
    for (; n > 0; --n) {
        const uint16_t top = s.of[0] ^ s.of[1] ^ s.of[2] ^ s.of[3] ^ s.of[12] ^ s.of[15];
        for (int j = 0; j < 15; ++j) s.of[j] = s.of[j + 1];
        s.of[15] = top;
    }
    return s;
}

template <int kPower>
constexpr WordSets kPsi = psiPower(kPower);

// The sets are applied a Part, kLanes words, at a time. For a distance d,
// lane j of output Part b may take input word b * kLanes + j + d: a window of
// the input shifted by d words, masked to the lanes that take it. Most
// distances serve every lane; the others are XORed in groups serving the same
// lanes, and each group is masked once.
constexpr int kLanes = sizeof(Part) / 2;

template <int kPower>
constexpr unsigned lanesAt(int b, int d) {
    unsigned lanes = 0;
    for (int j = 0; j < kLanes; ++j) {
        const int out = b * kLanes + j, in = out + d;
        if (in >= 0 && in < 16 && ((kPsi<kPower>.of[out] >> in) & 1)) lanes |= 1u << j;
    }
    return lanes;
}

constexpr Part laneBits(unsigned lanes) {
    Part p = 0;
    for (int j = 0; j < kLanes; ++j)
        if ((lanes >> j) & 1) p |= static_cast<Part>(Part{0xFFFF} << (16 * j));
    return p;
}

template <int kIndex>
inline Part partAt(const Value y) {
    if constexpr (kIndex >= 0 && kIndex < kParts) {
        return y[kIndex];
    } else {
        return 0;  // beyond the ends: only ever in lanes masked off
    }
}

// Words kStart .. kStart + kLanes - 1 of y.
template <int kStart>
inline Part window(const Value y) {
    constexpr int q = (kStart + 16 * kLanes) / kLanes - 16, o = kStart - q * kLanes;  // q rounded down
    if constexpr (o == 0) {
        return partAt<q>(y);
    } else {
        return (partAt<q>(y) >> (16 * o)) | (partAt<q + 1>(y) << (16 * (kLanes - o)));
    }
}

template <int kPower, int kPart, unsigned kSet, int kDistance>
inline Part term(const Value y) {
    if constexpr (lanesAt<kPower>(kPart, kDistance) == kSet) {
        return window<kPart * kLanes + kDistance>(y);
    } else {
        return 0;
    }
}

// The windows serving exactly the lanes kSet of output Part kPart; D - 15 is the distance.
template <int kPower, int kPart, unsigned kSet, size_t... D>
inline Part group(const Value y, std::index_sequence<D...>) {
    return (Part{0} ^ ... ^ term<kPower, kPart, kSet, static_cast<int>(D) - 15>(y));
}

// S + 1 runs over every nonempty set of lanes.
template <int kPower, int kPart, size_t... S>
inline Part outPart(const Value y, std::index_sequence<S...>) {
    return (Part{0} ^ ... ^ (group<kPower, kPart, S + 1>(y, std::make_index_sequence<31>()) & laneBits(S + 1)));
}

template <int kPower, size_t... B>
inline void psiTimes(Value out, const Value y, std::index_sequence<B...>) {
    ((out[B] = outPart<kPower, B>(y, std::make_index_sequence<(1u << kLanes) - 1>())), ...);
}

// out = psi^kPower(y); out and y must not overlap.
template <int kPower>
inline void psiTimes(Value out, const Value y) {
    psiTimes<kPower>(out, y, std::make_index_sequence<kParts>());
}

// The step function f(H, M): H = psi^61(H ^ psi(M ^ psi^12(S))).
void step(Value h, const Value m) {
    Keys key;
    makeKeys(key, h, m);
    Value s, a, b;
    encrypt4(key, h, s);
    psiTimes<12>(a, s);
    unrolled<kParts>([&](int i) { a[i] ^= m[i]; });
    psiTimes<1>(b, a);
    unrolled<kParts>([&](int i) { b[i] ^= h[i]; });
    psiTimes<61>(h, b);
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

// H, the bit count and Sigma, kept in the work area between calls.
struct State {
    Value h;
    Words length, sigma;
};

void load(State& s, const HashContext* ctx) {
    std::memcpy(s.h, ctx->state, kBlockBytes);
    std::memcpy(s.length, ctx->aux1, kBlockBytes);
    std::memcpy(s.sigma, ctx->aux2, kBlockBytes);
}

void store(HashContext* ctx, const State& s) {
    std::memcpy(ctx->state, s.h, kBlockBytes);
    std::memcpy(ctx->aux1, s.length, kBlockBytes);
    std::memcpy(ctx->aux2, s.sigma, kBlockBytes);
}

// Sigma += block, H = f(H, block); the caller counts the bits.
void absorb(State& s, const uint8_t* block) {
    Value m;
    Words mw;
    std::memcpy(m, block, kBlockBytes);
    std::memcpy(mw, block, kBlockBytes);
    add256(s.sigma, mw);
    step(s.h, m);
}

void absorbCounted(HashContext* ctx, const uint8_t* block, uint32_t bitCount) {
    State s;
    load(s, ctx);
    const Words count = {bitCount};
    add256(s.length, count);
    absorb(s, block);
    store(ctx, s);
}

// A run of whole blocks, the state in locals from the first to the last.
void gost94CompressBlocks(HashContext* ctx, const uint8_t* blocks, uint32_t count) {
    State s;
    load(s, ctx);
    const Words bits = {count << 8, count >> 24};
    add256(s.length, bits);
    for (uint32_t i = 0; i < count; ++i) absorb(s, blocks + i * kBlockBytes);
    store(ctx, s);
}

}  // namespace

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "words are copied straight from little-endian memory");

HashContext* gost94Alloc() {
    HashContext* ctx = hashAllocContext(kBlockBytes, 32);
    ctx->init = gost94Init;
    ctx->compress = gost94Compress;
    ctx->compressBlocks = gost94CompressBlocks;
    ctx->finish = gost94Finish;
    return ctx;
}

int gost94Init(HashContext* ctx) {
    std::memset(ctx->state, 0, 4 * kBlockBytes);
    ctx->buffered = 0;
    return 0;
}

void gost94Compress(HashContext* ctx, const uint8_t* block, uint32_t bitCount) { absorbCounted(ctx, block, bitCount); }

void gost94Finish(HashContext* ctx) {
    const uint32_t n = ctx->buffered;
    if (n > 0) {
        std::memset(ctx->block + n, 0, kBlockBytes - n);
        absorbCounted(ctx, ctx->block, 8 * n);
    }
    State s;
    load(s, ctx);
    Value length, sigma;
    std::memcpy(length, s.length, kBlockBytes);
    std::memcpy(sigma, s.sigma, kBlockBytes);
    step(s.h, length);
    step(s.h, sigma);
    std::memcpy(ctx->state, s.h, kBlockBytes);
    ctx->buffered = 0;
}
