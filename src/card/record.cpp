#include "card/record.h"

#include <cstdio>
#include <cstring>

#include "base/file_guard.h"

namespace {

// Converts the 2*len digits after the tag found at or after from; returns
// where the digits end, or null when the tag is missing (missingCode) or the
// digits are short (badCode) with *code set.
const char* readField(const char* from, const char* tag, std::vector<unsigned char>& out, int missingCode,
                      int badCode, int* code) {
    const char* at = std::strstr(from, tag);
    if (at == nullptr) {
        *code = missingCode;
        return nullptr;
    }
    const char* digits = at + std::strlen(tag);
    const int len = static_cast<int>(out.size());
    if (hexToBytes(out.data(), digits, 2 * len) != len) {
        *code = badCode;
        return nullptr;
    }
    return digits + 2 * len;
}

}  // namespace

int findChecksumRecord(const char* fileName, const unsigned char* sn, size_t fieldLen, std::vector<unsigned char>& iv,
                       std::vector<unsigned char>& cs, std::vector<unsigned char>& pcs) {
    FileGuard file(std::fopen(fileName, "rb"));
    if (!file) return RECORD_CANNOT_OPEN;
    // One byte more than the largest file, so the text is always terminated.
    std::vector<char> text(kRecordFileMaxBytes + 2, '\0');
    const size_t got = std::fread(text.data(), 1, kRecordFileMaxBytes + 1, file.get());
    file.reset();
    if (got == 0 || got > kRecordFileMaxBytes) return RECORD_EMPTY_OR_TOO_LARGE;

    char key[4 + 2 * 8 + 1];
    std::snprintf(key, sizeof key, "#SN:%02X%02X%02X%02X%02X%02X%02X%02X", sn[0], sn[1], sn[2], sn[3], sn[4], sn[5],
                  sn[6], sn[7]);
    iv.resize(fieldLen);
    cs.resize(fieldLen);
    pcs.resize(fieldLen);

    const char* found = std::strstr(text.data(), key);
    if (found == nullptr) return RECORD_NO_SN;
    // Each tag is searched from the end of the previous field to the end of
    // the text, so a tag missing from the card's line is taken from a later one.
    int code = RECORD_OK;
    const char* at = readField(found + std::strlen(key), "#IV:", iv, RECORD_NO_IV, RECORD_BAD_IV, &code);
    if (at != nullptr) at = readField(at, "#CS:", cs, RECORD_NO_CS, RECORD_BAD_CS, &code);
    if (at != nullptr) readField(at, "#PCS:", pcs, RECORD_NO_PCS, RECORD_BAD_PCS, &code);
    return code;
}

int doParsingCSFile(const char* fileName, const unsigned char* sn, std::vector<unsigned char>& iv,
                    std::vector<unsigned char>& cs, std::vector<unsigned char>& pcs) {
    return findChecksumRecord(fileName, sn, 8, iv, cs, pcs);
}
