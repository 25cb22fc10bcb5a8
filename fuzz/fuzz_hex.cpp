// hexToBytes on an exact-size copy of the text with no terminator after it, into exactly textLength / 2 bytes:
// a read or write past either trips AddressSanitizer.
//
// Input: textLength as a little-endian 16-bit signed number, then the text.
#include <cstring>
#include <memory>

#include "base/hex.h"
#include "fuzz_input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    int length = static_cast<int16_t>(data[0] | data[1] << 8);
    const int textSize = static_cast<int>(size - 2);
    std::unique_ptr<char[]> text(new char[textSize]);
    std::memcpy(text.get(), data + 2, textSize);
    // Past the text only a NUL may stop the reading: without one, the caller's length has to stay inside it.
    if (std::memchr(text.get(), '\0', textSize) == nullptr && length > textSize) length %= textSize + 1;

    const int bytes = length > 0 ? length / 2 : 0;
    std::unique_ptr<unsigned char[]> out(new unsigned char[bytes]);
    const int result = hexToBytes(out.get(), text.get(), length);
    // Whole pairs of digits from the start; a NUL is no digit, so this stops at the terminator too.
    int pairs = 0;
    while (length % 2 == 0 && pairs < bytes && digit(text[2 * pairs]) >= 0 && digit(text[2 * pairs + 1]) >= 0)
        ++pairs;
    FUZZ_CHECK(result == (length <= 0 ? 0 : length % 2 != 0 ? -1 : pairs));
    for (int i = 0; i < pairs; ++i) FUZZ_CHECK(out[i] == digit(text[2 * i]) * 16 + digit(text[2 * i + 1]));
    return 0;
}
