// Checksum records: "#SN:<16 hex>(#SSN:<text>)#IV:<2L hex>#CS:<2L hex>
// #PCS:<2L hex>#GEN_TIME:<time>" lines, L being 32 for the GOST-2 applet
// and 8 for the Admin applet, collected by the operator in a text file.
#pragma once

#include <cstddef>
#include <vector>

#include "base/hex.h"  // hexToBytes, which reads the records' fields

// Largest record file read: a file of 16,384 bytes or more is refused whole.
constexpr size_t kRecordFileMaxBytes = 16383;

enum {
    RECORD_OK = 1,
    RECORD_CANNOT_OPEN = -1,
    RECORD_EMPTY_OR_TOO_LARGE = -2,
    RECORD_NO_SN = -3,
    RECORD_NO_IV = -4,
    RECORD_BAD_IV = -5,
    RECORD_NO_CS = -6,
    RECORD_BAD_CS = -7,
    RECORD_NO_PCS = -8,
    RECORD_BAD_PCS = -9,
};

// Finds the first record of the card sn in fileName and fills iv, cs and pcs
// with fieldLen bytes each. Returns RECORD_OK or a RECORD_* failure.
int findChecksumRecord(const char* fileName, const unsigned char* sn, size_t fieldLen, std::vector<unsigned char>& iv,
                       std::vector<unsigned char>& cs, std::vector<unsigned char>& pcs);

// The lookup with 8-byte fields (Admin applet records).
int doParsingCSFile(const char* fileName, const unsigned char* sn, std::vector<unsigned char>& iv,
                    std::vector<unsigned char>& cs, std::vector<unsigned char>& pcs);
