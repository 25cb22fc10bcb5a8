// hexToBytes on an exact-size copy of the text with no terminator after it,
// into exactly textLength / 2 bytes: a read or write past either trips
// AddressSanitizer.
//
// Input: textLength as a little-endian 16-bit signed number, then the text.
#include <cstring>
#include <memory>

#include "card/record.h"
#include "fuzz_input.h"

namespace {

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input in{data, size};
    int length = static_cast<int16_t>(in.u16());
    const int textSize = static_cast<int>(in.size);
    std::unique_ptr<char[]> text(new char[in.size]);
    std::copy(in.data, in.data + in.size, text.get());
    // Past the text only a NUL may stop the reading: without one, the
    // caller's length has to stay inside it.
    if (std::memchr(text.get(), '\0', in.size) == nullptr && length > textSize) length %= textSize + 1;

    const int bytes = length > 0 ? length / 2 : 0;
    std::unique_ptr<unsigned char[]> out(new unsigned char[bytes]);
    const int result = hexToBytes(out.get(), text.get(), length);
    if (length <= 0) {
        FUZZ_CHECK(result == 0);
    } else if (length % 2 != 0) {
        FUZZ_CHECK(result == -1);
    } else {
        // Whole pairs of digits from the start; a NUL is no digit, so this
        // stops at the terminator too.
        int pairs = 0;
        while (pairs < bytes && digit(text[2 * pairs]) >= 0 && digit(text[2 * pairs + 1]) >= 0) ++pairs;
        FUZZ_CHECK(result == pairs);
        for (int i = 0; i < pairs; ++i)
            FUZZ_CHECK(out[i] == digit(text[2 * i]) * 16 + digit(text[2 * i + 1]));
    }
    return 0;
}
