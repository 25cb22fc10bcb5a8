// The GOST R 34.11-2012 compressions one call at a time and through the hash
// object, and GOST R 34.11-94 through the hash object, on 64 KiB buffers as
// veltcheck feeds files. Besides bytes per second it reports TSC ticks per
// byte: the time-stamp counter runs at a fixed rate, not at the core's clock.
// Both come from wall time, so the two figures describe the same interval.
#include <benchmark/benchmark.h>
#include <x86intrin.h>

#include <cstdint>
#include <string>
#include <vector>

#include "cli/hash_list.h"
#include "hash/hash.h"
#include "hash/streebog.h"

namespace {

void report(benchmark::State& state, uint64_t tscTicks, uint64_t bytesPerIteration) {
    const double bytes = static_cast<double>(state.iterations()) * static_cast<double>(bytesPerIteration);
    state.SetBytesProcessed(static_cast<int64_t>(bytes));
    state.counters["tsc_cycles_per_byte"] = static_cast<double>(tscTicks) / bytes;
}

// Each call takes the last one's h, as in hashing a file: latency, not throughput.
void compressOnly(benchmark::State& state, StreebogG g) {
    uint64_t h[8] = {}, n[8] = {}, m[8];
    for (uint64_t i = 0; i < 8; ++i) m[i] = 0x0123456789abcdefULL * (i + 1);
    const uint64_t start = __rdtsc();
    for (auto _ : state) {
        g(h, n, m);
        benchmark::DoNotOptimize(h);
    }
    report(state, __rdtsc() - start, 64);
}

// impl < 0: the algorithm has only one compression.
void hashChunks(benchmark::State& state, uint32_t algId, int impl) {
    if (impl >= 0) streebogSetImpl(impl);  // applies to contexts made after
    std::vector<uint8_t> chunk(kHashChunkBytes);
    for (size_t i = 0; i < chunk.size(); ++i) chunk[i] = static_cast<uint8_t>(i * 131 + 7);
    HashContext* ctx = hashCreate(algId);
    hashInit(ctx);
    const uint64_t start = __rdtsc();
    for (auto _ : state) hashUpdate(ctx, chunk.data(), kHashChunkBytes);
    const uint64_t ticks = __rdtsc() - start;
    hashFree(ctx);
    report(state, ticks, kHashChunkBytes);
}

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    for (int impl = 0; impl < STREEBOG_IMPL_COUNT; ++impl) {
        const StreebogCompression& c = *streebogCompression(impl);
        if (!c.available()) continue;
        const std::string name = c.name;
        benchmark::RegisterBenchmark(("streebog_g/" + name).c_str(), compressOnly, c.g)->UseRealTime();
        benchmark::RegisterBenchmark(("streebog256_64KiB/" + name).c_str(), hashChunks, HASH_ALG_GOST12_256, impl)
            ->UseRealTime();
    }
    benchmark::RegisterBenchmark("gost94_64KiB", hashChunks, HASH_ALG_GOST94, -1)->UseRealTime();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
