#include "hash/streebog.h"

#include <cstring>
#include <initializer_list>

#include "hash/streebog_internal.h"

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "words are loaded straight from little-endian memory");

namespace {

constexpr uint32_t kBlockBytes = 64;
using Block = uint64_t[8];

// Indexed by StreebogImpl. run, if any, takes a row of whole blocks at once.
struct Implementation {
    const char* name;
    streebog::GFunction g;
    void (*compress)(HashContext*, const uint8_t*, uint32_t);
    void (*run)(HashContext*, const uint8_t*, uint32_t);
};

template <streebog::GFunction G>
void compressWith(HashContext* ctx, const uint8_t* block, uint32_t bitCount);

const Implementation kImplementations[STREEBOG_IMPL_COUNT] = {
    {"table", streebog::gTable, compressWith<streebog::gTable>, nullptr},
#if defined(__i386__)
    {"table-sse2", streebog::gTableSse2, compressWith<streebog::gTableSse2>, nullptr},
#else
    {"table-sse2", nullptr, nullptr, nullptr},  // x86-64 tables already use 64-bit registers
#endif
    {"avx512-gfni", streebog::gAvx512, streebog::compressAvx512, streebog::compressRunAvx512},
};

bool supported(int impl) {
    switch (impl) {
        case STREEBOG_IMPL_TABLE:
            return true;
#if defined(__i386__)
        case STREEBOG_IMPL_TABLE_SSE2:
            return streebog::cpuHasSse2();
#endif
        case STREEBOG_IMPL_AVX512_GFNI:
            return streebog::cpuHasAvx512Gfni();
        default:
            return false;
    }
}

int fastestSupported() {
#if defined(VELT_STREEBOG_IMPL)
    // A build made to measure one compression (see scripts/bench).
    if (supported(VELT_STREEBOG_IMPL)) return VELT_STREEBOG_IMPL;
#endif
    for (int impl : {STREEBOG_IMPL_AVX512_GFNI, STREEBOG_IMPL_TABLE_SSE2})
        if (supported(impl)) return impl;
    return STREEBOG_IMPL_TABLE;
}

// Chosen once from CPUID; tests and benchmarks may override it.
int& currentImpl() {
    static int impl = fastestSupported();
    return impl;
}

void loadBlock(Block out, const uint8_t* p) { std::memcpy(out, p, kBlockBytes); }
void storeBlock(uint8_t* p, const Block in) { std::memcpy(p, in, kBlockBytes); }

// One block: h = g_N(h, m), N += bitCount, Sigma += m.
void absorb(streebog::GFunction g, HashContext* ctx, const uint8_t* block, uint32_t bitCount) {
    Block h, n, m;
    loadBlock(h, ctx->state);
    loadBlock(n, ctx->aux1);
    loadBlock(m, block);
    g(h, n, m);
    storeBlock(ctx->state, h);
    streebog::countBlock(ctx, block, bitCount);
}

template <streebog::GFunction G>
void compressWith(HashContext* ctx, const uint8_t* block, uint32_t bitCount) {
    absorb(G, ctx, block, bitCount);
}

// The compression a context was made with.
const Implementation& implementationOf(const HashContext* ctx) {
    for (const auto& impl : kImplementations)
        if (impl.compress == ctx->compress) return impl;
    return kImplementations[STREEBOG_IMPL_TABLE];
}

streebog::GFunction gOf(const HashContext* ctx) { return implementationOf(ctx).g; }

}  // namespace

bool streebog::compressRun(HashContext* ctx, const uint8_t* blocks, uint32_t count) {
    const auto run = implementationOf(ctx).run;
    if (run == nullptr) return false;
    run(ctx, blocks, count);
    return true;
}

int streebogImplAvailable(int impl) { return supported(impl) ? 1 : 0; }

int streebogSetImpl(int impl) {
    if (!supported(impl)) return -1;
    currentImpl() = impl;
    return 0;
}

int streebogGetImpl() { return currentImpl(); }

const char* streebogImplName(int impl) {
    return impl >= 0 && impl < STREEBOG_IMPL_COUNT ? kImplementations[impl].name : "unknown";
}

HashContext* streebogAlloc(int is256) {
    // Build the tables now, not inside the first compression.
    streebog::lookupTable();
    HashContext* ctx = hashAllocContext(kBlockBytes, is256 ? 32 : 64);
    ctx->init = streebogInit;
    ctx->compress = kImplementations[currentImpl()].compress;
    ctx->finish = streebogFinish;
    return ctx;
}

int streebogInit(HashContext* ctx) {
    std::memset(ctx->state, ctx->digestLen == 32 ? 0x01 : 0x00, kBlockBytes);
    std::memset(ctx->aux1, 0, 3 * kBlockBytes);
    ctx->buffered = 0;
    return 0;
}

void streebogCompress(HashContext* ctx, const uint8_t* block, uint32_t bitCount) {
    absorb(gOf(ctx), ctx, block, bitCount);
}

void streebogFinish(HashContext* ctx) {
    const streebog::GFunction g = gOf(ctx);
    const uint32_t r = ctx->buffered;
    std::memset(ctx->block + r, 0, kBlockBytes - r);
    ctx->block[r] = 0x01;
    absorb(g, ctx, ctx->block, 8 * r);

    const Block zero = {};
    Block h, n, sigma;
    loadBlock(h, ctx->state);
    loadBlock(n, ctx->aux1);
    loadBlock(sigma, ctx->aux2);
    g(h, zero, n);
    g(h, zero, sigma);
    storeBlock(ctx->state, h);
    if (ctx->digestLen == 32) std::memmove(ctx->state, ctx->state + 32, 32);
    ctx->buffered = 0;
}

const uint64_t* streebogTable() { return streebog::lookupTable(); }
