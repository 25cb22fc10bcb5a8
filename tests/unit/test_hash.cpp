// The hash object over both families, with every GOST R 34.11-2012 compression this CPU has.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "hash/hash.h"
#include "hash/streebog.h"
#include "support.h"

using testsupport::fromHex;
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

}  // namespace

// Every known answer, messages around both block sizes and runs of blocks among them, and the counters near their
// carries (set, one block absorbed), under every compression.
TEST(Hash, KnownAnswersAndCarriesUnderEveryCompression) {
    auto vectors = testsupport::rows(VELT_VECTORS_DIR "/streebog.txt");
    for (const auto& row : testsupport::rows(VELT_VECTORS_DIR "/gost94.txt")) vectors.push_back(row);
    ASSERT_EQ(vectors.size(), 57u);
    const int saved = streebogGetImpl();
    for (int impl = 0; impl < STREEBOG_IMPL_COUNT; ++impl) {
        if (!streebogImplAvailable(impl)) continue;
        SCOPED_TRACE(streebogCompression(impl)->name);
        ASSERT_EQ(streebogSetImpl(impl), 0);
        for (const auto& v : vectors) checkStream(static_cast<uint32_t>(std::stoul(v[0])), fromHex(v[1]), v[2]);
        for (const auto& r : testsupport::rows(VELT_VECTORS_DIR "/hash_counters.txt")) {
            HashPtr h(hashCreate(static_cast<uint32_t>(std::stoul(r[0]))));
            const Bytes block = fromHex(r[1]), counter = fromHex(r[2]), sum = fromHex(r[3]);
            std::copy(counter.begin(), counter.end(), h->aux1);
            std::copy(sum.begin(), sum.end(), h->aux2);
            h->compress(h.get(), block.data(), static_cast<uint32_t>(8 * block.size()));
            EXPECT_EQ(toHex(h->aux1, counter.size()) + " " + toHex(h->aux2, sum.size()), r[4] + " " + r[5]) << r[0];
        }
    }
    streebogSetImpl(saved);
}

TEST(Hash, CompressionsOnOfferAndNullObjects) {
    EXPECT_TRUE(streebogImplAvailable(STREEBOG_IMPL_TABLE));
    EXPECT_TRUE(streebogSetImpl(STREEBOG_IMPL_COUNT) == -1 && streebogSetImpl(-1) == -1);
    // The numbers scripts/bench and VELT_STREEBOG_IMPL use, slowest first; the fastest this CPU has is the default.
    std::string names;
    for (int impl = -1; impl <= STREEBOG_IMPL_COUNT; ++impl) names += streebogImplName(impl) + std::string(" ");
    EXPECT_EQ(names, "unknown table table-sse2 avx512-gfni unknown ");
    EXPECT_EQ(streebogGetImpl(), streebogImplAvailable(2) ? 2 : streebogImplAvailable(1) ? 1 : 0);
    // Every x86 CPU this program meets has SSE2, which beats plain tables on 32-bit x86; x86-64 has no such one.
    EXPECT_EQ(streebogImplAvailable(1) != 0, sizeof(void*) == 4);
    const bool avx512 = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                        __builtin_cpu_supports("avx512vbmi") && __builtin_cpu_supports("gfni");
    EXPECT_EQ(streebogImplAvailable(2) != 0, avx512);  // as the compiler's run time reads the CPU
    EXPECT_EQ(hashGetAlgId(nullptr), -1);
}

TEST(HashDeathTest, UnknownAlgorithmAborts) { EXPECT_DEATH(hashCreate(99), ""); }
