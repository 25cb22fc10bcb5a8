// The cipher modes: a stream cut into any pieces, in place or not, gives the
// output of one whole update (on a copy of the context); decryption gives
// the plain text back; no routine writes past the capacity it is given, as
// every output buffer is an exact-size heap block; refused parameters give
// a status code and a context that refuses data.
//
// Input: flags, mode, segment length, padding, IV length, update slack, final
// capacity, the cutting, the 32-byte key, the IV, then the data. Flag 1 passes
// mode, segment, padding and IV length as they come (mostly refused); 2 runs
// the cut stream in place; 4 and 8 pass a null key and a null IV.
#include <memory>
#include <vector>

#include "cipher/cipher.h"
#include "fuzz_input.h"

namespace {

using Bytes = std::vector<uint8_t>;

struct CtxFreer {
    void operator()(CipherCtx* ctx) const { cipherCtxFree(&ctx); }
};
using CtxPtr = std::unique_ptr<CipherCtx, CtxFreer>;

CtxPtr newCtx() {
    CipherCtx* ctx = nullptr;
    FUZZ_CHECK(cipherCtxAlloc(&ctx) == CIPHER_OK);
    return CtxPtr(ctx);
}

std::unique_ptr<uint8_t[]> exact(size_t n) { return std::unique_ptr<uint8_t[]>(new uint8_t[n]); }

struct Stream {
    std::vector<size_t> cut;
    uint32_t slack;     // an update's capacity is its length + 8, always enough, less this
    uint8_t finalRoom;  // odd: the final gets what its length query says plus finalRoom / 2 % 8; even: 0
    bool inPlace;
};

struct Result {
    Bytes out;
    uint32_t status;
};

// One update with capacity cap; appends what it wrote.
uint32_t update(CipherCtx* ctx, const uint8_t* in, size_t n, uint32_t cap, bool inPlace, Bytes& out) {
    auto buf = exact(inPlace ? std::max<size_t>(cap, n) : cap);
    if (inPlace) {
        std::copy(in, in + n, buf.get());
        in = buf.get();
    }
    uint32_t len = cap;
    const uint32_t status = cipherUpdate(ctx, in, static_cast<uint32_t>(n), buf.get(), &len);
    FUZZ_CHECK(len <= cap && (status == CIPHER_OK || len == 0));
    out.insert(out.end(), buf.get(), buf.get() + len);
    return status;
}

// The whole stream and its final. A refused call is made again with the
// room it lacked, as a caller would.
Result run(CipherCtx* ctx, const Bytes& in, const Stream& s) {
    Result r{{}, CIPHER_OK};
    forEachPiece(s.cut, in.size(), [&](size_t at, size_t n) {
        const uint32_t roomy = static_cast<uint32_t>(n + 8), cap = roomy - std::min(s.slack, roomy);
        const size_t before = r.out.size();
        if (update(ctx, in.data() + at, n, cap, s.inPlace, r.out) == CIPHER_OK) return;
        // Refused with reason: given room, it writes more than cap.
        FUZZ_CHECK(cap < roomy && update(ctx, in.data() + at, n, roomy, s.inPlace, r.out) == CIPHER_OK &&
                   r.out.size() - before > cap);
    });

    uint32_t query = 0;
    FUZZ_CHECK(cipherFinal(ctx, nullptr, &query) == CIPHER_OK);
    uint32_t cap = s.finalRoom % 2 ? query + s.finalRoom / 2 % 8 : 0;
    for (int attempt = 0;; ++attempt) {
        auto buf = exact(cap);
        uint32_t len = cap;
        r.status = cipherFinal(ctx, buf.get(), &len);
        if (r.status == CIPHER_SHORT_OUTPUT && attempt == 0) {
            FUZZ_CHECK(len > cap && len <= 8);
            cap = len;
            continue;
        }
        if (r.status == CIPHER_OK) {
            FUZZ_CHECK(len <= cap && len <= query);
            r.out.insert(r.out.end(), buf.get(), buf.get() + len);
        } else if (r.status == CIPHER_PARTIAL_BLOCK) {
            FUZZ_CHECK(len == 8 - in.size() % 8);
        } else {
            FUZZ_CHECK(r.status == CIPHER_BAD_PADDING);
        }
        return r;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input in{data, size};
    const uint8_t flags = in.byte(), modeByte = in.byte(), segmentByte = in.byte(), paddingByte = in.byte();
    const uint8_t ivByte = in.byte();
    Stream s;
    s.slack = in.byte() % 17;
    s.finalRoom = in.byte();
    s.inPlace = flags & 2;
    s.cut = readCutting(in);

    uint32_t mode = 1 + modeByte % 11, ivLen = 0;
    int32_t segment = 1 + segmentByte % 8;
    uint8_t padding = 0;
    switch (mode) {
        case CIPHER_ECB_ENCRYPT:
        case CIPHER_ECB_DECRYPT: padding = paddingByte % 4; break;
        case CIPHER_CTR_ENCRYPT:
        case CIPHER_CTR_DECRYPT: ivLen = 4; break;
        case CIPHER_CBC_ENCRYPT:
        case CIPHER_CBC_DECRYPT: padding = paddingByte % 4; [[fallthrough]];
        case CIPHER_OFB_ENCRYPT:
        case CIPHER_OFB_DECRYPT: ivLen = 8 * (1 + ivByte % 4); break;
        case CIPHER_CFB_ENCRYPT:
        case CIPHER_CFB_DECRYPT: ivLen = 8 + ivByte % 25; break;
        default: padding = CIPHER_PAD_ONE_ZEROS_IF; break;  // MAC
    }
    if (flags & 1) {
        mode = modeByte % 16;
        segment = static_cast<int8_t>(segmentByte);
        padding = paddingByte;
        ivLen = ivByte % 41;
    }
    const Bytes key = in.bytes(32), iv = in.bytes(ivLen), plain(in.data, in.data + in.size);
    const uint8_t* keyArg = flags & 4 ? nullptr : key.data();
    const uint8_t* ivArg = flags & 8 ? nullptr : iv.data();

    CtxPtr ctx = newCtx();
    const uint32_t status = cipherCtxInit(ctx.get(), mode, keyArg, segment, ivArg, ivLen, padding);
    if (status != CIPHER_OK) {
        FUZZ_CHECK(status <= CIPHER_PARTIAL_BLOCK && cipherGetMode(ctx.get()) == 0);
        Bytes ignored;
        FUZZ_CHECK(update(ctx.get(), plain.data(), plain.size(), 8, false, ignored) <= CIPHER_PARTIAL_BLOCK);
        uint32_t len = 8;
        auto buf = exact(len);
        FUZZ_CHECK(cipherFinal(ctx.get(), buf.get(), &len) <= CIPHER_PARTIAL_BLOCK);
        return 0;
    }
    FUZZ_CHECK(cipherGetMode(ctx.get()) == mode && cipherGetPadding(ctx.get()) == padding);

    CtxPtr whole = newCtx();
    FUZZ_CHECK(cipherCtxCopy(whole.get(), ctx.get()) == CIPHER_OK);
    const Result cut = run(ctx.get(), plain, s);
    const Result one = run(whole.get(), plain, Stream{{plain.size()}, 0, 1, false});
    FUZZ_CHECK(cut.status == one.status && cut.out == one.out);

    const bool encrypts = mode % 2 == 1 && mode != CIPHER_MAC;
    if (!encrypts || one.status != CIPHER_OK) return 0;
    // Paddings 1 and 3 stay on the decrypted text.
    Bytes expected = plain;
    if (plain.size() % 8 != 0 && (padding == CIPHER_PAD_ZEROS || padding == CIPHER_PAD_ONE_ZEROS_IF)) {
        if (padding == CIPHER_PAD_ONE_ZEROS_IF) expected.push_back(0x80);
        expected.resize(plain.size() / 8 * 8 + 8, 0);
    }
    // Made again on the used context, which the set-up clears first.
    FUZZ_CHECK(cipherCtxInit(ctx.get(), mode + 1, keyArg, segment, ivArg, ivLen, padding) == CIPHER_OK);
    const Result back = run(ctx.get(), one.out, s);
    FUZZ_CHECK(back.status == CIPHER_OK && back.out == expected);
    return 0;
}
