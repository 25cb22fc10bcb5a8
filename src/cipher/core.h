// The 64-bit block transform shared by the mode routines (internal).
#pragma once

#include <cstdint>

namespace cipher_core {

// Loads the 32-byte key as eight big-endian words K1..K8.
void loadKey(uint32_t key[8], const uint8_t* bytes);

// One block in the byte order of the standard: bytes 0..3 are the high
// half a1, bytes 4..7 the low half a0, each big-endian. in may equal out.
void encryptBlock(const uint32_t key[8], const uint8_t in[8], uint8_t out[8]);
void decryptBlock(const uint32_t key[8], const uint8_t in[8], uint8_t out[8]);
// The block as one big-endian 64-bit number, for the MAC, which works on numbers.
uint64_t encryptNumber(const uint32_t key[8], uint64_t block);

}  // namespace cipher_core
