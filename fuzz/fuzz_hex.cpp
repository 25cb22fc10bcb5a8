// hexToBytes on an exact-size copy of the text with no terminator after it, into exactly textLength / 2 bytes:
// a read or write past either trips AddressSanitizer.
//
// Input: textLength as a little-endian 16-bit signed number, then the text.
#undef NDEBUG  // the checks abort, so libFuzzer keeps the input, in every build
#include <algorithm>
#include <cassert>
#include <cstring>
#include <memory>
#include <string>

#include "base/hex.h"
#include "support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    int length = static_cast<int16_t>(data[0] | data[1] << 8);
    const std::string text(reinterpret_cast<const char*>(data) + 2, size - 2);
    std::unique_ptr<char[]> exact(new char[text.size()]);
    std::memcpy(exact.get(), text.data(), text.size());
    // Past the text only a NUL may stop the reading: without one, the caller's length has to stay inside it.
    if (text.find('\0') == std::string::npos && length > static_cast<int>(text.size())) length %= text.size() + 1;

    const int bytes = length > 0 ? length / 2 : 0;
    std::unique_ptr<unsigned char[]> out(new unsigned char[bytes]);
    const int result = hexToBytes(out.get(), exact.get(), length);
    // Whole pairs of digits from the start, by the tests' own reading; a NUL is no digit.
    const auto pairs = testsupport::fromHex(text.substr(0, length % 2 != 0 ? 0 : 2 * bytes));
    assert(result == (length <= 0 ? 0 : length % 2 != 0 ? -1 : static_cast<int>(pairs.size())));
    assert(std::equal(pairs.begin(), pairs.end(), out.get()));
    return 0;
}
