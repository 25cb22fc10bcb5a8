// "-cs": the Veltora-2 GOST checksum applet.
#include <cstdio>
#include <cstring>
#include <vector>

#include "card/checksum.h"
#include "card/reader_walk.h"
#include "card/record_or_verify.h"
#include "card/report.h"
#include "card/serial.h"

namespace {

constexpr DWORD kValueBytes = kGost2Applet.valueBytes;
constexpr DWORD kValueResponse = kValueBytes + 2;

}  // namespace

int doCheckSummPX2(const char* readerName, const char* recordFile, int action) {
    printReaderHeader(readerName);
    const CardSession session(readerName);
    if (!session.ok()) return fail("card not found", kNotFoundOrPrinted);

    unsigned char rx[kApduBufferBytes] = {};
    DWORD rxLen = 0;
    if (!session.exchange(selectApplet(cardcmd::kAidGost2), rx, &rxLen))
        return fail("Veltora-2 GOST not found", kNotFoundOrPrinted);

    // The SN is the 8 bytes just before the status word.
    if (!session.exchange(commandWithLe(cardcmd::kGost2GetSn, 0x00), rx, &rxLen) || rxLen < kSnBytes + 2)
        return fail("'get info' error!", kCommandFailed);
    unsigned char sn[kSnBytes];
    std::memcpy(sn, rx + rxLen - 2 - kSnBytes, kSnBytes);
    printSerialNumber(sn);
    std::printf(" ");

    if (!session.exchange(commandWithLe(cardcmd::kGost2GetInitChecksum, 0x00), rx, &rxLen, kValueResponse))
        return fail("'get info' error!", kCommandFailed);
    const std::vector<unsigned char> initCs(rx, rx + kValueBytes);

    char ssn[kSsnBufferChars] = {};
    if (obtainSpecificSSN(session.card(), session.protocol(), ssn, true) != SSN_OK) calculateSSN(sn, ssn);
    std::printf("(#SSN:%s) ", ssn);
    // The SSN applet may be the selected one now; the answer does not matter.
    session.exchange(selectApplet(cardcmd::kAidGost2), rx, &rxLen);

    if (!session.exchange(commandWithLe(cardcmd::kGost2GetPcs, 0x00), rx, &rxLen, kValueResponse))
        return fail("'get info' error!", kCommandFailed);
    const std::vector<unsigned char> cardPcs(rx, rx + kValueBytes);

    if (!calculateChecksum(session, kGost2Applet, sn, kSnBytes, rx))
        return fail("'calculate checksum'(from SN) error!", kCommandFailed);
    if (std::memcmp(rx, initCs.data(), kValueBytes) != 0) return fail("cs_init error!", kInitMismatch);
    printInitOk();

    return recordOrVerify(session, kGost2Applet, action, readerName, recordFile, sn, ssn, cardPcs);
}

int enumerateReadersDoCS(const char* recordFile, int action) {
    return enumerateReaders(doCheckSummPX2, recordFile, action);
}
