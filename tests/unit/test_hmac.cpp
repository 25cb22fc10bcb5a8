#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "hash/hmac.h"
#include "support.h"

using testsupport::fromHex;
using testsupport::toHex;
using Bytes = std::vector<unsigned char>;

namespace {

struct Freer {
    void operator()(HmacContext* c) const { hmacFree(c); }
};
using HmacPtr = std::unique_ptr<HmacContext, Freer>;

std::string mac(uint32_t alg, const Bytes& key, const std::string& message, int direct = 1) {
    HmacPtr ctx(hmacCreate(alg));
    hmacSetKey(ctx.get(), key.data(), static_cast<uint32_t>(key.size()));
    // Two updates, to cross the inner hash's buffering.
    const size_t half = message.size() / 2;
    hmacUpdate(ctx.get(), message.data(), static_cast<uint32_t>(half));
    hmacUpdate(ctx.get(), message.data() + half, static_cast<uint32_t>(message.size() - half));
    unsigned char out[64];
    return toHex(out, hmacFinal(ctx.get(), out, direct));
}

const Bytes kKey = fromHex("000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f");
const Bytes kLabel = fromHex("26bdb878");
const Bytes kSeed = fromHex("af21434145656378");

}  // namespace

// Keys shorter than, equal to and longer than each algorithm's block, against OpenSSL.
TEST(Hmac, MatchesOpenSslOverAllAlgorithms) {
    struct Alg {
        uint32_t id;
        const char* md;
        size_t block;
    };
    std::string message(1000, '\0');
    for (size_t i = 0; i < message.size(); ++i) message[i] = static_cast<char>(i * 13 + 1);
    for (const Alg& alg : {Alg{HASH_ALG_GOST94, "md_gost94", 32}, Alg{HASH_ALG_GOST12_256, "md_gost12_256", 64},
                           Alg{HASH_ALG_GOST12_512, "md_gost12_512", 64}}) {
        for (size_t keyLen : {size_t{5}, alg.block, alg.block + 1, size_t{200}}) {
            Bytes key(keyLen);
            for (size_t i = 0; i < keyLen; ++i) key[i] = static_cast<unsigned char>(0xA0 ^ i);
            for (const std::string& m : {std::string("abc"), message}) {
                SCOPED_TRACE(std::string(alg.md) + " key " + std::to_string(keyLen) + " message " +
                             std::to_string(m.size()));
                EXPECT_EQ(mac(alg.id, key, m), testsupport::opensslHmac(alg.md, toHex(key.data(), key.size()), m));
            }
        }
    }
}

TEST(Hmac, ReversedOutputAndTheDerivationsMessage) {
    const std::string message = std::string("\x01", 1) + "\x26\xbd\xb8\x78" + std::string("\0", 1) +
                                "\xaf\x21\x43\x41\x45\x65\x63\x78" + std::string("\x01\x00", 2);
    const std::string direct = mac(HASH_ALG_GOST12_256, kKey, message);
    EXPECT_EQ(direct, "A1AA5F7DE402D7B3D323F2991C8D4534013137010A83754FD0AF6D7CD4922ED9");
    const Bytes forward = fromHex(direct);
    EXPECT_EQ(mac(HASH_ALG_GOST12_256, kKey, message, 0), toHex(Bytes(forward.rbegin(), forward.rend()).data(), 32));
}

TEST(Kdf, ExamplesAndBounds) {
    uint8_t out[8192 + 32];
    EXPECT_EQ(kdf256(kKey.data(), kLabel.data(), 4, kSeed.data(), 8, out), 1);
    EXPECT_EQ(toHex(out, 32), "A1AA5F7DE402D7B3D323F2991C8D4534013137010A83754FD0AF6D7CD4922ED9");
    EXPECT_EQ(kdfTree256(kKey.data(), kLabel.data(), 4, kSeed.data(), 8, 1, 64, out), 1);
    EXPECT_EQ(toHex(out, 64),
              "22B6837845C6BEF65EA71672B265831086D3C76AEBE6DAE91CAD51D83F79D16B"
              "074C9330599D7F8D712FCA54392F4DDDE93751206B3584C8F43F9E6DC51531F9");

    struct Row {
        int r;
        uint64_t length;
        int result;
    };
    for (const Row& row : {Row{1, 8160, 1}, Row{1, 8192, -2}, Row{1, 0, -2}, Row{1, 48, -2}, Row{0, 32, -2},
                           Row{5, 32, -2}, Row{2, 8192, 1}, Row{4, 32, 1}}) {
        SCOPED_TRACE("R " + std::to_string(row.r) + " L " + std::to_string(row.length));
        EXPECT_EQ(kdfTree256(kKey.data(), kLabel.data(), 4, kSeed.data(), 8, row.r, row.length, out), row.result);
    }
    // The first block does not depend on how many follow, except through the encoded length.
    uint8_t one[32];
    kdfTree256(kKey.data(), kLabel.data(), 4, kSeed.data(), 8, 1, 32, one);
    EXPECT_NE(toHex(one, 32), toHex(out, 32));

    EXPECT_EQ(kdf256(nullptr, kLabel.data(), 4, kSeed.data(), 8, out), -1);
    EXPECT_EQ(kdf256(kKey.data(), kLabel.data(), 4, nullptr, 8, out), -1);
    EXPECT_EQ(kdfTree256(kKey.data(), nullptr, 4, kSeed.data(), 8, 1, 32, out), -1);
    EXPECT_EQ(kdfTree256(kKey.data(), kLabel.data(), 4, kSeed.data(), 8, 1, 32, nullptr), -1);
}
