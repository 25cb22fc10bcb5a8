// The modes as data, shared by the set-up and the mode routines (internal).
#pragma once

#include <cstdint>

#include "cipher/cipher.h"

enum class CipherKind : uint8_t { kEcb, kCtr, kOfb, kCbc, kCfb, kMac };

// The IV a mode takes: none, exactly 4 bytes, a multiple of 8 of at least
// 8, or at least 8 bytes.
enum class CipherIvRule : uint8_t { kNone, kFour, kBlocks, kAtLeastBlock };

struct CipherMode {
    CipherKind kind;
    bool decrypt;
    bool segment;  // takes a segment length (for the MAC, its length) of 1..8
    CipherIvRule iv;
    uint8_t paddings;  // bit p set: padding p is accepted
};

// The row of a mode, or null for 0 and above CIPHER_MAC.
const CipherMode* cipherMode(uint32_t mode);
