// The two card checksum modes and their reader enumerations.
//
// Results of a procedure: 1 card or applet not found, or a record printed;
// 0 verified; negative: a failure (each prints its one message). The
// enumerations return the last reader's result; negative means failure.
#pragma once

// Veltora-2 GOST applet on one reader. action 1: print a new record; 2:
// verify the card against its record in recordFile; other: stop after the
// cs_init check with 0.
int doCheckSummPX2(const char* readerName, const char* recordFile, int action);

// doCheckSummPX2 on every reader, in list order.
int enumerateReadersDoCS(const char* recordFile, int action);

// The Veltora Admin "ARM Applet" on one reader, with 8-byte values; the same actions.
int doCheckSummTA(const char* readerName, const char* recordFile, int action);

// doCheckSummTA on every reader, in list order.
int enumerateTAReadersDoCS(const char* recordFile, int action);
