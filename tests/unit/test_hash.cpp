#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "hash/gost94.h"
#include "hash/hash.h"
#include "hash/streebog.h"
#include "support.h"

using testsupport::fromHex;
using testsupport::toHex;

namespace {

uint32_t algFor(int bits) { return bits == 256 ? HASH_ALG_GOST12_256 : HASH_ALG_GOST12_512; }

// rhash's name for each algorithm, direct byte order.
const char *rhashName(uint32_t alg) {
    return alg == HASH_ALG_GOST94 ? "gost94-cryptopro" : alg == HASH_ALG_GOST12_256 ? "gost12-256" : "gost12-512";
}

// Feeds data in the given piece sizes (cycled) and returns the direct digest.
std::string digestInPieces(uint32_t alg, const unsigned char *data, size_t len, const std::vector<size_t> &pieces) {
    HashPtr ctx(hashCreate(alg));
    hashInit(ctx.get());
    size_t done = 0;
    for (size_t i = 0; done < len; ++i) {
        const size_t n = std::min(pieces[i % pieces.size()], len - done);
        hashUpdate(ctx.get(), data + done, static_cast<uint32_t>(n));
        done += n;
    }
    unsigned char out[64];
    const uint32_t n = hashFinal(ctx.get(), out, 1);
    return toHex(out, n);
}

std::string digestWhole(uint32_t alg, const std::vector<unsigned char> &m) {
    return digestInPieces(alg, m.data(), m.size(), {m.size() + 1});
}

struct Vector {
    int bits;
    std::vector<unsigned char> message;
    std::string digest;
};

std::vector<Vector> loadVectors() {
    std::ifstream in(VELT_VECTORS_DIR "/streebog.txt");
    std::vector<Vector> out;
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream fields(line);
        Vector v;
        std::string message;
        fields >> v.bits >> message >> v.digest;
        if (message != "-") v.message = fromHex(message);
        out.push_back(v);
    }
    return out;
}

// Runs body once with every compression this build and CPU can run.
template <class Body>
void forEachImpl(Body body) {
    const int saved = streebogGetImpl();
    int ran = 0;
    for (int impl = 0; impl < STREEBOG_IMPL_COUNT; ++impl) {
        const StreebogCompression &c = *streebogCompression(impl);
        if (!c.available()) continue;
        SCOPED_TRACE(c.name);
        ASSERT_EQ(streebogSetImpl(impl), 0);
        body();
        ++ran;
    }
    streebogSetImpl(saved);
    EXPECT_GE(ran, 1);
}

}  // namespace

TEST(Streebog, ImplementationsOnOffer) {
    EXPECT_TRUE(streebogImplAvailable(STREEBOG_IMPL_TABLE));
    EXPECT_EQ(streebogSetImpl(STREEBOG_IMPL_COUNT), -1);
    EXPECT_EQ(streebogSetImpl(-1), -1);
#if defined(__i386__)
    // Every x86 CPU this program meets has SSE2; it must be chosen over plain
    // tables.
    EXPECT_NE(streebogGetImpl(), STREEBOG_IMPL_TABLE);
#else
    EXPECT_FALSE(streebogImplAvailable(STREEBOG_IMPL_TABLE_SSE2));
#endif
}

TEST(Streebog, TableMatchesPublishedEntries) {
    EXPECT_EQ(streebogTable()[0], 0xD01F715B5C7EF8E6ULL);
    EXPECT_EQ(streebogTable()[1], 0x16FA240980778325ULL);
}

TEST(Streebog, KnownAnswersWholeSplitAndAfterReset) {
    forEachImpl([] {
        const auto vectors = loadVectors();
        ASSERT_GE(vectors.size(), 8u);
        for (const auto &v : vectors) {
            SCOPED_TRACE(std::to_string(v.bits) + " " + v.digest);
            const uint32_t alg = algFor(v.bits);
            EXPECT_EQ(digestWhole(alg, v.message), v.digest);
            EXPECT_EQ(digestInPieces(alg, v.message.data(), v.message.size(), {1}), v.digest);
            EXPECT_EQ(digestInPieces(alg, v.message.data(), v.message.size(), {5, 61, 3}), v.digest);

            // A finished context starts over cleanly after hashInit.
            HashPtr ctx(hashCreate(alg));
            hashInit(ctx.get());
            hashUpdate(ctx.get(), "junk", 4);
            unsigned char out[64];
            hashFinal(ctx.get(), out, 1);
            hashInit(ctx.get());
            hashUpdate(ctx.get(), v.message.data(), static_cast<uint32_t>(v.message.size()));
            EXPECT_EQ(toHex(out, hashFinal(ctx.get(), out, 1)), v.digest);
        }
    });
}

// Lengths around both block sizes (32 and 64), fed whole from an aligned and
// an odd address (runs of one to five whole blocks in place, or each block
// through the buffer), byte by byte and in odd pieces, against rhash.
TEST(HashObject, LengthsAroundBlockSizesMatchRhash) {
    forEachImpl([] {
        for (size_t len : {0, 1, 31, 32, 33, 63, 64, 65, 127, 128, 129, 192, 255, 320, 1000}) {
            std::vector<unsigned char> storage(len + 8);
            unsigned char *unaligned = storage.data() + 3;
            for (size_t i = 0; i < len; ++i) unaligned[i] = static_cast<unsigned char>(i * 131 + 7);
            const std::string bytes(reinterpret_cast<char *>(unaligned), len);
            std::vector<unsigned char> aligned(unaligned, unaligned + len);
            for (uint32_t alg : {HASH_ALG_GOST94, HASH_ALG_GOST12_256, HASH_ALG_GOST12_512}) {
                SCOPED_TRACE(std::to_string(len) + " bytes, " + rhashName(alg));
                const std::string expected = testsupport::rhashBytes(rhashName(alg), bytes);
                EXPECT_EQ(digestInPieces(alg, aligned.data(), len, {len + 1}), expected);
                EXPECT_EQ(digestInPieces(alg, unaligned, len, {len + 1}), expected);
                EXPECT_EQ(digestInPieces(alg, aligned.data(), len, {128, 64, 192}), expected);
                EXPECT_EQ(digestInPieces(alg, unaligned, len, {1}), expected);
                EXPECT_EQ(digestInPieces(alg, unaligned, len, {7, 64, 13}), expected);
            }
        }
    });
}

TEST(HashObject, RandomCuttingsEqualOneShot) {
    forEachImpl([] {
        std::mt19937 rng(20261121);
        std::vector<unsigned char> message(3000);
        for (auto &b : message) b = static_cast<unsigned char>(rng());
        for (uint32_t alg : {HASH_ALG_GOST94, HASH_ALG_GOST12_256, HASH_ALG_GOST12_512}) {
            const std::string whole = digestWhole(alg, message);
            for (int round = 0; round < 50; ++round) {
                std::vector<size_t> pieces;
                for (int i = 0; i < 16; ++i) pieces.push_back(rng() % 200);
                pieces.push_back(1);  // make progress even if every other piece is 0
                const size_t offset = rng() % 8;
                std::vector<unsigned char> shifted(offset + message.size());
                std::memcpy(shifted.data() + offset, message.data(), message.size());
                EXPECT_EQ(digestInPieces(alg, shifted.data() + offset, message.size(), pieces), whole);
            }
        }
    });
}

TEST(HashObject, LengthsIdsReversedOutputAndBuffering) {
    const std::vector<unsigned char> m(128, 0x5A);  // exactly two blocks
    for (uint32_t alg : {HASH_ALG_GOST94, HASH_ALG_GOST12_256, HASH_ALG_GOST12_512}) {
        HashPtr a(hashCreate(alg)), b(hashCreate(alg));
        EXPECT_EQ(hashGetAlgId(a.get()), static_cast<int>(alg));
        hashInit(a.get());
        hashInit(b.get());
        EXPECT_EQ(hashUpdate(a.get(), m.data(), 100), 100 % a->blockLen);
        EXPECT_EQ(hashUpdate(a.get(), m.data(), 28), 0u);
        hashUpdate(b.get(), m.data(), 128);
        unsigned char direct[64], reversed[64];
        const uint32_t n = hashFinal(a.get(), direct, 1);
        EXPECT_EQ(n, alg == HASH_ALG_GOST12_512 ? 64u : 32u);
        EXPECT_EQ(hashFinal(b.get(), reversed, 0), n);
        for (uint32_t i = 0; i < n; ++i) EXPECT_EQ(reversed[i], direct[n - 1 - i]);
    }
    EXPECT_EQ(hashGetAlgId(nullptr), -1);
}

TEST(HashObject, CloneContinuesIndependently) {
    const std::string head = "odd start", tail = " and the rest of the message, long enough to cross a block";
    HashPtr original(hashCreate(HASH_ALG_GOST12_512));
    hashInit(original.get());
    hashUpdate(original.get(), head.data(), static_cast<uint32_t>(head.size()));
    HashPtr copy(hashClone(original.get()));
    EXPECT_EQ(hashGetAlgId(copy.get()), HASH_ALG_GOST12_512);
    hashUpdate(original.get(), tail.data(), static_cast<uint32_t>(tail.size()));
    hashUpdate(copy.get(), tail.data(), static_cast<uint32_t>(tail.size()));
    unsigned char a[64], b[64];
    hashFinal(original.get(), a, 1);
    hashFinal(copy.get(), b, 1);
    EXPECT_EQ(toHex(a, 64), toHex(b, 64));
    const std::string all = head + tail;
    EXPECT_EQ(toHex(a, 64), digestWhole(HASH_ALG_GOST12_512, std::vector<unsigned char>(all.begin(), all.end())));
}

TEST(HashObject, ShortDigestIsNotHalfOfLongOne) {
    const std::vector<unsigned char> m = {'a', 'b', 'c'};
    const std::string d256 = digestWhole(HASH_ALG_GOST12_256, m), d512 = digestWhole(HASH_ALG_GOST12_512, m);
    EXPECT_NE(d512.substr(0, 64), d256);
    EXPECT_NE(d512.substr(64), d256);
}

// The length counter and the checksum are 512-bit numbers: carries must
// cross every word. Set them near overflow and absorb one block.
TEST(Streebog, CounterAndChecksumCarryAcrossWords) {
    HashPtr ctx(hashCreate(HASH_ALG_GOST12_256));
    hashInit(ctx.get());
    uint64_t n[8] = {~uint64_t{0} - 511, ~uint64_t{0}, 7, 0, 0, 0, 0, 0};
    uint64_t sigma[8];
    std::memset(sigma, 0xFF, sizeof sigma);
    std::memcpy(ctx->aux1, n, sizeof n);
    std::memcpy(ctx->aux2, sigma, sizeof sigma);
    unsigned char block[64] = {1};  // the number 1
    streebogCompress(ctx.get(), block, 512);
    std::memcpy(n, ctx->aux1, sizeof n);
    std::memcpy(sigma, ctx->aux2, sizeof sigma);
    EXPECT_EQ(n[0], 0u);
    EXPECT_EQ(n[1], 0u);
    EXPECT_EQ(n[2], 8u);
    for (uint64_t w : sigma) EXPECT_EQ(w, 0u);
}

TEST(Gost94, KnownAnswersAndLengthCarry) {
    EXPECT_EQ(digestWhole(HASH_ALG_GOST94, {}), "981E5F3CA30C841487830F84FB433E13AC1101569B9C13584AC483234CD656C0");
    EXPECT_EQ(digestWhole(HASH_ALG_GOST94, {'a', 'b', 'c'}),
              "B285056DBF18D7392D7677369524DD14747459ED8143997E163B2986F92FD42C");
    // 33 bytes: a whole block, then one byte padded with bit count 8; L ends at
    // 264.
    HashPtr ctx(hashCreate(HASH_ALG_GOST94));
    hashInit(ctx.get());
    const std::vector<unsigned char> m(33, 0x61);
    hashUpdate(ctx.get(), m.data(), 33);
    unsigned char out[32];
    EXPECT_EQ(hashFinal(ctx.get(), out, 1), 32u);
    uint32_t length[8];
    std::memcpy(length, ctx->aux1, sizeof length);
    EXPECT_EQ(length[0], 264u);
    // The 256-bit length carries out of its lowest words.
    hashInit(ctx.get());
    const uint32_t nearWrap[8] = {0xFFFFFF80u, 0xFFFFFFFFu, 5};
    std::memcpy(ctx->aux1, nearWrap, sizeof nearWrap);
    gost94Compress(ctx.get(), m.data(), 256);
    std::memcpy(length, ctx->aux1, sizeof length);
    EXPECT_EQ(length[0], 0x80u);
    EXPECT_EQ(length[1], 0u);
    EXPECT_EQ(length[2], 6u);
}

TEST(HashObjectDeathTest, UnknownAlgorithmFaults) { EXPECT_DEATH(hashCreate(99), ""); }
