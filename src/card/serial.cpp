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

LONG exchange(LONG hCard, DWORD protocol, unsigned char* command, DWORD length, unsigned char* rx, DWORD* rxLen) {
    *rxLen = kApduBufferBytes;
    return SendAPDU(hCard, protocol, command, length, rx, rxLen);
}

}  // namespace

int obtainSpecificSSN(LONG hCard, DWORD activeProtocol, char* ssn, bool reversed) {
    if (ssn == nullptr) return SSN_NULL_BUFFER;
    unsigned char rx[kApduBufferBytes];
    DWORD rxLen = 0;

    unsigned char select[] = {0x00, 0xA4, 0x04, 0x00, 0x08, 0xF2, 0x4E, 0x51, 0x00, 0x37, 0x00, 0x0D, 0x01};
    LONG result = exchange(hCard, activeProtocol, select, sizeof select, rx, &rxLen);
    if (result != SCARD_S_SUCCESS) return SSN_NO_APPLET;
    if (!apduOk(result, rx, rxLen)) {
        // Only a refusal, never a transport error, is worth trying the second AID.
        select[sizeof select - 1] = 0x02;
        result = exchange(hCard, activeProtocol, select, sizeof select, rx, &rxLen);
        if (!apduOk(result, rx, rxLen)) return SSN_NO_APPLET;
    }

    unsigned char header[] = {0x80, 0x38, 0x10, 0x00, 0x00};
    result = exchange(hCard, activeProtocol, header, sizeof header, rx, &rxLen);
    if (!apduOk(result, rx, rxLen) || rxLen <= 4) return SSN_BAD_HEADER;
    const unsigned char code = rx[2];
    if (code != kLengthCodeHex && code != kLengthCodeText) return SSN_BAD_HEADER;

    unsigned char data[] = {0x80, 0x38, 0x20, 0x00, code};
    result = exchange(hCard, activeProtocol, data, sizeof data, rx, &rxLen);
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
