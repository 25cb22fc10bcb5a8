#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "random/random.h"
#include "support.h"

using Bytes = std::vector<unsigned char>;

TEST(RandomBlock, QualityAtTheEdgeOfEveryBound) {
    for (const auto& r : testsupport::rows(VELT_VECTORS_DIR "/random_blocks.txt"))
        EXPECT_EQ(fRandomBlockPasses(testsupport::fromHex(r[1]).data()), r[0] == "1") << r[2];
}

// Each row from a fresh generator, which it leaves fresh; the sources it may read instead of /dev/urandom: any file of
// fixed bytes (one of the data files), a missing one, and one that ends before a seed is read.
TEST(Random, ResultStateAndOutputAfterEachCall) {
    const std::string fixed = VELT_VECTORS_DIR "/random_blocks.txt", source = testsupport::readFile(fixed);
    const auto* first = reinterpret_cast<const uint8_t*>(source.data());  // the seed of "is"
    testsupport::TempDir dir;
    testsupport::writeFile(dir.file("e"), std::string(20, 'x'));  // "b" stays missing
    for (const auto& r : testsupport::rows(VELT_VECTORS_DIR "/random_states.txt")) {
        std::map<char, Bytes> named;
        Bytes filled(40, 0xAA);
        for (size_t i = 1; i < r.size(); ++i) {
            SCOPED_TRACE(r[0] + ", " + r[i]);
            const std::string op = r[i].substr(0, r[i].find('='));
            unsigned want = 9, state = 9, result = 0;
            char names[80] = "";
            std::sscanf(r[i].c_str() + op.size(), "=%u,%u:%79s", &want, &state, names);
            const bool known = std::strlen(names) > 8;  // the output itself, not names
            Bytes seed(64, 0x5C), out(op[0] == 'g' ? std::stoul(op.substr(1)) : 0);  // out exactly as long as asked
            if (op[0] == 'i' && op.size() > 2) seed[std::stoul(op.substr(2))] ^= 1;
            if (op[0] == 'g') result = fGetRandom(out.data(), static_cast<uint32_t>(out.size()));
            if (op[0] == 'i') result = fInitRandom(op == "i0" ? nullptr : op == "is" ? first : seed.data());
            if (op == "d") result = fDoneRandom();
            if (op == "b" || op == "e" || op == "f")
                fSetRandomSourceForTests((op == "f" ? fixed : dir.file(op)).c_str());
            if (op[0] == 'w')
                fFillURandom(op == "w-" ? nullptr : filled.data(), op == "w-" ? 40 : std::stoul(op.substr(1)));
            EXPECT_TRUE(result == want && fGetRandomState() == state) << result;
            EXPECT_TRUE(op[0] != 'w' || filled == (names[0] == '0' ? Bytes(40, 0) : Bytes(first, first + 40)));
            EXPECT_TRUE(!known || testsupport::toHex(out) == names);
            for (size_t b = 0; !known && result == 0 && b * 32 < out.size(); ++b) {
                const Bytes block(out.begin() + 32 * b, out.begin() + std::min(out.size(), 32 * b + 32));
                EXPECT_TRUE(block.size() < 32 || fRandomBlockPasses(block.data())) << b;
                if (b >= std::strlen(names)) continue;
                Bytes& seen = named[names[b]];
                const size_t common = std::min(seen.size(), block.size());
                EXPECT_TRUE(std::equal(block.begin(), block.begin() + common, seen.begin())) << names[b];
                for (const auto& [name, other] : named)
                    EXPECT_TRUE(name == names[b] || block.size() < 32 || block != other) << names[b] << name;
                if (block.size() > seen.size()) seen = block;
            }
        }
        fSetRandomSourceForTests(nullptr);
        fDoneRandom();
    }
}
