// Shared between the context and the mode routines (internal).
#pragma once

#include <cstdint>

#include "cipher/cipher.h"

inline bool isCounterMode(uint32_t mode) { return mode == CIPHER_CTR_ENCRYPT || mode == CIPHER_CTR_DECRYPT; }

// Sizes of the owned buffers: fixed for the counter modes, ivLen otherwise.
uint32_t cipherIvBytes(const CipherCtx* ctx);
uint32_t cipherRegisterBytes(const CipherCtx* ctx);
