// A fuzz target's main without libFuzzer: runs it once on every file of a corpus folder, so the committed corpora
// are ordinary tests in every build. A failed check aborts.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>

#include "support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    if (LLVMFuzzerInitialize != nullptr) LLVMFuzzerInitialize(&argc, &argv);
    int inputs = 0;
    for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
        std::fprintf(stderr, "%s\n", entry.path().c_str());
        const std::string bytes = testsupport::readFile(entry.path());
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
        ++inputs;
    }
    std::fprintf(stderr, "%d inputs, no failure\n", inputs);
    return inputs > 0 ? 0 : 1;
}
