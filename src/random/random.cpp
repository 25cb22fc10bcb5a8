#include "random/random.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "base/file_guard.h"
#include "base/wipe.h"
#include "cipher/cipher.h"

namespace {

constexpr uint32_t kBlockBytes = 32;
constexpr uint32_t kBlockBits = 8 * kBlockBytes;
constexpr uint32_t kIvBytes = 4;
constexpr int32_t kSegmentBytes = 8;
constexpr uint32_t kLazySeedBytes = 40;  // read whole, although only 36 are used
constexpr unsigned kMaxAttempts = 5;

// Seeding work area: the keystream drawn under the temporary key, cut into a
// test block, 4 skipped bytes, a second test block that becomes the working
// key, and the working IV. Before the draw, bytes 0..31 and 32..35 hold the
// temporary key and IV.
constexpr uint32_t kWorkBytes = 72;
constexpr uint32_t kTempIvAt = 32;
constexpr uint32_t kWorkKeyAt = 36;
constexpr uint32_t kWorkIvAt = 68;

constexpr char kURandomPath[] = "/dev/urandom";

CipherCtx* gRandomCtx = nullptr;
uint32_t gRandomState = RANDOM_UNSEEDED;
std::string gSourcePath = kURandomPath;

// Opens the source afresh for every request. A failed open is not checked:
// reading the bad descriptor fails, and that is the error reported. An end
// of file is an error too: /dev/urandom has none, and a source that ends
// (a broken or replaced device) would otherwise be read for ever.
bool readSource(uint8_t* buf, uint32_t len) {
    const FdGuard fd(open(gSourcePath.c_str(), O_RDONLY | O_CLOEXEC));
    uint32_t got = 0;
    while (got < len) {
        const ssize_t n = read(fd.get(), buf + got, len - got);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return false;
        got += static_cast<uint32_t>(n);
    }
    return true;
}

bool keyCounterMode(const uint8_t* key, const uint8_t* iv) {
    return cipherCtxInit(gRandomCtx, CIPHER_CTR_ENCRYPT, key, kSegmentBytes, iv, kIvBytes,
                         CIPHER_PAD_NONE) == CIPHER_OK;
}

// Overwrites buf with the next len bytes of keystream.
bool drawKeystream(uint8_t* buf, uint32_t len) {
    std::memset(buf, 0, len);
    uint32_t outLen = len;
    return cipherUpdate(gRandomCtx, buf, len, buf, &outLen) == CIPHER_OK;
}

// Keys gRandomCtx afresh from seed (36 bytes used) and /dev/urandom, taking
// the working key only from keystream whose two test blocks pass.
bool fReseedRandom(const uint8_t* seed) {
    uint8_t work[kWorkBytes] = {};
    WipeGuard wipe(work, sizeof work);
    for (unsigned attempt = 0; attempt < kMaxAttempts; ++attempt) {
        // After a failed read the area is judged as it stands: all zero on the
        // first attempt (a sure failure), else the last attempt's keystream.
        if (readSource(work, kBlockBytes)) {
            for (uint32_t i = 0; i < kBlockBytes; ++i) work[i] ^= seed[i];
            std::memcpy(work + kTempIvAt, seed + kTempIvAt, kIvBytes);
            if (!keyCounterMode(work, work + kTempIvAt)) return false;
            if (!drawKeystream(work, kWorkBytes)) return false;
        }
        if (fRandomBlockPasses(work) && fRandomBlockPasses(work + kWorkKeyAt))
            return keyCounterMode(work + kWorkKeyAt, work + kWorkIvAt);
    }
    return false;
}

uint32_t drawTestedBlock(uint8_t block[kBlockBytes]) {
    for (unsigned attempt = 0; attempt < kMaxAttempts; ++attempt) {
        if (!drawKeystream(block, kBlockBytes)) return RANDOM_CIPHER_FAILED;
        if (fRandomBlockPasses(block)) return RANDOM_OK;
    }
    return RANDOM_QUALITY_FAILED;
}

}  // namespace

bool fRandomBlockPasses(const uint8_t block[32]) {
    uint32_t ones = 0;
    uint32_t changes = 0;
    uint32_t longest[2] = {0, 0};  // longest finished run of zeros, of ones
    uint32_t run = 0;
    uint32_t previous = block[0] >> 7;
    for (uint32_t i = 0; i < kBlockBits; ++i) {
        const uint32_t bit = (block[i / 8] >> (7 - i % 8)) & 1u;
        ones += bit;
        if (bit != previous) {
            ++changes;
            if (run > longest[previous]) longest[previous] = run;
            run = 0;
            previous = bit;
        }
        ++run;
    }
    // The last run is cut off by the block's end and is left out on purpose.
    // The upper bounds of ones (155) and changes (154) differ on purpose too.
    return ones >= 101 && ones <= 155 && changes >= 101 && changes <= 154 &&
           longest[0] >= 5 && longest[0] <= 24 && longest[1] >= 5 && longest[1] <= 24;
}

void fSetRandomSourceForTests(const char* path) {
    gSourcePath = path != nullptr ? path : kURandomPath;
}

uint32_t fGetRandomState() { return gRandomState; }

uint32_t fInitRandom(const uint8_t* seed) {
    if (gRandomState > RANDOM_SEEDED_CARD) return RANDOM_BAD_STATE;
    if (gRandomCtx == nullptr && cipherCtxAlloc(&gRandomCtx) != CIPHER_OK) return RANDOM_CIPHER_FAILED;
    if (seed == nullptr) return RANDOM_SEED_FAILED;
    // A failed reseed keeps the state, though the context may hold a temporary key.
    if (!fReseedRandom(seed)) return RANDOM_SEED_FAILED;
    gRandomState = RANDOM_SEEDED_CARD;
    return RANDOM_OK;
}

uint32_t fGetRandom(uint8_t* out, uint32_t len) {
    if (gRandomState == RANDOM_UNSEEDED) {
        uint8_t seed[kLazySeedBytes] = {};
        WipeGuard wipe(seed, sizeof seed);
        if (!readSource(seed, sizeof seed)) return RANDOM_SEED_FAILED;
        // A card seed that came in meanwhile must not be replaced.
        if (gRandomState > RANDOM_SEEDED_URANDOM) return RANDOM_BAD_STATE;
        if (gRandomCtx == nullptr && cipherCtxAlloc(&gRandomCtx) != CIPHER_OK)
            return RANDOM_CIPHER_FAILED;
        if (!fReseedRandom(seed)) return RANDOM_SEED_FAILED;
        gRandomState = RANDOM_SEEDED_URANDOM;
    }

    // Every request starts on a fresh block; the tail of its last block is dropped.
    uint8_t block[kBlockBytes];
    WipeGuard wipe(block, sizeof block);
    for (uint32_t done = 0; done < len;) {
        const uint32_t status = drawTestedBlock(block);
        if (status != RANDOM_OK) return status;
        const uint32_t n = len - done < kBlockBytes ? len - done : kBlockBytes;
        std::memcpy(out + done, block, n);
        done += n;
    }
    return RANDOM_OK;
}

uint32_t fDoneRandom() {
    const uint32_t status = cipherCtxFree(&gRandomCtx);
    gRandomCtx = nullptr;
    gRandomState = RANDOM_UNSEEDED;
    return status;
}

void fFillURandom(uint8_t* buf, uint32_t len) {
    // Nothing to fill; zeroing len bytes at null would only fault.
    if (buf == nullptr) return;
    if (!readSource(buf, len)) std::memset(buf, 0, len);
}
