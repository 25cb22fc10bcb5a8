// What the checksum procedures print, and their result codes (internal).
#pragma once

#include <vector>

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

// Each of these flushes what it printed: a log shows which card a run is
// at, and a run stopped midway keeps every verdict it reached.

// "\r\n <reader> : ", the start of each reader's line.
void printReaderHeader(const char* readerName);
// "#SN:" and the serial number as hex.
void printSerialNumber(const unsigned char* sn);
// "cs_init - Ok!\r" and a line feed.
void printInitOk();
// Prints message (no line end) and returns code: every failure of a procedure.
int fail(const char* message, int code);
// The verify line's start: " <reader> : #SN:<sn> (#SSN:<ssn>) ".
void printVerifyHeader(const char* readerName, const unsigned char* sn, const char* ssn);
// "SN found error in file ...!" for a record that cannot be used.
int failNoRecord(const char* recordFile, int code);
// "cs_pcs_file - Ok!\r" and a line feed.
void printVerified();
// "#SN:..(#SSN:..)#IV:..#CS:..#PCS:..#GEN_TIME:.." and the line end.
void printRecord(const unsigned char* sn, const char* ssn, const std::vector<unsigned char>& iv,
                 const std::vector<unsigned char>& cs, const std::vector<unsigned char>& pcs);
