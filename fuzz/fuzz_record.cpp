// The checksum record lookup with 8- and 32-byte fields.
//
// Input: the card's 8-byte serial number, then the record file.
#include <cstring>
#include <string>
#include <vector>

#include "card/record.h"
#include "fuzz_input.h"

namespace {

// The field after the first tag at or after *at, as a found record must hold it; *at moves past its digits.
bool fieldMatches(const std::string& text, size_t* at, const std::string& tag, const std::vector<uint8_t>& value) {
    *at = text.find(tag, *at);
    for (size_t i = 0; *at != std::string::npos && i < value.size(); ++i) {
        const size_t d = *at + tag.size() + 2 * i;
        if (d + 2 > text.size() || digit(text[d]) < 0 || digit(text[d + 1]) < 0 ||
            digit(text[d]) * 16 + digit(text[d + 1]) != value[i])
            return false;
    }
    return *at != std::string::npos && (*at += tag.size() + 2 * value.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 8) return 0;
    static const std::string path = std::string(scratchDir()) + "/records";
    writeFile(path, data + 8, size - 8);
    const bool tooLarge = size - 8 == 0 || size - 8 > kRecordFileMaxBytes;
    // The lookup reads the file as a zero-terminated text.
    const char* file = reinterpret_cast<const char*>(data + 8);
    const std::string text(file, strnlen(file, size - 8));
    char key[21];
    std::snprintf(key, sizeof key, "#SN:%02X%02X%02X%02X%02X%02X%02X%02X", data[0], data[1], data[2], data[3], data[4],
                  data[5], data[6], data[7]);
    for (size_t len : {8, 32}) {
        // Any sizes going in: the lookup sets them.
        std::vector<unsigned char> iv(3, 0xAA), cs(40, 0xAA), pcs;
        const int result = len == 8 ? doParsingCSFile(path.c_str(), data, iv, cs, pcs)
                                    : findChecksumRecord(path.c_str(), data, len, iv, cs, pcs);
        FUZZ_CHECK(tooLarge == (result == RECORD_EMPTY_OR_TOO_LARGE));
        if (tooLarge) continue;
        FUZZ_CHECK(result == RECORD_OK || (result <= RECORD_NO_SN && result >= RECORD_BAD_PCS));
        FUZZ_CHECK((result == RECORD_NO_SN) == (text.find(key) == std::string::npos));
        // The vectors are sized before the search, whatever it finds.
        FUZZ_CHECK(iv.size() == len && cs.size() == len && pcs.size() == len);
        size_t at = text.find(key) + std::strlen(key);
        FUZZ_CHECK(result != RECORD_OK || (fieldMatches(text, &at, "#IV:", iv) && fieldMatches(text, &at, "#CS:", cs) &&
                                           fieldMatches(text, &at, "#PCS:", pcs)));
    }
    return 0;
}
