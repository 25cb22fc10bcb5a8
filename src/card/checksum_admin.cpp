// "-ta": the Veltora Admin card's "ARM Applet", with 8-byte values.
#include <cstdio>
#include <cstring>
#include <vector>

#include "card/checksum.h"
#include "card/procedure.h"
#include "card/record.h"
#include "card/serial.h"
#include "random/random.h"

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
    std::printf("\r\n %s : ", readerName);
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
    if (!exchangeOk(session, select, sizeof select, rx, &rxLen)) return fail("ARM Applet not found", kNotFoundOrPrinted);
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
    std::puts("cs_init - Ok!\r");

    if (action == 1) {
        unsigned char seed[] = {0x80, 0x8C, 0x00, 0x00, 0x00};
        const int seeded = seedFromCard(session, seed, sizeof seed, rx);
        if (seeded != 0) return seeded;
        std::vector<unsigned char> iv(kValueBytes, 0);
        if (fGetRandom(iv.data(), kValueBytes) != RANDOM_OK) return fail("'get random' error!", kMismatchOrRandom);
        if (!calculate(session, iv.data(), rx, &rxLen))
            return fail("'calculate checksum'(from rnd) error!", kRandomChecksumFailed);
        const std::vector<unsigned char> cs(rx, rx + kValueBytes);
        printRecord(sn, ssn, iv, cs, cardPcs);
        return kNotFoundOrPrinted;
    }
    if (action != 2) return kVerified;

    printVerifyHeader(readerName, sn, ssn);
    std::vector<unsigned char> iv, fileCs, filePcs;
    if (recordFile == nullptr || doParsingCSFile(recordFile, sn, iv, fileCs, filePcs) != RECORD_OK)
        return failNoRecord(recordFile, kNoRecord);
    if (!calculate(session, iv.data(), rx, &rxLen))
        return fail("'calculate checksum'(for IV from file) error!", kFileChecksumFailed);
    const std::vector<unsigned char> lastCs(rx, rx + kValueBytes);
    return compareWithRecord(lastCs, fileCs, cardPcs, filePcs, kMismatchOrRandom);
}

int enumerateTAReadersDoCS(const char* recordFile, int action) {
    return enumerateReaders(doCheckSummTA, recordFile, action);
}
