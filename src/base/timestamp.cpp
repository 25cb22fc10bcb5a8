#include "base/timestamp.h"

void formatTimeStamp(std::time_t when, char* out, size_t cap) {
    if (out == nullptr || cap == 0) return;
    out[0] = '\0';
    std::tm local;
    // strftime's result is 0 when the text does not fit; out is then not
    // terminated, so it is emptied again.
    if (localtime_r(&when, &local) == nullptr || std::strftime(out, cap, "%x_%X", &local) == 0) out[0] = '\0';
}
