#include "base/hex.h"

#include <cstdio>

namespace {

constexpr char kDigits[] = "0123456789ABCDEF";

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

}  // namespace

void print_hex(const unsigned char* data, unsigned int len) {
    if (data == nullptr) return;
    for (unsigned int i = 0; i < len; ++i) std::printf("%02X", data[i]);
}

void print_hex_str(const unsigned char* data, unsigned int len, char* out) {
    if (data == nullptr || out == nullptr) return;
    for (unsigned int i = 0; i < len; ++i) {
        out[2 * i] = kDigits[data[i] >> 4];
        out[2 * i + 1] = kDigits[data[i] & 0x0F];
    }
    out[2 * static_cast<size_t>(len)] = '\0';
}

int hexToBytes(unsigned char* out, const char* text, int textLength) {
    if (textLength <= 0) return 0;
    if (textLength % 2 != 0) return -1;
    int written = 0;
    for (int i = 0; 2 * i < textLength; ++i) {
        // The low digit is looked at only after a valid high one, so a NUL
        // ends the conversion without a read past it.
        const int high = hexValue(text[2 * i]);
        if (high < 0) break;
        const int low = hexValue(text[2 * i + 1]);
        if (low < 0) break;
        out[i] = static_cast<unsigned char>(high * 16 + low);
        ++written;
    }
    return written;
}

bool hexEquals(const unsigned char* data, size_t len, const char* text) {
    for (size_t i = 0; i < len; ++i)
        if (text[2 * i] != kDigits[data[i] >> 4] || text[2 * i + 1] != kDigits[data[i] & 0x0F]) return false;
    return true;
}
