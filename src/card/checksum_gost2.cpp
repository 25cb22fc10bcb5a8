// "-cs": the Veltora-2 GOST checksum applet.
#include <cstdio>
#include <cstring>
#include <vector>

#include "card/checksum.h"
#include "card/procedure.h"
#include "card/record.h"
#include "card/serial.h"

namespace {

constexpr DWORD kValueBytes = 32;
constexpr DWORD kValueResponse = kValueBytes + 2;

constexpr unsigned char kSelect[] = {0x00, 0xA4, 0x04, 0x00, 0x08, 0xF2, 0x4E, 0x51, 0x00, 0x37, 0x00, 0x01, 0x01};

// A fresh copy every time: a card's 6C xx answer rewrites the command's last
// byte, and that must not follow the procedure to the next card.
bool selectApplet(const CardSession& session, unsigned char* rx, DWORD* rxLen) {
    unsigned char command[sizeof kSelect];
    std::memcpy(command, kSelect, sizeof command);
    return exchangeOk(session, command, sizeof command, rx, rxLen);
}

// 'get info' with the given P2: 00 serial number, 03 init checksum, 0B PCS.
bool getInfo(const CardSession& session, unsigned char p2, unsigned char* rx, DWORD* rxLen, DWORD length) {
    unsigned char command[] = {0x80, 0x38, 0x20, p2, 0x00};
    return exchangeOk(session, command, sizeof command, rx, rxLen, length);
}

// 'calculate checksum' over data (the SN or an IV); the card answers 32 bytes.
bool calculate(const CardSession& session, const unsigned char* data, unsigned char dataLen, unsigned char* rx,
               DWORD* rxLen) {
    unsigned char command[38] = {0x80, 0x38, 0x40, 0x00, dataLen};
    std::memcpy(command + 5, data, dataLen);
    return exchangeOk(session, command, 5u + dataLen, rx, rxLen, kValueResponse);
}

}  // namespace

int doCheckSummPX2(const char* readerName, const char* recordFile, int action) {
    printReaderHeader(readerName);
    const CardSession session(readerName);
    if (!session.ok()) return fail("card not found", kNotFoundOrPrinted);

    unsigned char rx[kApduBufferBytes] = {};
    DWORD rxLen = 0;
    if (!selectApplet(session, rx, &rxLen)) return fail("Veltora-2 GOST not found", kNotFoundOrPrinted);

    // The SN is the 8 bytes just before the status word.
    if (!getInfo(session, 0x00, rx, &rxLen, 0) || rxLen < kSnBytes + 2)
        return fail("'get info' error!", kCommandFailed);
    unsigned char sn[kSnBytes];
    std::memcpy(sn, rx + rxLen - 2 - kSnBytes, kSnBytes);
    std::printf("#SN:");
    printHex(sn, kSnBytes);
    std::printf(" ");

    if (!getInfo(session, 0x03, rx, &rxLen, kValueResponse)) return fail("'get info' error!", kCommandFailed);
    std::vector<unsigned char> initCs(rx, rx + kValueBytes);

    char ssn[kSsnBufferChars] = {};
    if (obtainSpecificSSN(session.card(), session.protocol(), ssn, true) != SSN_OK) calculateSSN(sn, ssn);
    std::printf("(#SSN:%s) ", ssn);
    // The SSN applet may be the selected one now.
    selectApplet(session, rx, &rxLen);

    if (!getInfo(session, 0x0B, rx, &rxLen, kValueResponse)) return fail("'get info' error!", kCommandFailed);
    const std::vector<unsigned char> cardPcs(rx, rx + kValueBytes);

    if (!calculate(session, sn, kSnBytes, rx, &rxLen))
        return fail("'calculate checksum'(from SN) error!", kCommandFailed);
    if (std::memcmp(rx, initCs.data(), kValueBytes) != 0) return fail("cs_init error!", kInitMismatch);
    printInitOk();

    const ChecksumApplet applet{
        kValueBytes,
        {0x80, 0x3E, 0xD0, 0x00, 0x20},
        [&](const unsigned char* data, unsigned char* out) {
            return calculate(session, data, kValueBytes, out, &rxLen);
        },
        [](const char* file, const unsigned char* sn, std::vector<unsigned char>& iv, std::vector<unsigned char>& cs,
           std::vector<unsigned char>& pcs) { return findChecksumRecord(file, sn, kValueBytes, iv, cs, pcs); },
    };
    return recordOrVerify(session, applet, action, readerName, recordFile, sn, ssn, cardPcs);
}

int enumerateReadersDoCS(const char* recordFile, int action) {
    return enumerateReaders(doCheckSummPX2, recordFile, action);
}
