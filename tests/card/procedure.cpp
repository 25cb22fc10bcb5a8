// Runs one checksum procedure on one reader, as the card modes do, or reads
// the card's SSN, and prints the result last: the codes other tools get, of
// which the program's exit status tells only the sign, and the SSN reader's,
// which the procedures turn into a CRC-32 on any failure.
// Usage: card_procedure -cs|-ta READER ACTION [FILE] | card_procedure -ssn READER -
#include <cstdio>
#include <cstdlib>
#include <string>

#include "card/apdu.h"
#include "card/checksum.h"
#include "card/serial.h"

static int readSsn(const char* reader) {
    char ssn[kSsnBufferChars] = {};
    const CardSession session(reader);
    return obtainSpecificSSN(session.card(), session.protocol(), ssn, false);
}

int main(int argc, char** argv) {
    if (argc < 4) return 2;
    const char* file = argc > 4 ? argv[4] : nullptr;
    const int action = std::atoi(argv[3]);
    const std::string mode = argv[1];
    const int result = mode == "-cs"   ? doCheckSummPX2(argv[2], file, action)
                       : mode == "-ta" ? doCheckSummTA(argv[2], file, action)
                                       : readSsn(argv[2]);
    std::printf("\nresult %d\n", result);
    return 0;
}
