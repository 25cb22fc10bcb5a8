// The hash object: a message cut into any pieces, from any alignment, and
// moved to a clone after the first piece, has the digest of one whole
// update (which is not cloned); for GOST R 34.11-2012, with every
// compression this CPU can run.
//
// Input: algorithm, start offset, the cutting, then the message.
#include <vector>

#include "fuzz_input.h"
#include "hash/hash.h"
#include "hash/streebog.h"

namespace {

std::vector<uint8_t> digestOf(uint32_t alg, const uint8_t* msg, size_t len, const std::vector<size_t>& cut) {
    HashContext* hash = hashCreate(alg);
    hashInit(hash);
    forEachPiece(cut, len, [&](size_t at, size_t n) {
        hashUpdate(hash, msg + at, static_cast<uint32_t>(n));
        if (at == 0 && n < len) {
            HashContext* clone = hashClone(hash);
            hashFree(hash);
            hash = clone;
        }
    });
    std::vector<uint8_t> digest(64);
    digest.resize(hashFinal(hash, digest.data(), 1));
    hashFree(hash);
    FUZZ_CHECK(digest.size() == (alg == HASH_ALG_GOST12_512 ? 64u : 32u));
    return digest;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input in{data, size};
    const uint32_t alg = HASH_ALG_GOST94 + in.byte() % 3;
    const size_t offset = in.byte() % 8;
    const std::vector<size_t> cut = readCutting(in);
    // The message starts offset bytes into an 8-byte aligned block.
    std::vector<uint64_t> store(in.size / 8 + 2);
    uint8_t* msg = reinterpret_cast<uint8_t*>(store.data()) + offset;
    std::copy(in.data, in.data + in.size, msg);

    std::vector<uint8_t> reference;
    for (int impl = 0; impl < STREEBOG_IMPL_COUNT; ++impl) {
        if (alg == HASH_ALG_GOST94 ? impl > 0 : !streebogImplAvailable(impl)) continue;
        if (alg != HASH_ALG_GOST94) FUZZ_CHECK(streebogSetImpl(impl) == 0);
        const std::vector<uint8_t> whole = digestOf(alg, msg, in.size, {in.size});
        if (reference.empty()) reference = whole;
        FUZZ_CHECK(whole == reference);
        FUZZ_CHECK(digestOf(alg, msg, in.size, cut) == reference);
    }
    return 0;
}
