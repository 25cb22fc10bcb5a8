#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "random/random.h"
#include "support.h"

using Bytes = std::vector<unsigned char>;

TEST(RandomBlock, QualityAtTheEdgeOfEveryBound) {
    for (const auto& r : testsupport::rows(VELT_VECTORS_DIR "/random_blocks.txt"))
        EXPECT_EQ(fRandomBlockPasses(testsupport::fromHex(r[1]).data()), r[0] == "1") << r[2];
}

namespace {

// A fresh generator for each test, and the sources it may read instead of /dev/urandom.
class Random : public ::testing::Test {
protected:
    Random() {
        reset();
        for (size_t i = 0; i < 64; ++i) source[i] = static_cast<unsigned char>(i * 3 + 11);
        for (size_t i = 0; i < 64; ++i) seed[i] = static_cast<unsigned char>(i * 7 + 11);
        testsupport::writeFile(dir.file("fixed"), std::string(source.begin(), source.end()));
        testsupport::writeFile(dir.file("short"), std::string(20, 'x'));  // ends before a seed is read
    }
    ~Random() override { reset(); }
    static void reset() {
        fSetRandomSourceForTests(nullptr);
        fDoneRandom();
    }
    void use(const char* name) { fSetRandomSourceForTests(dir.file(name).c_str()); }
    static Bytes get(uint32_t len) {
        Bytes out(len);  // exactly len: the sanitizer build sees any overrun
        EXPECT_EQ(fGetRandom(out.data(), len), 0u) << len;
        return out;
    }
    testsupport::TempDir dir;
    Bytes source = Bytes(64), seed = Bytes(64);
};

}  // namespace

TEST_F(Random, StateAndResultAfterEachCall) {
    for (const auto& r : testsupport::rows(VELT_VECTORS_DIR "/random_states.txt")) {
        reset();
        for (size_t i = 1; i < r.size(); ++i) {
            const std::string op = r[i].substr(0, r[i].find('='));
            unsigned want = 9, state = 9, result = 0;
            std::sscanf(r[i].c_str() + op.size(), "=%u,%u", &want, &state);
            Bytes out(32);
            if (op[0] == 'g') result = fGetRandom(out.data(), op == "g0" ? 0 : 32);
            if (op[0] == 'i') result = fInitRandom(op == "i" ? seed.data() : nullptr);
            if (op == "d") result = fDoneRandom();
            if (op == "b" || op == "e") use(op == "b" ? "missing" : "short");
            EXPECT_TRUE(result == want && fGetRandomState() == state) << r[0] << ", " << r[i] << ": " << result;
        }
    }
}

// Whole blocks given out pass the quality test; outputs differ, also after the same card seed; the bytes of
// /dev/urandom itself, or zeros.
TEST_F(Random, OutputsPassDifferAndMixInTheSource) {
    for (uint32_t len : {1u, 32u, 33u, 65u}) {
        const Bytes out = get(len);
        for (uint32_t at = 0; at + 32 <= len; at += 32) EXPECT_TRUE(fRandomBlockPasses(&out[at])) << len;
    }
    EXPECT_NE(get(32), get(32));
    ASSERT_EQ(fInitRandom(seed.data()), 0u);
    const Bytes first = get(32);
    ASSERT_EQ(fInitRandom(seed.data()), 0u);
    EXPECT_NE(get(32), first);
    use("fixed");
    Bytes buf(40, 0xAA);
    fFillURandom(buf.data(), 40);
    fFillURandom(buf.data(), 0);
    fFillURandom(nullptr, 40);
    EXPECT_EQ(buf, Bytes(source.begin(), source.begin() + 40));
    use("missing");
    fFillURandom(buf.data(), 40);
    EXPECT_EQ(buf, Bytes(40, 0));
    EXPECT_EQ(fGetRandomState(), 2u);  // left alone
}

// A source of fixed bytes makes the generator repeat: each request starts on a fresh block, only a seed's first
// 36 bytes count, and the lazy seed is the source's own first bytes.
TEST_F(Random, FixedSourceRepeats) {
    use("fixed");
    ASSERT_EQ(fInitRandom(seed.data()), 0u);
    const Bytes a = get(33), b = get(32);
    ASSERT_EQ(fInitRandom(seed.data()), 0u);
    const Bytes whole = get(96);
    EXPECT_EQ(a, Bytes(whole.begin(), whole.begin() + 33));
    EXPECT_EQ(b, Bytes(whole.begin() + 64, whole.end()));
    for (size_t at : {0, 31, 32, 35, 36, 63}) {
        Bytes other = seed;
        other[at] ^= 1;
        ASSERT_EQ(fInitRandom(other.data()), 0u);
        EXPECT_EQ(get(32) != Bytes(whole.begin(), whole.begin() + 32), at < 36) << at;
    }
    reset();
    use("fixed");
    const Bytes lazy = get(32);
    ASSERT_EQ(fInitRandom(source.data()), 0u);
    EXPECT_EQ(get(32), lazy);
}
