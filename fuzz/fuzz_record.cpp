// The checksum record lookup with 8- and 32-byte fields.
//
// Input: the card's 8-byte serial number, then the record file.
#include <cstring>
#include <string>
#include <vector>

#include "card/record.h"
#include "fuzz_input.h"

namespace {

// The field after the first tag at or after *at, as a found record must
// hold it; *at moves past its digits.
bool fieldMatches(const std::string& text, size_t* at, const char* tag, const std::vector<unsigned char>& value) {
    *at = text.find(tag, *at);
    if (*at == std::string::npos) return false;
    *at += std::strlen(tag);
    for (unsigned char byte : value) {
        if (*at + 2 > text.size() || digit(text[*at]) < 0 || digit(text[*at + 1]) < 0 ||
            digit(text[*at]) * 16 + digit(text[*at + 1]) != byte)
            return false;
        *at += 2;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 8) return 0;
    const uint8_t* sn = data;
    static const std::string path = std::string(scratchDir()) + "/records";
    writeFile(path, data + 8, size - 8);
    const bool tooLarge = size - 8 == 0 || size - 8 > kRecordFileMaxBytes;
    // The lookup reads the file as a zero-terminated text.
    const std::string text(reinterpret_cast<const char*>(data + 8),
                           strnlen(reinterpret_cast<const char*>(data + 8), size - 8));
    char key[21];
    std::snprintf(key, sizeof key, "#SN:%02X%02X%02X%02X%02X%02X%02X%02X", sn[0], sn[1], sn[2], sn[3], sn[4], sn[5],
                  sn[6], sn[7]);

    for (size_t len : {8, 32}) {
        // Any sizes going in: the lookup sets them.
        std::vector<unsigned char> iv(3, 0xAA), cs(40, 0xAA), pcs;
        const int result = len == 8 ? doParsingCSFile(path.c_str(), sn, iv, cs, pcs)
                                    : findChecksumRecord(path.c_str(), sn, len, iv, cs, pcs);
        if (tooLarge) {
            FUZZ_CHECK(result == RECORD_EMPTY_OR_TOO_LARGE);
            continue;
        }
        FUZZ_CHECK(result == RECORD_OK || (result <= RECORD_NO_SN && result >= RECORD_BAD_PCS));
        FUZZ_CHECK((result == RECORD_NO_SN) == (text.find(key) == std::string::npos));
        // The vectors are sized before the search, whatever it finds.
        FUZZ_CHECK(iv.size() == len && cs.size() == len && pcs.size() == len);
        if (result != RECORD_OK) continue;
        size_t at = text.find(key) + std::strlen(key);
        FUZZ_CHECK(fieldMatches(text, &at, "#IV:", iv) && fieldMatches(text, &at, "#CS:", cs) &&
                   fieldMatches(text, &at, "#PCS:", pcs));
    }
    return 0;
}
