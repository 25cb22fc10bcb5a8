// Pieces shared by the two checksum procedures (internal).
#pragma once

#include <cstddef>
#include <functional>
#include <vector>

#include "card/apdu.h"

// Results of the checksum procedures (deliberately not unique: the entry
// point only tells negative from non-negative).
enum {
    kNotFoundOrPrinted = 1,      // card or applet not found, or a record printed
    kVerified = 0,               // verified, or an action other than 1 and 2
    kCommandFailed = -1,         // a card command failed (-cs), or the seed request
    kInitMismatch = -2,          // cs_init mismatch
    kMismatchOrRandom = -3,      // random generator failure, checksum or PCS mismatch
    kRandomChecksumFailed = -4,  // checksum for the random IV failed
    kNoRecord = -5,              // no usable record in the file
    kFileChecksumFailed = -6,    // checksum for the file's IV failed
};

// Prints bytes as upper-case hex, two digits a byte.
void printHex(const unsigned char* data, size_t len);

// "\r\n <reader> : ", the start of each reader's line.
void printReaderHeader(const char* readerName);
// "cs_init - Ok!\r" and a line feed.
void printInitOk();

// Prints message (no line end) and returns code: every failure of a procedure.
int fail(const char* message, int code);

// The verify line's start: " <reader> : #SN:<sn> (#SSN:<ssn>) ".
void printVerifyHeader(const char* readerName, const unsigned char* sn, const char* ssn);

// "SN found error in file ...!" for a record that cannot be used.
int failNoRecord(const char* recordFile, int code);

// The card's checksum for the file's IV against the record, then its PCS;
// only the first difference is reported. 0 with "cs_pcs_file - Ok!", or mismatchCode.
int compareWithRecord(const std::vector<unsigned char>& cardCs, const std::vector<unsigned char>& fileCs,
                      const std::vector<unsigned char>& cardPcs, const std::vector<unsigned char>& filePcs,
                      int mismatchCode);

// One exchange that must succeed with exactly `length` response bytes (0: any length).
bool exchangeOk(const CardSession& session, unsigned char* command, DWORD commandLength, unsigned char* rx,
                DWORD* rxLen, DWORD length = 0);

// Asks the card for two seed answers, the second stored 32 bytes after the
// first, and seeds the generator from the 64 bytes; only when the generator
// has no card seed yet. Returns 0, or the procedure's code with its message printed.
int seedFromCard(const CardSession& session, unsigned char* seedCommand, DWORD seedCommandLength, unsigned char* rx);

// Prints "#SN:..(#SSN:..)#IV:..#CS:..#PCS:..#GEN_TIME:.." and the line end.
void printRecord(const unsigned char* sn, const char* ssn, const std::vector<unsigned char>& iv,
                 const std::vector<unsigned char>& cs, const std::vector<unsigned char>& pcs);

// What the common end of a procedure needs from its applet. calculate writes
// the applet's checksum of valueBytes bytes at data to rx (false: the
// command failed); findRecord is the record file lookup for its values.
struct ChecksumApplet {
    DWORD valueBytes;
    std::vector<unsigned char> seedCommand;
    std::function<bool(const unsigned char* data, unsigned char* rx)> calculate;
    std::function<int(const char* recordFile, const unsigned char* sn, std::vector<unsigned char>& iv,
                      std::vector<unsigned char>& cs, std::vector<unsigned char>& pcs)>
        findRecord;
};

// The end of both procedures, once cs_init checked out. Action 1: seed the
// generator from the card, draw an IV and print a new record; 2: verify the
// card against its record in recordFile; other: kVerified.
int recordOrVerify(const CardSession& session, const ChecksumApplet& applet, int action, const char* readerName,
                   const char* recordFile, const unsigned char* sn, const char* ssn,
                   const std::vector<unsigned char>& cardPcs);

// Runs procedure on every reader PC/SC lists, in list order; returns the last result.
int enumerateReaders(int (*procedure)(const char*, const char*, int), const char* recordFile, int action);
