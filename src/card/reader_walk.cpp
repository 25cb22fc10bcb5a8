#include "card/reader_walk.h"

#include <winscard.h>

#include <cstdio>
#include <cstring>
#include <vector>

namespace {

// The reader names PC/SC lists, copied out of its own allocation (sized to
// the list, however long) and ended by two NULs; empty when listing fails.
std::vector<char> listReaders(SCARDCONTEXT context) {
    char* names = nullptr;
    DWORD length = SCARD_AUTOALLOCATE;
    std::vector<char> list;
    if (SCardListReaders(context, nullptr, reinterpret_cast<char*>(&names), &length) == SCARD_S_SUCCESS &&
        names != nullptr) {
        list.assign(names, names + length);
        SCardFreeMemory(context, names);
    }
    list.insert(list.end(), 2, '\0');
    return list;
}

}  // namespace

int enumerateReaders(int (*procedure)(const char*, const char*, int), const char* recordFile, int action) {
    SCARDCONTEXT context = 0;
    if (SCardEstablishContext(SCARD_SCOPE_USER, nullptr, nullptr, &context) != SCARD_S_SUCCESS) return 0;
    const std::vector<char> readers = listReaders(context);
    // The procedures establish contexts of their own.
    SCardReleaseContext(context);
    if (readers[0] == '\0') std::printf("\r\nReaders list is empty");
    int result = 0;
    for (const char* name = readers.data(); *name != '\0'; name += std::strlen(name) + 1) {
        // Each reader is visited; only the last one's result is kept.
        result = procedure(name, recordFile, action);
    }
    std::puts("\r");
    std::fflush(stdout);
    return result;
}
