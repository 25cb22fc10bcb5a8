// "-ta": the Veltora Admin card's "ARM Applet", with 8-byte values.
#include <cstdio>
#include <cstring>
#include <vector>

#include "card/checksum.h"
#include "card/procedure.h"
#include "card/record.h"
#include "card/serial.h"

namespace {

constexpr DWORD kValueBytes = 8;
constexpr DWORD kValueResponse = kValueBytes + 2;
constexpr DWORD kSnOffset = 3;  // the SN's place in the select answer

bool calculate(const CardSession& session, const unsigned char* data, unsigned char* rx, DWORD* rxLen) {
    unsigned char command[38] = {0x80, 0x8E, 0x00, 0x00, kValueBytes};
    std::memcpy(command + 5, data, kValueBytes);
    return exchangeOk(session, command, 5 + kValueBytes, rx, rxLen, kValueResponse);
}

}  // namespace

int doCheckSummTA(const char* readerName, const char* recordFile, int action) {
    printReaderHeader(readerName);
    const CardSession session(readerName);
    if (!session.ok()) return fail("card not found", kNotFoundOrPrinted);

    // Read before the applet is selected; an empty text means there was none.
    char ssn[kSsnBufferChars] = {};
    obtainSpecificSSN(session.card(), session.protocol(), ssn, false);

    unsigned char rx[kApduBufferBytes];
    DWORD rxLen = 0;
    unsigned char select[] = {0x00, 0xA4, 0x04, 0x00, 0x08, 0xF2, 0x4E, 0x51, 0x00, 0x37, 0x00, 0x10, 0x01};
    // The answer's length is not checked: a short one leaves zeros, not stale bytes, as the SN.
    std::memset(rx, 0, sizeof rx);
    if (!exchangeOk(session, select, sizeof select, rx, &rxLen))
        return fail("ARM Applet not found", kNotFoundOrPrinted);
    unsigned char sn[kSnBytes];
    std::memcpy(sn, rx + kSnOffset, kSnBytes);
    if (ssn[0] == '\0') calculateSSN(sn, ssn);
    std::printf("#SN:");
    printHex(sn, kSnBytes);
    std::printf(" (#SSN:%s) ", ssn);

    unsigned char getPcs[] = {0x80, 0x8E, 0x00, 0x00};
    if (!exchangeOk(session, getPcs, sizeof getPcs, rx, &rxLen, kValueResponse))
        return fail("'get PCS' error!", kNotFoundOrPrinted);
    const std::vector<unsigned char> cardPcs(rx, rx + kValueBytes);

    // The card's PCS is its stored checksum of the SN.
    if (!calculate(session, sn, rx, &rxLen)) return fail("'calculate cs of SN' error!", kNotFoundOrPrinted);
    if (std::memcmp(rx, cardPcs.data(), kValueBytes) != 0) return fail("cs_init error!", kInitMismatch);
    printInitOk();

    const ChecksumApplet applet{
        kValueBytes,
        {0x80, 0x8C, 0x00, 0x00, 0x00},
        [&](const unsigned char* data, unsigned char* out) { return calculate(session, data, out, &rxLen); },
        doParsingCSFile,
    };
    return recordOrVerify(session, applet, action, readerName, recordFile, sn, ssn, cardPcs);
}

int enumerateTAReadersDoCS(const char* recordFile, int action) {
    return enumerateReaders(doCheckSummTA, recordFile, action);
}
