#include "hash/streebog.h"

#include <cstring>

#include "hash/streebog_internal.h"

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "words are loaded straight from little-endian memory");

namespace {

constexpr uint32_t kBlockBytes = 64;
using Block = uint64_t[8];

// Indexed by StreebogImpl, which numbers them slowest first.
const StreebogCompression* const kCompressions[STREEBOG_IMPL_COUNT] = {
    &streebog::kTableCompression,
    &streebog::kTableSse2Compression,
    &streebog::kAvx512Compression,
};

int fastestAvailable() {
#if defined(VELT_STREEBOG_IMPL)
    // A build made to measure one compression (see scripts/bench).
    if (streebogImplAvailable(VELT_STREEBOG_IMPL)) return VELT_STREEBOG_IMPL;
#endif
    int impl = STREEBOG_IMPL_COUNT - 1;
    while (impl > STREEBOG_IMPL_TABLE && !streebogImplAvailable(impl)) --impl;
    return impl;
}

// Chosen once from CPUID; tests and benchmarks may override it.
int& currentImpl() {
    static int impl = fastestAvailable();
    return impl;
}

void loadBlock(Block out, const uint8_t* p) { std::memcpy(out, p, kBlockBytes); }
void storeBlock(uint8_t* p, const Block in) { std::memcpy(p, in, kBlockBytes); }

}  // namespace

void streebog::absorb(StreebogG g, HashContext* ctx, const uint8_t* block, uint32_t bitCount) {
    Block h, n, m;
    loadBlock(h, ctx->state);
    loadBlock(n, ctx->aux1);
    loadBlock(m, block);
    g(h, n, m);
    storeBlock(ctx->state, h);
    countBlock(ctx, block, bitCount);
}

void streebog::finish(StreebogG g, HashContext* ctx) {
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

const StreebogCompression* streebogCompression(int impl) {
    return impl >= 0 && impl < STREEBOG_IMPL_COUNT ? kCompressions[impl] : nullptr;
}

int streebogImplAvailable(int impl) {
    const StreebogCompression* c = streebogCompression(impl);
    return c != nullptr && c->available() ? 1 : 0;
}

int streebogSetImpl(int impl) {
    if (!streebogImplAvailable(impl)) return -1;
    currentImpl() = impl;
    return 0;
}

int streebogGetImpl() { return currentImpl(); }

const char* streebogImplName(int impl) {
    const StreebogCompression* c = streebogCompression(impl);
    return c != nullptr ? c->name : "unknown";
}

HashContext* streebogAlloc(int is256) {
    const StreebogCompression& c = *kCompressions[currentImpl()];
    HashContext* ctx = hashAllocContext(kBlockBytes, is256 ? 32 : 64);
    ctx->init = streebogInit;
    ctx->compress = c.compress;
    ctx->finish = c.finish;
    ctx->compressBlocks = c.compressBlocks;
    return ctx;
}

int streebogInit(HashContext* ctx) {
    std::memset(ctx->state, ctx->digestLen == 32 ? 0x01 : 0x00, kBlockBytes);
    std::memset(ctx->aux1, 0, 3 * kBlockBytes);
    ctx->buffered = 0;
    return 0;
}

// The context's own operations: they came from its compression at allocation.
void streebogCompress(HashContext* ctx, const uint8_t* block, uint32_t bitCount) {
    ctx->compress(ctx, block, bitCount);
}

void streebogFinish(HashContext* ctx) { ctx->finish(ctx); }

const uint64_t* streebogTable() { return streebog::lookupTable(); }
