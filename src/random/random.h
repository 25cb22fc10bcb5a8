// The process-wide random generator: counter-mode keystream of the cipher,
// keyed from /dev/urandom (lazily, on the first request) or from a seed that
// a card supplies, mixed with /dev/urandom. Every 32-byte keystream block,
// while seeding and while producing output, must pass a statistical quality
// test; a failing block is thrown away, at most five times in a row.
//
// Single-threaded use only: the generator's two globals take no locks.
#pragma once

#include <cstdint>

// Values of fGetRandomState.
enum : uint32_t {
    RANDOM_UNSEEDED = 0,
    RANDOM_SEEDED_URANDOM = 1,  // from /dev/urandom alone
    RANDOM_SEEDED_CARD = 2,     // from a caller's seed mixed with /dev/urandom
};

// Results of fInitRandom and fGetRandom.
enum : uint32_t {
    RANDOM_OK = 0,
    RANDOM_BAD_STATE = 1,       // init: state above 2; get: a seed arrived while /dev/urandom was read
    RANDOM_SEED_FAILED = 2,     // /dev/urandom unreadable, null seed, or no keystream passed while seeding
    RANDOM_QUALITY_FAILED = 3,  // five output blocks in a row failed the quality test
    RANDOM_CIPHER_FAILED = 4,   // context allocation failed or the cipher reported an error
};

// The current seeding state (RANDOM_UNSEEDED, _SEEDED_URANDOM or _SEEDED_CARD).
uint32_t fGetRandomState();
// Keys the generator afresh from seed (at least 36 bytes; only the first 36 are
// used) mixed with /dev/urandom; RANDOM_OK and state 2, or a RANDOM_* failure.
uint32_t fInitRandom(const uint8_t* seed);
// Writes len tested random bytes to out, seeding from /dev/urandom first if
// never seeded; RANDOM_OK (also for len 0) or a RANDOM_* failure.
uint32_t fGetRandom(uint8_t* out, uint32_t len);
// Releases the generator and returns it to state 0; the result of cipherCtxFree
// (CIPHER_OK, or CIPHER_NULL_CONTEXT when there was nothing to release).
uint32_t fDoneRandom();
// Fills buf with len bytes of /dev/urandom, or with zeros when reading fails;
// returns nothing and leaves the generator alone. A null buf is left alone.
void fFillURandom(uint8_t* buf, uint32_t len);

// For tests.
// True when the 32-byte block passes the quality test.
bool fRandomBlockPasses(const uint8_t block[32]);
// Reads entropy from path instead of /dev/urandom; null restores /dev/urandom.
// A file source that ends before a read is complete fails like an unreadable one.
void fSetRandomSourceForTests(const char* path);
