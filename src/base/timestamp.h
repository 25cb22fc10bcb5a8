// The time stamp of list headers and card records.
#pragma once

#include <cstddef>
#include <ctime>

// Writes `when` as local time in the current locale's "%x_%X" form (the C
// locale gives MM/DD/YY_HH:MM:SS) to out, at most cap bytes with the NUL; an
// empty text when the time cannot be converted.
void formatTimeStamp(std::time_t when, char* out, size_t cap);
