#include "card/serial.h"

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "card/apdu.h"

namespace {

constexpr unsigned char kLengthCodeHex = 0xA0;   // four data bytes, shown as hex
constexpr unsigned char kLengthCodeText = 0xAC;  // a zero-terminated text
constexpr size_t kSsnMaxChars = kSsnBufferChars - 1;

// Reflected CRC-32 (ISO/IEC 3309, ITU-T V.42), table built on first use.
struct Crc32Table {
    uint32_t t[256];
    Crc32Table() {
        for (uint32_t i = 0; i < 256; ++i) {
            uint32_t c = i;
            for (int k = 0; k < 8; ++k) c = (c & 1) ? (c >> 1) ^ 0xEDB88320u : c >> 1;
            t[i] = c;
        }
    }
};

uint32_t crc32(const unsigned char* data, size_t len) {
    static const Crc32Table table;
    uint32_t crc = 0xFFFFFFFFu;
    for (size_t i = 0; i < len; ++i) crc = table.t[(crc ^ data[i]) & 0xFF] ^ (crc >> 8);
    return crc ^ 0xFFFFFFFFu;
}

}  // namespace

int obtainSpecificSSN(LONG hCard, DWORD activeProtocol, char* ssn, bool reversed) {
    if (ssn == nullptr) return SSN_NULL_BUFFER;
    unsigned char rx[kApduBufferBytes];
    DWORD rxLen = 0;

    Command select = selectApplet(cardcmd::kAidSsn);
    LONG result = transmit(hCard, activeProtocol, select, rx, &rxLen);
    if (result != SCARD_S_SUCCESS) return SSN_NO_APPLET;
    if (!apduOk(result, rx, rxLen)) {
        // Only a refusal, never a transport error, is worth trying the second AID.
        select = selectApplet(cardcmd::kAidSsnAlt);
        result = transmit(hCard, activeProtocol, select, rx, &rxLen);
        if (!apduOk(result, rx, rxLen)) return SSN_NO_APPLET;
    }

    Command header = commandWithLe(cardcmd::kSsnLengthCode, 0x00);
    result = transmit(hCard, activeProtocol, header, rx, &rxLen);
    if (!apduOk(result, rx, rxLen) || rxLen <= 4) return SSN_BAD_HEADER;
    const unsigned char code = rx[2];
    if (code != kLengthCodeHex && code != kLengthCodeText) return SSN_BAD_HEADER;

    Command data = commandWithLe(cardcmd::kSsnData, code);
    result = transmit(hCard, activeProtocol, data, rx, &rxLen);
    if (!apduOk(result, rx, rxLen) || rxLen != DWORD{code} + 2) return SSN_BAD_DATA;

    if (code == kLengthCodeHex) {
        if (reversed) std::snprintf(ssn, kSsnBufferChars, "%02X%02X%02X%02X", rx[3], rx[2], rx[1], rx[0]);
        else std::snprintf(ssn, kSsnBufferChars, "%02X%02X%02X%02X", rx[0], rx[1], rx[2], rx[3]);
        return SSN_OK;
    }
    // The text ends at its first zero byte, looked for only within the data.
    const void* end = std::memchr(rx, 0, code);
    const size_t textLen = end != nullptr ? static_cast<size_t>(static_cast<const unsigned char*>(end) - rx) : code;
    if (textLen > kSsnMaxChars) return SSN_BAD_DATA;
    std::memcpy(ssn, rx, textLen);
    ssn[textLen] = '\0';
    return SSN_OK;
}

void calculateSSN(unsigned char* sn, char* ssn) {
    if (sn == nullptr || ssn == nullptr) return;
    std::snprintf(ssn, kSsnBufferChars, "%08X", static_cast<unsigned>(crc32(sn, kSnBytes)));
}
