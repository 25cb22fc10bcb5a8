// The part both checksum procedures share once the card's applet is known
// to be unchanged (internal): a new record, or a check against a kept one.
#pragma once

#include <vector>

#include "card/apdu.h"

// What tells one checksum applet from the other: the size of its IVs,
// checksums and PCS, its seed request, and its checksum command.
struct ChecksumApplet {
    DWORD valueBytes;
    cardcmd::Header seed;
    unsigned char seedLe;
    cardcmd::Header checksum;
};

constexpr ChecksumApplet kGost2Applet{32, cardcmd::kGost2Seed, cardcmd::kGost2SeedLe, cardcmd::kGost2Checksum};
constexpr ChecksumApplet kAdminApplet{8, cardcmd::kAdminSeed, cardcmd::kAdminSeedLe, cardcmd::kAdminChecksum};

// The applet's checksum of dataLength bytes (the SN or an IV) into rx, the
// answer exactly valueBytes and the status word; false when it is not.
bool calculateChecksum(const CardSession& session, const ChecksumApplet& applet, const unsigned char* data,
                       DWORD dataLength, unsigned char* rx);

// The end of both procedures, once cs_init checked out. Action 1: seed the
// generator from the card if it has no card seed yet, draw an IV and print a
// new record; 2: verify the card against its record in recordFile; other:
// kVerified. Prints its verdict and returns the procedure's result.
int recordOrVerify(const CardSession& session, const ChecksumApplet& applet, int action, const char* readerName,
                   const char* recordFile, const unsigned char* sn, const char* ssn,
                   const std::vector<unsigned char>& cardPcs);
