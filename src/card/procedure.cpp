#include "card/procedure.h"

#include <cstdio>
#include <cstring>
#include <ctime>

#include "base/timestamp.h"
#include "card/record.h"
#include "random/random.h"

namespace {

constexpr DWORD kSeedAnswerBytes = 32;

}  // namespace

void printHex(const unsigned char* data, size_t len) {
    for (size_t i = 0; i < len; ++i) std::printf("%02X", data[i]);
}

// Each reader's line and verdict is out as soon as it is printed: a log
// shows which card a run is at, and a run stopped midway keeps it.
void printReaderHeader(const char* readerName) {
    std::printf("\r\n %s : ", readerName);
    std::fflush(stdout);
}

void printInitOk() {
    std::puts("cs_init - Ok!\r");
    std::fflush(stdout);
}

int fail(const char* message, int code) {
    std::printf("%s", message);
    std::fflush(stdout);
    return code;
}

void printVerifyHeader(const char* readerName, const unsigned char* sn, const char* ssn) {
    std::printf(" %s : #SN:", readerName);
    printHex(sn, 8);
    std::printf(" (#SSN:%s) ", ssn);
}

int failNoRecord(const char* recordFile, int code) {
    std::printf("SN found error in file %s!", recordFile != nullptr ? recordFile : "(null)");
    std::fflush(stdout);
    return code;
}

int compareWithRecord(const std::vector<unsigned char>& cardCs, const std::vector<unsigned char>& fileCs,
                      const std::vector<unsigned char>& cardPcs, const std::vector<unsigned char>& filePcs,
                      int mismatchCode) {
    if (cardCs != fileCs) return fail("cs_file error!", mismatchCode);
    if (cardPcs != filePcs) return fail("pcs_file error!", mismatchCode);
    std::puts("cs_pcs_file - Ok!\r");
    std::fflush(stdout);
    return 0;
}

bool exchangeOk(const CardSession& session, unsigned char* command, DWORD commandLength, unsigned char* rx,
                DWORD* rxLen, DWORD length) {
    const LONG result = session.transmit(command, commandLength, rx, rxLen);
    return apduOk(result, rx, *rxLen) && (length == 0 || *rxLen == length);
}

int seedFromCard(const CardSession& session, unsigned char* seedCommand, DWORD seedCommandLength, unsigned char* rx) {
    if (fGetRandomState() > RANDOM_SEEDED_URANDOM) return 0;
    DWORD firstLen = kApduBufferBytes;
    LONG result = SendAPDU(session.card(), session.protocol(), seedCommand, seedCommandLength, rx, &firstLen);
    bool ok = apduOk(result, rx, firstLen);
    if (ok) {
        // The second answer goes right after the first 32 bytes, offered as
        // much room as the first answer took, but never past the buffer.
        DWORD secondLen =
            firstLen < kApduBufferBytes - kSeedAnswerBytes ? firstLen : kApduBufferBytes - kSeedAnswerBytes;
        result = SendAPDU(session.card(), session.protocol(), seedCommand, seedCommandLength, rx + kSeedAnswerBytes,
                          &secondLen);
        ok = apduOk(result, rx + kSeedAnswerBytes, secondLen);
    }
    if (!ok) return fail("'receive random seed' error!", kCommandFailed);
    if (fInitRandom(rx) != RANDOM_OK) return fail("'init random' error!", kMismatchOrRandom);
    return 0;
}

void printRecord(const unsigned char* sn, const char* ssn, const std::vector<unsigned char>& iv,
                 const std::vector<unsigned char>& cs, const std::vector<unsigned char>& pcs) {
    std::printf("#SN:");
    printHex(sn, 8);
    std::printf("(#SSN:%s)", ssn);
    std::printf("#IV:");
    printHex(iv.data(), iv.size());
    std::printf("#CS:");
    printHex(cs.data(), cs.size());
    std::printf("#PCS:");
    printHex(pcs.data(), pcs.size());
    char stamp[80];
    formatTimeStamp(std::time(nullptr), stamp, sizeof stamp);
    std::printf("#GEN_TIME:%s", stamp);
    std::puts("\r");
    std::fflush(stdout);
}

int recordOrVerify(const CardSession& session, const ChecksumApplet& applet, int action, const char* readerName,
                   const char* recordFile, const unsigned char* sn, const char* ssn,
                   const std::vector<unsigned char>& cardPcs) {
    unsigned char rx[kApduBufferBytes];
    if (action == 1) {
        std::vector<unsigned char> seed = applet.seedCommand;
        const int seeded = seedFromCard(session, seed.data(), static_cast<DWORD>(seed.size()), rx);
        if (seeded != 0) return seeded;
        std::vector<unsigned char> iv(applet.valueBytes, 0);
        if (fGetRandom(iv.data(), applet.valueBytes) != RANDOM_OK)
            return fail("'get random' error!", kMismatchOrRandom);
        if (!applet.calculate(iv.data(), rx))
            return fail("'calculate checksum'(from rnd) error!", kRandomChecksumFailed);
        const std::vector<unsigned char> cs(rx, rx + applet.valueBytes);
        printRecord(sn, ssn, iv, cs, cardPcs);
        return kNotFoundOrPrinted;
    }
    if (action != 2) return kVerified;

    printVerifyHeader(readerName, sn, ssn);
    std::vector<unsigned char> iv, fileCs, filePcs;
    if (recordFile == nullptr || applet.findRecord(recordFile, sn, iv, fileCs, filePcs) != RECORD_OK)
        return failNoRecord(recordFile, kNoRecord);
    if (!applet.calculate(iv.data(), rx))
        return fail("'calculate checksum'(for IV from file) error!", kFileChecksumFailed);
    const std::vector<unsigned char> lastCs(rx, rx + applet.valueBytes);
    return compareWithRecord(lastCs, fileCs, cardPcs, filePcs, kMismatchOrRandom);
}

namespace {

// The reader names PC/SC lists, copied out of its own allocation (sized to
// the list, however long) and ended by two NULs; empty when listing fails.
std::vector<char> listReaders(SCARDCONTEXT context) {
    char* names = nullptr;
    DWORD length = SCARD_AUTOALLOCATE;
    std::vector<char> list;
    if (SCardListReaders(context, nullptr, reinterpret_cast<char*>(&names), &length) == SCARD_S_SUCCESS &&
        names != nullptr) {
        list.assign(names, names + length);
        SCardFreeMemory(context, names);
    }
    list.insert(list.end(), 2, '\0');
    return list;
}

}  // namespace

int enumerateReaders(int (*procedure)(const char*, const char*, int), const char* recordFile, int action) {
    SCARDCONTEXT context = 0;
    if (SCardEstablishContext(SCARD_SCOPE_USER, nullptr, nullptr, &context) != SCARD_S_SUCCESS) return 0;
    const std::vector<char> readers = listReaders(context);
    SCardReleaseContext(context);
    int result = 0;
    if (readers[0] == '\0') std::printf("\r\nReaders list is empty");
    for (const char* name = readers.data(); *name != '\0'; name += std::strlen(name) + 1) {
        // Each reader is visited; only the last one's result is kept.
        result = procedure(name, recordFile, action);
    }
    std::puts("\r");
    std::fflush(stdout);
    return result;
}
