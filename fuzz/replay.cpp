// A fuzz target's main without libFuzzer: runs it once on every file of a corpus folder, so the committed corpora
// are ordinary tests in every build. A failed check aborts.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    const std::filesystem::path corpus = argv[1];
    if (LLVMFuzzerInitialize != nullptr) LLVMFuzzerInitialize(&argc, &argv);
    int inputs = 0;
    for (const auto& entry : std::filesystem::directory_iterator(corpus)) {
        std::fprintf(stderr, "%s\n", entry.path().c_str());
        std::ifstream in(entry.path(), std::ios::binary);
        const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
        ++inputs;
    }
    std::fprintf(stderr, "%d inputs, no failure\n", inputs);
    return inputs > 0 ? 0 : 1;
}
