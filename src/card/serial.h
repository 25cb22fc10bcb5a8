// Card serial numbers: the 8-byte SN and the specific serial number (SSN),
// a text of at most 15 characters read from the card's SSN applet or, when
// there is none, derived from the SN as a CRC-32.
#pragma once

#include <winscard.h>

constexpr unsigned kSnBytes = 8;
constexpr unsigned kSsnBufferChars = 16;  // 15 characters and the NUL

enum {
    SSN_OK = 1,
    SSN_NULL_BUFFER = 0,
    SSN_NO_APPLET = -1,  // neither AID could be selected
    SSN_BAD_HEADER = -2,
    SSN_BAD_DATA = -3,
};

// Reads the SSN into ssn (16 chars). Length code A0: four data bytes as hex,
// last byte first when reversed; AC: the text up to its first zero byte.
// Returns SSN_OK or a failure code, leaving ssn untouched on failure. The SSN
// applet stays selected.
int obtainSpecificSSN(LONG hCard, DWORD activeProtocol, char* ssn, bool reversed);

// Writes the CRC-32 of the 8-byte sn as 8 upper-case hex digits to ssn.
void calculateSSN(unsigned char* sn, char* ssn);
