#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "cipher/cipher.h"
#include "support.h"

using testsupport::fromHex;
using Bytes = std::vector<unsigned char>;
using Row = std::vector<std::string>;
using CtxPtr = std::unique_ptr<CipherCtx, void (*)(CipherCtx*)>;

namespace {

const Bytes kKey = fromHex("ffeeddccbbaa99887766554433221100f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff");
const uint8_t kZeros[32] = {};

// A context for mode with the IV, segment and padding of a row "<mode> <iv> <segment> <padding> ...".
CtxPtr make(const Row& r, uint32_t mode) {
    CipherCtx* raw = nullptr;
    EXPECT_EQ(cipherCtxAlloc(&raw), 0u);
    const Bytes iv = fromHex(r[1]);
    EXPECT_EQ(cipherCtxInit(raw, mode, kKey.data(), std::stoi(r[2]), iv.empty() ? nullptr : iv.data(),
                            static_cast<uint32_t>(iv.size()), static_cast<uint8_t>(std::stoi(r[3]))),
              0u);
    return CtxPtr(raw, [](CipherCtx* c) { cipherCtxFree(&c); });
}

// The stream in pieces of the given sizes (cycled), in place or not, going on in a copy after each piece; the
// final gets the room its length query names. Every buffer is exactly as long as its capacity.
Bytes run(const Row& r, uint32_t mode, const Bytes& in, const std::vector<size_t>& cut, bool inPlace = false) {
    CtxPtr ctx = make(r, mode);
    Bytes out;
    for (size_t at = 0, i = 0, n; at < in.size(); at += n) {
        n = std::min(cut[i++ % cut.size()], in.size() - at);
        Bytes buf(in.begin() + at, in.begin() + at + n);
        buf.resize(n + 8);
        uint32_t len = static_cast<uint32_t>(n + 8);
        EXPECT_EQ(cipherUpdate(ctx.get(), inPlace ? buf.data() : in.data() + at, n, buf.data(), &len), 0u);
        out.insert(out.end(), buf.begin(), buf.begin() + len);
        CtxPtr copy = make({"1", "-", "8", "2"}, CIPHER_ECB_ENCRYPT);
        EXPECT_EQ(cipherCtxCopy(copy.get(), ctx.get()), 0u);
        ctx = std::move(copy);
    }
    uint32_t len = 0;
    EXPECT_EQ(cipherFinal(ctx.get(), nullptr, &len), 0u);
    std::unique_ptr<uint8_t[]> last(new uint8_t[len]);
    EXPECT_EQ(cipherFinal(ctx.get(), last.get(), &len), 0u);
    // The final wipes the key and the IV, whose buffer stays until the context is cleared.
    EXPECT_TRUE(cipherGetMode(ctx.get()) == 0 && !std::memcmp(ctx->key, kZeros, 32) &&
                std::all_of(ctx->iv, ctx->iv + fromHex(r[1]).size(), [](uint8_t b) { return b == 0; }));
    out.insert(out.end(), last.get(), last.get() + len);
    return out;
}

}  // namespace

// Every known answer, and random texts under every mode's parameters: the same in any pieces, in place or not;
// decrypted back, paddings 1 and 3 left on.
TEST(Cipher, KnownAnswersAndEveryModesProperties) {
    auto rows = testsupport::rows(VELT_VECTORS_DIR "/gost28147.txt");
    for (const Row& r : testsupport::rows(VELT_VECTORS_DIR "/cipher_modes.txt")) rows.push_back(r);
    std::mt19937 rng(28147);
    for (const Row& r : rows) {
        const uint32_t mode = static_cast<uint32_t>(std::stoul(r[0])), padding = std::stoul(r[3]);
        std::vector<Bytes> plains;
        for (size_t len = 0; r.size() == 4 && len <= 40; ++len) {
            if (len % 8 != 0 && padding == 0 && (mode == CIPHER_ECB_ENCRYPT || mode == CIPHER_CBC_ENCRYPT)) continue;
            plains.emplace_back(len);
            for (auto& b : plains.back()) b = static_cast<unsigned char>(rng());
        }
        if (r.size() > 4) plains.push_back(fromHex(r[4]));
        for (const Bytes& plain : plains) {
            SCOPED_TRACE(r[0] + " " + r[1] + " " + r[2] + " " + r[3] + ", " + std::to_string(plain.size()) + " bytes");
            const Bytes whole = r.size() > 4 ? fromHex(r[5]) : run(r, mode, plain, {~size_t{0}});
            Bytes back = plain;
            while ((padding == CIPHER_PAD_ZEROS || padding == CIPHER_PAD_ONE_ZEROS_IF) && back.size() % 8 != 0)
                back.push_back(back.size() == plain.size() && padding == CIPHER_PAD_ONE_ZEROS_IF ? 0x80 : 0);
            for (const std::vector<size_t>& cut : {std::vector<size_t>{~size_t{0}}, {1}, {3, 0, 5, 11}, {9, 7}}) {
                EXPECT_EQ(run(r, mode, plain, cut), whole);
                EXPECT_EQ(run(r, mode, plain, cut, true), whole);
                EXPECT_EQ(mode == CIPHER_MAC ? back : run(r, mode + 1, whole, cut), back);
            }
        }
    }
}

TEST(Cipher, StatusOfEveryCall) {
    for (const Row& r : testsupport::rows(VELT_VECTORS_DIR "/cipher_status.txt")) {
        CtxPtr ctx = make({"7", "0001020304050607", "8", "0"}, CIPHER_CBC_ENCRYPT);
        CipherCtx* c = ctx.get();  // null from an "x" step on
        const Bytes iv = fromHex(r[3]), data = fromHex(r[7]);
        const std::string name = r[0] + " " + r[1] + " " + r[2] + " " + r[3] + " " + r[4] + " " + r[5];
        const auto setUp = [&] {
            return cipherCtxInit(c, std::stoul(r[0]), r[1] == "null" ? nullptr : kKey.data(), std::stoi(r[2]),
                                 r[3] == "null" ? nullptr : iv.data(), std::stoul(r[4]), std::stoi(r[5]));
        };
        EXPECT_EQ(setUp(), std::stoul(r[6])) << name;
        Bytes written;
        for (size_t i = 8, at = 0; i < r.size(); ++i) {
            const std::string& s = r[i];
            SCOPED_TRACE(name + ": " + s);
            if (s == "x") c = nullptr;
            if (s[0] == 'p') ctx->pendingLen = std::stoul(s.substr(1));
            const Bytes poke = fromHex(s[0] == 'r' ? s.substr(s.find('=') + 1) : "");
            std::copy(poke.begin(), poke.end(), ctx->reg + (s[0] == 'r' ? std::stoul(s.substr(1)) : 0));
            EXPECT_EQ(written, s[0] == 'o' ? fromHex(s.substr(4)) : written);
            std::vector<int64_t> results;  // of a step that sets up, reads, copies or frees
            if (s[0] == 's') results = {setUp()};
            if (s[0] == 'a')  // the accessors, and the record's register length other tools read
                results = {cipherGetMode(c), cipherGetPadding(c), cipherGetSegmentLen(c), c ? int64_t{c->ivLen} : -1};
            if (s[0] == 'k') results = {cipherCtxCopy(c, ctx.get()), cipherCtxCopy(ctx.get(), c)};
            if (s[0] == 'h') results = {cipherCtxAlloc(nullptr), cipherCtxFree(nullptr), cipherCtxFree(&c)};
            std::string said = results.empty() ? s : s.substr(0, 1);
            for (size_t j = 0; j < results.size(); ++j) said += (j > 0 ? "," : "") + std::to_string(results[j]);
            EXPECT_EQ(said, s);
            EXPECT_EQ(s[0] == 'm' ? "m:" + testsupport::toHex(c->reg, c->ivLen) : s, s);
            EXPECT_TRUE(s != "c" || (cipherGetMode(c) == 0 && c->iv == nullptr && c->reg == nullptr &&
                                     !std::memcmp(c->key, kZeros, 32)));
            unsigned n = 0, cap = 0, status = 0, len = 0;
            const bool update = s[0] == 'u' || s[0] == 'n';
            if (!update && s[0] != 'f' && s[0] != 'q') continue;
            ASSERT_EQ(update ? std::sscanf(s.c_str() + 1, "%u,%u=%u,%u", &n, &cap, &status, &len)
                             : std::sscanf(s.c_str() + 1, "%u=%u,%u", &cap, &status, &len) + 1,
                      4);
            Bytes in(n);
            for (size_t j = 0; j < n && at + j < data.size(); ++j) in[j] = data[at + j];
            std::unique_ptr<uint8_t[]> buf(new uint8_t[cap]);
            uint8_t* out = s[0] == 'n' || s[0] == 'q' ? nullptr : buf.get();
            uint32_t got = cap;
            EXPECT_EQ(update ? cipherUpdate(c, in.data(), n, out, &got) : cipherFinal(c, out, &got), status);
            EXPECT_EQ(got, len);
            if (status == 0 && out != nullptr) written.insert(written.end(), buf.get(), buf.get() + got);
            at += status == 0 && update ? n : 0;
        }
    }
}
