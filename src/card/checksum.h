// The two card checksum modes and their reader enumerations.
#pragma once

// Veltora-2 GOST applet checksum for every reader. action 1: print a new
// record for each card (recordFile null); 2: verify each card against
// recordFile. Returns the last reader's result; negative is a failure.
int enumerateReadersDoCS(const char* recordFile, int action);

// The same for the Veltora Admin "ARM Applet".
int enumerateTAReadersDoCS(const char* recordFile, int action);
