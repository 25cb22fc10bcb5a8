#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "hash/hmac.h"
#include "support.h"

using testsupport::toHex;

// HMAC in two updates, direct and reversed; the derivations with their bounds and null pointers.
TEST(Hmac, KnownAnswersAndDerivations) {
    for (const auto& row : testsupport::rows(VELT_VECTORS_DIR "/hmac.txt")) {
        SCOPED_TRACE(row[0] + " " + row[1] + " " + row[2]);
        std::vector<std::vector<unsigned char>> f;
        for (const std::string& s : row) f.push_back(testsupport::fromHex(s));  // the hex fields as bytes
        auto arg = [&](size_t i) { return row[i] == "null" ? nullptr : f[i].data(); };
        auto len = [&](size_t i) { return static_cast<int>(f[i].size()); };
        std::vector<uint8_t> out(8192);
        if (row[0] == "hmac") {
            for (int direct : {1, 0}) {
                HmacContext* mac = hmacCreate(static_cast<uint32_t>(std::stoul(row[1])));
                hmacSetKey(mac, arg(2), len(2));
                hmacUpdate(mac, arg(3), len(3) / 2);
                hmacUpdate(mac, arg(3) + len(3) / 2, len(3) - len(3) / 2);
                const uint32_t n = hmacFinal(mac, out.data(), direct);
                hmacFree(mac);
                if (!direct) std::reverse(out.begin(), out.begin() + n);
                EXPECT_EQ(toHex(out.data(), n), row[4]);
            }
            continue;
        }
        const size_t at = row[0] == "kdf" ? 1 : 3;
        uint8_t* const dst = row.back() == "null" ? nullptr : out.data();
        const int result =
            at == 1 ? kdf256(arg(1), arg(2), len(2), arg(3), len(3), dst)
                    : kdfTree256(arg(3), arg(4), len(4), arg(5), len(5), std::stoi(row[1]), std::stoull(row[2]), dst);
        EXPECT_EQ(result, std::stoi(row[at + 3]));
        EXPECT_EQ(row.back().size() < 5 ? row.back() : toHex(out.data(), f.back().size()), row.back());
    }
}
