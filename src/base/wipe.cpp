#include "base/wipe.h"

#include <cstring>

void secureZero(void* p, size_t n) {
    if (p != nullptr && n > 0) explicit_bzero(p, n);
}
