// Pieces shared by the two checksum procedures (internal).
#pragma once

#include <cstddef>
#include <vector>

#include "card/apdu.h"

// Prints bytes as upper-case hex, two digits a byte.
void printHex(const unsigned char* data, size_t len);

// One exchange that must succeed with exactly `length` response bytes (0: any length).
bool exchangeOk(const CardSession& session, unsigned char* command, DWORD commandLength, unsigned char* rx,
                DWORD* rxLen, DWORD length = 0);

// Asks the card for two seed answers, the second stored 32 bytes after the
// first, and seeds the generator from the 64 bytes; only when the generator
// has no card seed yet. Returns 0, or the procedure's code with its message printed.
int seedFromCard(const CardSession& session, unsigned char* seedCommand, DWORD seedCommandLength,
                 unsigned char* rx);

// Prints "#SN:..(#SSN:..)#IV:..#CS:..#PCS:..#GEN_TIME:.." and the line end.
void printRecord(const unsigned char* sn, const char* ssn, const std::vector<unsigned char>& iv,
                 const std::vector<unsigned char>& cs, const std::vector<unsigned char>& pcs);

// Runs procedure on every reader PC/SC lists, in list order; returns the last result.
int enumerateReaders(int (*procedure)(const char*, const char*, int), const char* recordFile, int action);
