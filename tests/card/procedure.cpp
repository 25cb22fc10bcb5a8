// Runs one checksum procedure on one reader, as the card modes do, and prints
// its result last: the codes other tools get, of which the program's exit
// status tells only the sign. Usage: card_procedure -cs|-ta READER ACTION [FILE]
#include <cstdio>
#include <cstdlib>
#include <string>

#include "card/checksum.h"

int main(int argc, char** argv) {
    if (argc < 4) return 2;
    const char* file = argc > 4 ? argv[4] : nullptr;
    const int action = std::atoi(argv[3]);
    const int result = std::string(argv[1]) == "-cs" ? doCheckSummPX2(argv[2], file, action)
                                                     : doCheckSummTA(argv[2], file, action);
    std::printf("\nresult %d\n", result);
    return 0;
}
