// "-ta": the Veltora Admin card's "ARM Applet", with 8-byte values.
#include <cstdio>
#include <cstring>
#include <vector>

#include "card/checksum.h"
#include "card/reader_walk.h"
#include "card/record_or_verify.h"
#include "card/report.h"
#include "card/serial.h"

namespace {

constexpr DWORD kValueBytes = kAdminApplet.valueBytes;
constexpr DWORD kValueResponse = kValueBytes + 2;
constexpr DWORD kSnOffset = 3;  // the SN's place in the select answer

}  // namespace

int doCheckSummTA(const char* readerName, const char* recordFile, int action) {
    printReaderHeader(readerName);
    const CardSession session(readerName);
    if (!session.ok()) return fail("card not found", kNotFoundOrPrinted);

    // Read before the applet is selected; an empty text means there was none.
    char ssn[kSsnBufferChars] = {};
    obtainSpecificSSN(session.card(), session.protocol(), ssn, false);

    // The answer's length is not checked: a short one leaves zeros, not stale bytes, as the SN.
    unsigned char rx[kApduBufferBytes] = {};
    DWORD rxLen = 0;
    if (!session.exchange(selectApplet(cardcmd::kAidAdmin), rx, &rxLen))
        return fail("ARM Applet not found", kNotFoundOrPrinted);
    unsigned char sn[kSnBytes];
    std::memcpy(sn, rx + kSnOffset, kSnBytes);
    if (ssn[0] == '\0') calculateSSN(sn, ssn);
    printSerialNumber(sn);
    std::printf(" (#SSN:%s) ", ssn);

    if (!session.exchange(commandBare(cardcmd::kAdminChecksum), rx, &rxLen, kValueResponse))
        return fail("'get PCS' error!", kNotFoundOrPrinted);
    const std::vector<unsigned char> cardPcs(rx, rx + kValueBytes);

    // The card's PCS is its stored checksum of the SN.
    if (!calculateChecksum(session, kAdminApplet, sn, kSnBytes, rx))
        return fail("'calculate cs of SN' error!", kNotFoundOrPrinted);
    if (std::memcmp(rx, cardPcs.data(), kValueBytes) != 0) return fail("cs_init error!", kInitMismatch);
    printInitOk();

    return recordOrVerify(session, kAdminApplet, action, readerName, recordFile, sn, ssn, cardPcs);
}

int enumerateTAReadersDoCS(const char* recordFile, int action) {
    return enumerateReaders(doCheckSummTA, recordFile, action);
}
