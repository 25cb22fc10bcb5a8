// The hash object over both families, with every GOST R 34.11-2012 compression this CPU has.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "hash/gost94.h"
#include "hash/hash.h"
#include "hash/streebog.h"
#include "support.h"

using testsupport::toHex;
using Bytes = std::vector<unsigned char>;

namespace {

// The message m split at every offset: the object goes on, and so does a clone taken there once the original is
// freed; the clone's digest reversed, then the clone reset and fed the whole message from an odd address.
void checkStream(uint32_t alg, const Bytes& m, const std::string& digest) {
    Bytes odd(m.size() + 1);
    std::copy(m.begin(), m.end(), odd.begin() + 1);
    unsigned char out[64];
    for (uint32_t k = 0; k <= m.size(); ++k) {
        SCOPED_TRACE(std::to_string(alg) + ", " + std::to_string(m.size()) + " bytes split at " + std::to_string(k));
        HashPtr a(hashCreate(alg));
        hashInit(a.get());
        EXPECT_EQ(hashUpdate(a.get(), m.data(), k), k % a->blockLen);
        HashPtr b(hashClone(a.get()));
        EXPECT_EQ(hashGetAlgId(b.get()), static_cast<int>(alg));
        hashUpdate(a.get(), m.data() + k, static_cast<uint32_t>(m.size() - k));
        EXPECT_EQ(toHex(out, hashFinal(a.get(), out, 1)), digest);
        a.reset();
        hashUpdate(b.get(), m.data() + k, static_cast<uint32_t>(m.size() - k));
        const uint32_t n = hashFinal(b.get(), out, 0);
        std::reverse(out, out + n);
        EXPECT_EQ(toHex(out, n), digest);
        hashInit(b.get());
        hashUpdate(b.get(), odd.data() + 1, static_cast<uint32_t>(m.size()));
        EXPECT_EQ(toHex(out, hashFinal(b.get(), out, 1)), digest);
    }
}

template <class Body>
void forEachCompression(Body body) {
    const int saved = streebogGetImpl();
    for (int impl = 0; impl < STREEBOG_IMPL_COUNT; ++impl) {
        if (!streebogImplAvailable(impl)) continue;
        SCOPED_TRACE(streebogCompression(impl)->name);
        ASSERT_EQ(streebogSetImpl(impl), 0);
        body();
    }
    streebogSetImpl(saved);
}

}  // namespace

TEST(Hash, KnownAnswers) {
    auto vectors = testsupport::rows(VELT_VECTORS_DIR "/streebog.txt");
    for (const auto& row : testsupport::rows(VELT_VECTORS_DIR "/gost94.txt")) vectors.push_back(row);
    ASSERT_EQ(vectors.size(), 14u);
    forEachCompression([&] {
        for (const auto& v : vectors)
            checkStream(v.size() == 2 ? HASH_ALG_GOST94 : v[0] == "256" ? HASH_ALG_GOST12_256 : HASH_ALG_GOST12_512,
                        testsupport::fromHex(v[v.size() - 2]), v.back());
    });
}

// Lengths around both block sizes (32 and 64), and runs of blocks through the fast paths.
TEST(Hash, LengthsAroundTheBlocksMatchRhash) {
    for (uint32_t alg : {HASH_ALG_GOST94, HASH_ALG_GOST12_256, HASH_ALG_GOST12_512}) {
        for (size_t len : {0, 1, 31, 32, 33, 63, 64, 65, 127, 128, 129, 192, 255, 320, 521}) {
            Bytes m(len);
            for (size_t i = 0; i < len; ++i) m[i] = static_cast<unsigned char>(i * 131 + 7);
            const std::string want = testsupport::rhashBytes(
                alg == HASH_ALG_GOST94 ? "gost94-cryptopro" : alg == HASH_ALG_GOST12_256 ? "gost12-256" : "gost12-512",
                std::string(m.begin(), m.end()));
            forEachCompression([&] { checkStream(alg, m, want); });
        }
    }
}

// The length counters carry across their words only past 2^64 bits (2^32 for GOST R 34.11-94), the checksum of
// GOST R 34.11-2012 past 2^512: set near the carry, one block absorbed.
TEST(Hash, CountersCarryAcrossWords) {
    HashPtr s(hashCreate(HASH_ALG_GOST12_256)), g(hashCreate(HASH_ALG_GOST94));
    hashInit(s.get());
    hashInit(g.get());
    const uint64_t n[8] = {~uint64_t{0} - 511, ~uint64_t{0}, 7}, nAfter[8] = {0, 0, 8}, sigmaAfter[8] = {};
    const uint32_t l[8] = {0xFFFFFF80u, ~0u, 5}, lAfter[8] = {0x80, 0, 6};
    std::memcpy(s->aux1, n, sizeof n);
    std::memset(s->aux2, 0xFF, 64);
    std::memcpy(g->aux1, l, sizeof l);
    const uint8_t one[64] = {1};
    streebogCompress(s.get(), one, 512);
    gost94Compress(g.get(), one, 256);
    EXPECT_TRUE(!std::memcmp(s->aux1, nAfter, 64) && !std::memcmp(s->aux2, sigmaAfter, 64));
    EXPECT_EQ(std::memcmp(g->aux1, lAfter, 32), 0);
}

TEST(Hash, CompressionsOnOfferAndNullObjects) {
    EXPECT_TRUE(streebogImplAvailable(STREEBOG_IMPL_TABLE));
    EXPECT_TRUE(streebogSetImpl(STREEBOG_IMPL_COUNT) == -1 && streebogSetImpl(-1) == -1);
    // The numbers scripts/bench and VELT_STREEBOG_IMPL use, slowest first; the fastest this CPU has is the default.
    EXPECT_EQ(std::string(streebogImplName(0)) + " " + streebogImplName(1) + " " + streebogImplName(2) + " " +
                  streebogImplName(3), "table table-sse2 avx512-gfni unknown");
    EXPECT_EQ(streebogGetImpl(), streebogImplAvailable(2) ? 2 : streebogImplAvailable(1) ? 1 : 0);
    // Every x86 CPU this program meets has SSE2, which beats plain tables on 32-bit x86; x86-64 has no such one.
    EXPECT_EQ(streebogImplAvailable(1) != 0, sizeof(void*) == 4);
    const bool avx512 = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                        __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("gfni");
    EXPECT_EQ(streebogImplAvailable(2) != 0, avx512);  // as the compiler's run time reads the CPU
    EXPECT_EQ(hashGetAlgId(nullptr), -1);
}

TEST(HashDeathTest, UnknownAlgorithmAborts) { EXPECT_DEATH(hashCreate(99), ""); }
