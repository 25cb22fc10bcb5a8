#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "random/random.h"
#include "support.h"

namespace {

using Bytes = std::vector<unsigned char>;

bool passes(const std::string& bits) {  // bits most significant first
    EXPECT_EQ(bits.size(), 256u);
    Bytes block(32);
    for (size_t i = 0; i < bits.size() && i < 256; ++i)
        if (bits[i] == '1') block[i / 8] |= static_cast<unsigned char>(0x80 >> (i % 8));
    return fRandomBlockPasses(block.data());
}

std::string times(int n, const std::string& s) {
    std::string out;
    while (n-- > 0) out += s;
    return out;
}

// changes + 1 alternating runs, zeros first; the first zero and first one runs
// are the longest, the others spread evenly, so every count is exact.
std::string bitsWith(int ones, int changes, int longest0, int longest1) {
    const int counts[2] = {(changes + 2) / 2, (changes + 1) / 2};
    const int totals[2] = {256 - ones, ones};
    const int longest[2] = {longest0, longest1};
    std::string bits;
    for (int run = 0; run <= changes; ++run) {
        const int b = run % 2, k = run / 2, rest = counts[b] - 1, left = totals[b] - longest[b];
        const int n = k == 0 ? longest[b] : left / rest + (k - 1 < left % rest ? 1 : 0);
        EXPECT_TRUE(n >= 1 && n <= longest[b]) << "row cannot be built";
        bits += std::string(n, static_cast<char>('0' + b));
    }
    return bits;
}

TEST(RandomBlockQuality, EdgesOfEveryBound) {
    const struct {
        const char* name;
        std::string bits;
        bool passes;
    } rows[] = {
        {"typical", bitsWith(128, 120, 10, 10), true},
        {"all zero", times(256, "0"), false},           {"all one", times(256, "1"), false},
        {"alternating", times(128, "01"), false},
        {"ones 100", bitsWith(100, 120, 10, 10), false}, {"ones 101", bitsWith(101, 120, 10, 10), true},
        {"ones 155", bitsWith(155, 120, 10, 10), true},  {"ones 156", bitsWith(156, 120, 10, 10), false},
        {"T 100", bitsWith(128, 100, 10, 10), false},    {"T 101", bitsWith(128, 101, 10, 10), true},
        {"T 154", bitsWith(128, 154, 10, 10), true},     {"T 155", bitsWith(128, 155, 10, 10), false},
        {"L0 4", bitsWith(128, 120, 4, 10), false},      {"L0 5", bitsWith(128, 120, 5, 10), true},
        {"L0 24", bitsWith(128, 120, 24, 10), true},     {"L0 25", bitsWith(128, 120, 25, 10), false},
        {"L1 4", bitsWith(128, 120, 10, 4), false},      {"L1 5", bitsWith(128, 120, 10, 5), true},
        {"L1 24", bitsWith(128, 120, 10, 24), true},     {"L1 25", bitsWith(128, 120, 10, 25), false},
        // The last run never counts: neither when too long nor when the only long one.
        {"last run 30 ones", times(6, "0") + times(6, "1") + times(53, "0011") + "00" + times(30, "1"), true},
        {"only long 1-run last", times(60, "0011") + times(6, "0") + times(10, "1"), false},
        {"only long 0-run last", times(60, "1100") + times(6, "1") + times(10, "0"), false},
    };
    for (const auto& row : rows) EXPECT_EQ(passes(row.bits), row.passes) << row.name;
}

class Random : public ::testing::Test {
protected:
    Random() { reset(); }
    ~Random() override { reset(); }
    static void reset() {
        fSetRandomSourceForTests(nullptr);
        fDoneRandom();
    }
    static Bytes get(uint32_t len) {
        Bytes out(len);  // exactly len: the sanitizer build sees any overrun
        EXPECT_EQ(fGetRandom(out.data(), len), RANDOM_OK) << len;
        return out;
    }
    void useSource(const char* name) { fSetRandomSourceForTests(dir.file(name).c_str()); }
    // A source of fixed bytes makes the generator repeatable.
    void useFixedSource() {
        testsupport::writeFile(dir.file("fixed"), std::string(source.begin(), source.end()));
        useSource("fixed");
    }
    static Bytes pattern(int step) {
        Bytes b(64);
        for (size_t i = 0; i < b.size(); ++i) b[i] = static_cast<unsigned char>(i * step + 11);
        return b;
    }
    testsupport::TempDir dir;
    const Bytes source = pattern(3), seed = pattern(7);
};

TEST_F(Random, EveryWholeBlockPasses) {
    for (uint32_t len : {0u, 1u, 32u, 33u, 65u}) {
        const Bytes out = get(len);
        EXPECT_EQ(fGetRandomState(), RANDOM_SEEDED_URANDOM);
        for (uint32_t at = 0; at + 32 <= len; at += 32) EXPECT_TRUE(fRandomBlockPasses(&out[at])) << len;
    }
}

TEST_F(Random, StateAndResultsAfterEachCall) {
    enum Op { Get0, Get32, Init, InitNull, Done, BreakSource, EndSource };
    testsupport::writeFile(dir.file("short"), std::string(20, 'x'));  // ends before a seed is read
    const struct {
        const char* name;
        std::vector<std::vector<uint32_t>> steps;  // op, result (ignored for BreakSource), state
    } scenarios[] = {
        {"empty request seeds", {{Get0, 0, 1}}},
        {"card seed", {{Init, 0, 2}, {Get32, 0, 2}}},
        {"null seed allocates only", {{InitNull, 2, 0}, {Done, 0, 0}, {Done, 2, 0}}},
        {"card seed after urandom, twice", {{Get32, 0, 1}, {Init, 0, 2}, {Init, 0, 2}}},
        {"done starts over", {{Get32, 0, 1}, {Done, 0, 0}, {Done, 2, 0}, {Get32, 0, 1}}},
        {"unreadable source", {{BreakSource, 0, 0}, {Get0, 2, 0}, {Get32, 2, 0}, {Init, 2, 0}}},
        {"source that ends", {{EndSource, 0, 0}, {Get0, 2, 0}, {Init, 2, 0}, {Get32, 2, 0}}},
        {"card-seeded: not read again", {{Init, 0, 2}, {BreakSource, 0, 2}, {Get32, 0, 2}, {Init, 2, 2}}},
        {"urandom-seeded: not read again", {{Get0, 0, 1}, {BreakSource, 0, 1}, {Get32, 0, 1}, {Init, 2, 1}}},
    };
    for (const auto& scenario : scenarios) {
        reset();
        for (size_t i = 0; i < scenario.steps.size(); ++i) {
            const uint32_t op = scenario.steps[i][0], want = scenario.steps[i][1];
            Bytes out(32);
            uint32_t result = want;
            switch (op) {
                case Get0: result = fGetRandom(out.data(), 0); break;
                case Get32: result = fGetRandom(out.data(), 32); break;
                case Init: result = fInitRandom(seed.data()); break;
                case InitNull: result = fInitRandom(nullptr); break;
                case Done: result = fDoneRandom(); break;
                case BreakSource: useSource("missing"); break;
                case EndSource: useSource("short"); break;
            }
            EXPECT_EQ(result, want) << scenario.name << ", step " << i;
            EXPECT_EQ(fGetRandomState(), scenario.steps[i][2]) << scenario.name << ", step " << i;
        }
    }
}

TEST_F(Random, OutputsDifferAndReseedingMixesInTheSource) {
    EXPECT_NE(get(32), get(32));
    ASSERT_EQ(fInitRandom(seed.data()), RANDOM_OK);
    const Bytes first = get(32);
    ASSERT_EQ(fInitRandom(seed.data()), RANDOM_OK);
    EXPECT_NE(get(32), first);
}

TEST_F(Random, RequestsStartOnFreshBlocks) {
    useFixedSource();
    ASSERT_EQ(fInitRandom(seed.data()), RANDOM_OK);
    const Bytes a = get(33), b = get(32);
    ASSERT_EQ(fInitRandom(seed.data()), RANDOM_OK);
    const Bytes whole = get(96);
    EXPECT_EQ(a, Bytes(whole.begin(), whole.begin() + 33));
    EXPECT_EQ(b, Bytes(whole.begin() + 64, whole.end()));
}

TEST_F(Random, SeedingUsesTheFirst36Bytes) {
    useFixedSource();
    ASSERT_EQ(fInitRandom(seed.data()), RANDOM_OK);
    const Bytes base = get(32);
    for (size_t at : {0, 31, 32, 35, 36, 63}) {
        Bytes other = seed;
        other[at] ^= 1;
        ASSERT_EQ(fInitRandom(other.data()), RANDOM_OK) << at;
        EXPECT_EQ(get(32) != base, at < 36) << at;
    }
    reset();
    useFixedSource();
    const Bytes lazy = get(32);  // seeded from the source's own first bytes
    ASSERT_EQ(fInitRandom(source.data()), RANDOM_OK);
    EXPECT_EQ(get(32), lazy);
}

TEST_F(Random, FillFromTheSourceOrZeros) {
    useFixedSource();
    const Bytes head(source.begin(), source.begin() + 40);
    Bytes buf(40, 0xAA);
    fFillURandom(buf.data(), 40);
    fFillURandom(buf.data(), 0);
    fFillURandom(nullptr, 0);
    EXPECT_EQ(buf, head);
    useSource("missing");
    fFillURandom(buf.data(), 40);
    EXPECT_EQ(buf, Bytes(40, 0));
    EXPECT_EQ(fGetRandomState(), RANDOM_UNSEEDED);
}

}  // namespace
