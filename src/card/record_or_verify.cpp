#include "card/record_or_verify.h"

#include "card/record.h"
#include "card/report.h"
#include "random/random.h"

namespace {

constexpr DWORD kSeedAnswerBytes = 32;

// Two seed answers, the second stored 32 bytes after the first, seed the
// generator. The same command goes out twice: a length the card asked for
// with 6C xx the first time stays in it.
int seedFromCard(const CardSession& session, const ChecksumApplet& applet, unsigned char* rx) {
    if (fGetRandomState() > RANDOM_SEEDED_URANDOM) return 0;
    Command seed = commandWithLe(applet.seed, applet.seedLe);
    DWORD firstLen = 0;
    LONG result = transmit(session.card(), session.protocol(), seed, rx, &firstLen);
    bool ok = apduOk(result, rx, firstLen);
    if (ok) {
        // The second answer is offered as much room as the first took, but
        // never more than is left of the buffer.
        DWORD secondLen = 0;
        const DWORD room = kApduBufferBytes - kSeedAnswerBytes;
        result = transmit(session.card(), session.protocol(), seed, rx + kSeedAnswerBytes, &secondLen,
                          firstLen < room ? firstLen : room);
        ok = apduOk(result, rx + kSeedAnswerBytes, secondLen);
    }
    if (!ok) return fail("'receive random seed' error!", kCommandFailed);
    if (fInitRandom(rx) != RANDOM_OK) return fail("'init random' error!", kMismatchOrRandom);
    return 0;
}

// The card's checksum for the file's IV against the record, then its PCS;
// only the first difference is reported.
int compareWithRecord(const std::vector<unsigned char>& cardCs, const std::vector<unsigned char>& fileCs,
                      const std::vector<unsigned char>& cardPcs, const std::vector<unsigned char>& filePcs) {
    if (cardCs != fileCs) return fail("cs_file error!", kMismatchOrRandom);
    if (cardPcs != filePcs) return fail("pcs_file error!", kMismatchOrRandom);
    printVerified();
    return kVerified;
}

}  // namespace

bool calculateChecksum(const CardSession& session, const ChecksumApplet& applet, const unsigned char* data,
                       DWORD dataLength, unsigned char* rx) {
    DWORD rxLen = 0;
    return session.exchange(commandWithData(applet.checksum, data, static_cast<unsigned char>(dataLength)), rx,
                            &rxLen, applet.valueBytes + 2);
}

int recordOrVerify(const CardSession& session, const ChecksumApplet& applet, int action, const char* readerName,
                   const char* recordFile, const unsigned char* sn, const char* ssn,
                   const std::vector<unsigned char>& cardPcs) {
    unsigned char rx[kApduBufferBytes];
    if (action == 1) {
        const int seeded = seedFromCard(session, applet, rx);
        if (seeded != 0) return seeded;
        std::vector<unsigned char> iv(applet.valueBytes, 0);
        if (fGetRandom(iv.data(), applet.valueBytes) != RANDOM_OK)
            return fail("'get random' error!", kMismatchOrRandom);
        if (!calculateChecksum(session, applet, iv.data(), applet.valueBytes, rx))
            return fail("'calculate checksum'(from rnd) error!", kRandomChecksumFailed);
        const std::vector<unsigned char> cs(rx, rx + applet.valueBytes);
        printRecord(sn, ssn, iv, cs, cardPcs);
        return kNotFoundOrPrinted;
    }
    if (action != 2) return kVerified;

    printVerifyHeader(readerName, sn, ssn);
    std::vector<unsigned char> iv, fileCs, filePcs;
    if (recordFile == nullptr ||
        findChecksumRecord(recordFile, sn, applet.valueBytes, iv, fileCs, filePcs) != RECORD_OK)
        return failNoRecord(recordFile, kNoRecord);
    if (!calculateChecksum(session, applet, iv.data(), applet.valueBytes, rx))
        return fail("'calculate checksum'(for IV from file) error!", kFileChecksumFailed);
    const std::vector<unsigned char> lastCs(rx, rx + applet.valueBytes);
    return compareWithRecord(lastCs, fileCs, cardPcs, filePcs);
}
