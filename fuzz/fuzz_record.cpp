// The checksum record lookup with 8- and 32-byte fields.
//
// Input: the card's 8-byte serial number, then the record file.
#undef NDEBUG  // the checks abort, so libFuzzer keeps the input, in every build
#include <cassert>
#include <filesystem>
#include <string>
#include <vector>

#include "card/record.h"
#include "support.h"

namespace {

// The field after the first tag at or after *at, as a found record must hold it; *at moves past its digits.
bool fieldMatches(const std::string& text, size_t* at, const std::string& tag, const std::vector<uint8_t>& value) {
    *at = text.find(tag, *at);
    if (*at == std::string::npos) return false;
    const std::string digits = text.substr(*at + tag.size(), 2 * value.size());
    *at += tag.size() + digits.size();
    return testsupport::fromHex(digits) == value;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 8) return 0;
    // In memory where /dev/shm allows: every input writes the file.
    static const testsupport::TempDir scratch(std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp");
    const std::string file(reinterpret_cast<const char*>(data) + 8, size - 8), path = scratch.file("records");
    testsupport::writeFile(path, file);
    const bool tooLarge = file.empty() || file.size() > kRecordFileMaxBytes;
    // The lookup reads the file as a zero-terminated text.
    const std::string text = file.substr(0, file.find('\0')), key = "#SN:" + testsupport::toHex(data, 8);
    for (size_t len : {8, 32}) {
        // Any sizes going in: the lookup sets them.
        std::vector<unsigned char> iv(3, 0xAA), cs(40, 0xAA), pcs;
        const int result = len == 8 ? doParsingCSFile(path.c_str(), data, iv, cs, pcs)
                                    : findChecksumRecord(path.c_str(), data, len, iv, cs, pcs);
        assert(tooLarge == (result == -2));
        if (tooLarge) continue;
        assert(result == 1 || (result <= -3 && result >= -9));
        assert((result == -3) == (text.find(key) == std::string::npos));
        // The vectors are sized before the search, whatever it finds.
        assert(iv.size() == len && cs.size() == len && pcs.size() == len);
        size_t at = text.find(key) + key.size();
        assert(result != 1 || (fieldMatches(text, &at, "#IV:", iv) && fieldMatches(text, &at, "#CS:", cs) &&
                               fieldMatches(text, &at, "#PCS:", pcs)));
    }
    return 0;
}
