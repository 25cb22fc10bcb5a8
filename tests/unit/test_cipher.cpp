#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "cipher/cipher.h"
#include "support.h"

using testsupport::fromHex;
using testsupport::toHex;
using Bytes = std::vector<unsigned char>;

namespace {

const Bytes kKey = fromHex("ffeeddccbbaa99887766554433221100f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff");

struct Freer {
    void operator()(CipherCtx* c) const { cipherCtxFree(&c); }
};
using CtxPtr = std::unique_ptr<CipherCtx, Freer>;

CtxPtr makeCtx(uint32_t mode, int32_t segment, const Bytes& iv, uint8_t padding, const Bytes& key = kKey) {
    CipherCtx* raw = nullptr;
    EXPECT_EQ(cipherCtxAlloc(&raw), 0u);
    CtxPtr ctx(raw);
    EXPECT_EQ(cipherCtxInit(ctx.get(), mode, key.data(), segment, iv.empty() ? nullptr : iv.data(),
                            static_cast<uint32_t>(iv.size()), padding),
              0u);
    return ctx;
}

// A heap block of exactly n bytes: a write past the declared capacity trips AddressSanitizer.
std::unique_ptr<uint8_t[]> exactBuffer(size_t n) { return std::unique_ptr<uint8_t[]>(new uint8_t[n ? n : 1]); }

// Runs a stream: updates over the given piece sizes (cycled, optionally in
// place), then a final; returns everything written.
Bytes runStream(CipherCtx* ctx, const Bytes& in, const std::vector<size_t>& pieces, bool inPlace = false,
                uint32_t* finalStatus = nullptr) {
    Bytes out;
    size_t done = 0;
    for (size_t i = 0; done < in.size(); ++i) {
        const size_t n = std::min(pieces[i % pieces.size()], in.size() - done);
        uint32_t len = static_cast<uint32_t>(n + 8);
        auto buf = exactBuffer(len);
        const uint8_t* src = in.data() + done;
        if (inPlace) {
            std::copy(src, src + n, buf.get());
            src = buf.get();
        }
        EXPECT_EQ(cipherUpdate(ctx, src, static_cast<uint32_t>(n), buf.get(), &len), 0u);
        out.insert(out.end(), buf.get(), buf.get() + len);
        done += n;
    }
    uint32_t len = 8;
    auto buf = exactBuffer(len);
    const uint32_t status = cipherFinal(ctx, buf.get(), &len);
    if (finalStatus != nullptr) *finalStatus = status;
    else EXPECT_EQ(status, 0u);
    if (status == 0) out.insert(out.end(), buf.get(), buf.get() + len);
    return out;
}

struct Vector {
    uint32_t mode;
    Bytes iv;
    int32_t segment;
    uint8_t padding;
    Bytes plain, expected;
};

std::vector<Vector> loadVectors() {
    std::ifstream in(VELT_VECTORS_DIR "/gost28147.txt");
    std::vector<Vector> out;
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream f(line);
        Vector v;
        std::string iv, plain, expected;
        int padding;
        f >> v.mode >> iv >> v.segment >> padding >> plain >> expected;
        v.padding = static_cast<uint8_t>(padding);
        if (iv != "-") v.iv = fromHex(iv);
        v.plain = fromHex(plain);
        v.expected = fromHex(expected);
        out.push_back(v);
    }
    return out;
}

}  // namespace

TEST(Cipher, KnownAnswersWholeBytewiseInPlaceAndDecrypted) {
    const auto vectors = loadVectors();
    ASSERT_EQ(vectors.size(), 8u);
    for (const auto& v : vectors) {
        SCOPED_TRACE("mode " + std::to_string(v.mode) + " -> " + toHex(v.expected.data(), v.expected.size()));
        for (const auto& pieces : std::vector<std::vector<size_t>>{{1000}, {1}, {5, 11, 3}}) {
            for (bool inPlace : {false, true}) {
                auto enc = makeCtx(v.mode, v.segment, v.iv, v.padding);
                EXPECT_EQ(runStream(enc.get(), v.plain, pieces, inPlace), v.expected);
            }
        }
        if (v.mode == CIPHER_MAC) continue;
        auto dec = makeCtx(v.mode + 1, v.segment, v.iv, v.padding);
        EXPECT_EQ(runStream(dec.get(), v.expected, {7}), v.plain);
    }
}

// Any cutting of a stream gives the output of one update; decryption inverts
// encryption (with the padding bytes that the paddings 1 and 3 leave in place).
TEST(Cipher, RandomCuttingsAndRoundTripsInEveryMode) {
    std::mt19937 rng(28147);
    for (int round = 0; round < 400; ++round) {
        const uint32_t mode = 1 + 2 * (rng() % 5);  // the encrypting modes 1, 3, 5, 7, 9
        Bytes key(32), iv;
        for (auto& b : key) b = static_cast<unsigned char>(rng());
        int32_t segment = 8;
        uint8_t padding = 0;
        if (mode == CIPHER_CTR_ENCRYPT) iv.resize(4);
        if (mode == CIPHER_OFB_ENCRYPT || mode == CIPHER_CBC_ENCRYPT) iv.resize(8 * (1 + rng() % 3));
        if (mode == CIPHER_CFB_ENCRYPT) iv.resize(8 + rng() % 13);
        for (auto& b : iv) b = static_cast<unsigned char>(rng());
        if (mode == CIPHER_CTR_ENCRYPT || mode == CIPHER_OFB_ENCRYPT || mode == CIPHER_CFB_ENCRYPT)
            segment = static_cast<int32_t>(1 + rng() % 8);
        if (mode == CIPHER_ECB_ENCRYPT || mode == CIPHER_CBC_ENCRYPT) padding = static_cast<uint8_t>(rng() % 4);
        size_t len = rng() % 90;
        if ((mode == CIPHER_ECB_ENCRYPT || mode == CIPHER_CBC_ENCRYPT) && padding == 0) len -= len % 8;
        Bytes plain(len);
        for (auto& b : plain) b = static_cast<unsigned char>(rng());
        SCOPED_TRACE("round " + std::to_string(round) + " mode " + std::to_string(mode) + " s " +
                     std::to_string(segment) + " pad " + std::to_string(padding) + " len " + std::to_string(len));

        const Bytes whole = runStream(makeCtx(mode, segment, iv, padding, key).get(), plain, {1000});
        std::vector<size_t> pieces;
        for (int i = 0; i < 6; ++i) pieces.push_back(rng() % 20);
        pieces.push_back(1);
        EXPECT_EQ(runStream(makeCtx(mode, segment, iv, padding, key).get(), plain, pieces, rng() % 2), whole);

        Bytes expectedPlain = plain;
        if (len % 8 != 0 && padding == CIPHER_PAD_ZEROS) expectedPlain.resize(len + 8 - len % 8, 0);
        if (len % 8 != 0 && padding == CIPHER_PAD_ONE_ZEROS_IF) {
            expectedPlain.push_back(0x80);
            expectedPlain.resize(len + 8 - len % 8, 0);
        }
        EXPECT_EQ(runStream(makeCtx(mode + 1, segment, iv, padding, key).get(), whole, pieces), expectedPlain);
    }
}

TEST(Cipher, MacOverRandomCuttingsAndWithoutData) {
    std::mt19937 rng(11);
    Bytes data(77);
    for (auto& b : data) b = static_cast<unsigned char>(rng());
    for (size_t len : {1, 7, 8, 9, 16, 17, 77}) {
        const Bytes part(data.begin(), data.begin() + static_cast<long>(len));
        const Bytes whole = runStream(makeCtx(CIPHER_MAC, 8, {}, 3).get(), part, {1000});
        EXPECT_EQ(runStream(makeCtx(CIPHER_MAC, 8, {}, 3).get(), part, {3, 1, 8}), whole) << len;
    }
    // No data: the MAC of the one block 80 00 .. 00 under the second subkey,
    // worked out here from R = E(0) with plain ECB.
    auto ecb = makeCtx(CIPHER_ECB_ENCRYPT, 8, {}, 0);
    Bytes r = runStream(ecb.get(), Bytes(8, 0), {8});
    auto times2 = [](Bytes v) {
        const bool carry = v[0] & 0x80;
        for (size_t i = 0; i < 8; ++i) v[i] = static_cast<unsigned char>((v[i] << 1) | (i < 7 ? v[i + 1] >> 7 : 0));
        if (carry) v[7] ^= 0x1B;
        return v;
    };
    Bytes block = times2(times2(r));
    block[0] ^= 0x80;
    const Bytes expected = runStream(makeCtx(CIPHER_ECB_ENCRYPT, 8, {}, 0).get(), block, {8});
    auto mac = makeCtx(CIPHER_MAC, 8, {}, 3);
    uint8_t out[8];
    uint32_t len = 8;
    EXPECT_EQ(cipherFinal(mac.get(), out, &len), 0u);
    EXPECT_EQ(Bytes(out, out + len), expected);
}

TEST(Cipher, CounterUsesSegmentBytesAndCarriesIntoHighWord) {
    const Bytes iv = fromHex("12345678"), zeros(16, 0);
    const Bytes full = runStream(makeCtx(CIPHER_CTR_ENCRYPT, 8, iv, 0).get(), zeros, {16});
    const Bytes half = runStream(makeCtx(CIPHER_CTR_ENCRYPT, 4, iv, 0).get(), Bytes(8, 0), {8});
    EXPECT_EQ(half, Bytes({full[0], full[1], full[2], full[3], full[8], full[9], full[10], full[11]}));

    // Counter 12345678 ffffffff is followed by 12345679 00000000.
    auto ctx = makeCtx(CIPHER_CTR_ENCRYPT, 8, iv, 0);
    std::fill(ctx->reg + 4, ctx->reg + 8, 0xFF);
    const Bytes carried = runStream(ctx.get(), zeros, {16});
    const Bytes next = runStream(makeCtx(CIPHER_CTR_ENCRYPT, 8, fromHex("12345679"), 0).get(), Bytes(8, 0), {8});
    EXPECT_EQ(Bytes(carried.begin() + 8, carried.end()), next);
}

TEST(Cipher, SetUpStatusCodesLeaveTheContextCleared) {
    const Bytes iv8(8, 1), iv4(4, 1), iv12(12, 1);
    struct Row {
        uint32_t mode;
        bool key;
        int32_t segment;
        const Bytes* iv;
        uint8_t padding;
        uint32_t status;
    };
    const std::vector<Row> rows = {
        {0, true, 8, &iv8, 0, CIPHER_BAD_MODE},         {12, true, 8, &iv8, 0, CIPHER_BAD_MODE},
        {1, false, 8, nullptr, 0, CIPHER_NULL_KEY},     {1, true, 8, nullptr, 4, CIPHER_BAD_PADDING},
        {3, true, 0, &iv4, 0, CIPHER_BAD_SEGMENT},      {3, true, 9, &iv4, 0, CIPHER_BAD_SEGMENT},
        {3, true, 8, &iv8, 0, CIPHER_BAD_IV},           {3, true, 8, nullptr, 0, CIPHER_BAD_IV},
        {4, true, 8, &iv4, 1, CIPHER_BAD_PADDING},      {5, true, 8, &iv12, 0, CIPHER_BAD_IV},
        {6, true, -1, &iv8, 0, CIPHER_BAD_SEGMENT},     {7, true, 0, &iv4, 0, CIPHER_BAD_IV},
        {8, true, 99, &iv8, 3, CIPHER_OK},              {8, true, 8, &iv8, 4, CIPHER_BAD_PADDING},
        {9, true, 8, &iv4, 0, CIPHER_BAD_IV},           {10, true, 8, &iv12, 0, CIPHER_OK},
        {10, true, 8, &iv12, 2, CIPHER_BAD_PADDING},    {11, true, 9, nullptr, 3, CIPHER_BAD_SEGMENT},
        {11, true, 4, nullptr, 2, CIPHER_BAD_PADDING},  {11, false, 4, nullptr, 3, CIPHER_NULL_KEY},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE("mode " + std::to_string(row.mode) + " expects " + std::to_string(row.status));
        auto ctx = makeCtx(CIPHER_CBC_ENCRYPT, 8, iv8, 0);  // a keyed context to be re-initialised
        const uint32_t status =
            cipherCtxInit(ctx.get(), row.mode, row.key ? kKey.data() : nullptr, row.segment,
                          row.iv ? row.iv->data() : nullptr, row.iv ? static_cast<uint32_t>(row.iv->size()) : 0,
                          row.padding);
        EXPECT_EQ(status, row.status);
        if (status != CIPHER_OK) {
            EXPECT_EQ(cipherGetMode(ctx.get()), 0u);
            EXPECT_EQ(ctx->iv, nullptr);
            EXPECT_EQ(ctx->reg, nullptr);
            const auto* key = reinterpret_cast<uint8_t*>(ctx->key);
            EXPECT_EQ(Bytes(key, key + 32), Bytes(32, 0));
        }
    }
    EXPECT_EQ(cipherCtxInit(nullptr, 1, kKey.data(), 8, nullptr, 0, 0), CIPHER_NULL_CONTEXT);
}

TEST(Cipher, AccessorsAndLifeCycle) {
    EXPECT_EQ(cipherGetMode(nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(cipherGetSegmentLen(nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(cipherGetPadding(nullptr), -1);
    EXPECT_EQ(cipherCtxSize(), sizeof(CipherCtx));
    EXPECT_EQ(cipherCtxAlloc(nullptr), CIPHER_NULL_CONTEXT);
    EXPECT_EQ(cipherCtxFree(nullptr), CIPHER_NULL_CONTEXT);
    CipherCtx* none = nullptr;
    EXPECT_EQ(cipherCtxFree(&none), CIPHER_NULL_CONTEXT);

    auto ctx = makeCtx(CIPHER_CFB_ENCRYPT, 3, Bytes(8, 9), 0);
    EXPECT_EQ(cipherGetMode(ctx.get()), CIPHER_CFB_ENCRYPT);
    EXPECT_EQ(cipherGetSegmentLen(ctx.get()), 3u);
    EXPECT_EQ(cipherGetPadding(ctx.get()), 0);

    // A copy taken mid-stream continues exactly as the original.
    const Bytes head(5, 0x11), tail(13, 0x22);
    uint8_t scratch[16];
    uint32_t len = sizeof scratch;
    cipherUpdate(ctx.get(), head.data(), 5, scratch, &len);
    auto copy = makeCtx(CIPHER_ECB_ENCRYPT, 8, {}, 0);
    EXPECT_EQ(cipherCtxCopy(copy.get(), ctx.get()), 0u);
    EXPECT_EQ(runStream(copy.get(), tail, {4}), runStream(ctx.get(), tail, {13}));
    EXPECT_EQ(cipherCtxCopy(nullptr, ctx.get()), CIPHER_NULL_CONTEXT);

    // The final wipes the key and the held bytes.
    EXPECT_EQ(cipherGetMode(ctx.get()), 0u);
    EXPECT_EQ(Bytes(reinterpret_cast<uint8_t*>(ctx->key), reinterpret_cast<uint8_t*>(ctx->key) + 32), Bytes(32, 0));
    EXPECT_EQ(ctx->pendingLen, 0u);
}

TEST(Cipher, UpdateAndFinalStatusCodes) {
    const Bytes data(8, 0xAB);
    uint8_t out[16];
    uint32_t len = 16;

    auto ecb = makeCtx(CIPHER_ECB_ENCRYPT, 8, {}, 2);
    EXPECT_EQ(cipherUpdate(nullptr, data.data(), 8, out, &len), CIPHER_NULL_CONTEXT);
    len = 16;
    EXPECT_EQ(cipherUpdate(ecb.get(), data.data(), 0, out, &len), 0u);
    EXPECT_EQ(len, 0u);
    // Encryption with padding writes the whole block at once: capacity 7 is too small.
    len = 7;
    auto seven = exactBuffer(7);
    EXPECT_EQ(cipherUpdate(ecb.get(), data.data(), 8, seven.get(), &len), CIPHER_SHORT_OUTPUT);
    EXPECT_EQ(len, 0u);
    len = 7;  // a gamma mode needs the input length
    auto ctr = makeCtx(CIPHER_CTR_ENCRYPT, 8, Bytes(4, 0), 0);
    EXPECT_EQ(cipherUpdate(ctr.get(), data.data(), 8, seven.get(), &len), CIPHER_SHORT_OUTPUT);
    EXPECT_EQ(len, 0u);

    // ECB with padding 0 and 3 pending bytes: 5 are missing; the context is kept.
    auto bare = makeCtx(CIPHER_ECB_ENCRYPT, 8, {}, 0);
    len = 16;
    cipherUpdate(bare.get(), data.data(), 3, out, &len);
    len = 16;
    EXPECT_EQ(cipherFinal(bare.get(), out, &len), CIPHER_PARTIAL_BLOCK);
    EXPECT_EQ(len, 5u);
    EXPECT_EQ(cipherGetMode(bare.get()), CIPHER_ECB_ENCRYPT);
    len = 16;
    EXPECT_EQ(cipherUpdate(bare.get(), data.data(), 5, out, &len), 0u);
    EXPECT_EQ(len, 8u);
    len = 16;
    EXPECT_EQ(cipherFinal(bare.get(), out, &len), 0u);
    EXPECT_EQ(len, 0u);
    len = 16;
    EXPECT_EQ(cipherUpdate(bare.get(), data.data(), 8, out, &len), CIPHER_BAD_MODE);  // finished

    // MAC of length 3 into 2 bytes: 3 is needed; the final can then be repeated.
    auto mac = makeCtx(CIPHER_MAC, 3, {}, 3);
    len = 0;
    cipherUpdate(mac.get(), data.data(), 8, nullptr, &len);
    len = 0;
    EXPECT_EQ(cipherFinal(mac.get(), nullptr, &len), 0u);
    EXPECT_EQ(len, 3u);
    len = 2;
    EXPECT_EQ(cipherFinal(mac.get(), out, &len), CIPHER_SHORT_OUTPUT);
    EXPECT_EQ(len, 3u);
    EXPECT_EQ(cipherFinal(mac.get(), out, &len), 0u);
    EXPECT_EQ(len, 3u);
}

TEST(Cipher, PaddingTwoAddsAndStripsAWholeBlock) {
    const Bytes eight = fromHex("0102030405060708");
    const Bytes enc = runStream(makeCtx(CIPHER_ECB_ENCRYPT, 8, {}, 2).get(), eight, {8});
    ASSERT_EQ(enc.size(), 16u);
    auto dec = makeCtx(CIPHER_ECB_DECRYPT, 8, {}, 2);
    EXPECT_EQ(runStream(dec.get(), enc, {16}), eight);

    // The padding block with room for only 3 of its 7 plain bytes: 3, then retry.
    const Bytes sevenEnc = runStream(makeCtx(CIPHER_ECB_ENCRYPT, 8, {}, 2).get(), Bytes(7, 0x55), {7});
    auto retry = makeCtx(CIPHER_ECB_DECRYPT, 8, {}, 2);
    uint8_t out[8];
    uint32_t len = 8;
    EXPECT_EQ(cipherUpdate(retry.get(), sevenEnc.data(), 8, out, &len), 0u);
    EXPECT_EQ(len, 0u);  // held back for the final
    len = 3;
    EXPECT_EQ(cipherFinal(retry.get(), out, &len), CIPHER_SHORT_OUTPUT);
    EXPECT_EQ(len, 7u);
    len = 8;
    EXPECT_EQ(cipherFinal(retry.get(), out, &len), 0u);
    EXPECT_EQ(Bytes(out, out + len), Bytes(7, 0x55));

    // A last block that does not end in 80 00 .. is a padding error, also for CBC.
    for (uint32_t mode : {CIPHER_ECB_DECRYPT, CIPHER_CBC_DECRYPT}) {
        auto bad = makeCtx(mode, 8, Bytes(8, 3), 2);
        uint32_t status = 0;
        runStream(bad.get(), eight, {8}, false, &status);
        EXPECT_EQ(status, CIPHER_BAD_PADDING) << mode;
    }
}
