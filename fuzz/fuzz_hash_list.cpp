// DoParsingFile on a fuzzed list and the files it names.
//
// Input: a flags byte, the list, then the contents of up to four files, each after a 0xFF byte; the files are
// named "0", "1", "2", "3". No mutation keeps a digest right, so flag 1 writes the right digest after each entry
// naming one of those files and flag 2 seals the trailer: the entry loop is fuzzed too.
#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "cli/hash_list.h"
#include "fuzz_input.h"

namespace {

constexpr size_t kMaxFiles = 4;

std::string hexDigest(const std::string& bytes) {
    unsigned char digest[kDigestBytes];
    char hex[kDigestHexChars + 1];
    fCalcMemHash(bytes.data(), static_cast<unsigned>(bytes.size()), reinterpret_cast<char*>(digest));
    print_hex_str(digest, kDigestBytes, hex);
    return hex;
}

// The checker reads the list as a zero-terminated text.
size_t textEnd(const std::string& list) { return std::min(list.find('\0'), list.size()); }

// The star the checker finds, or npos.
size_t trailerStar(const std::string& list) {
    return list.find('*') < textEnd(list) ? list.find('*') : std::string::npos;
}

void putDigest(std::string& list, size_t at, const std::string& bytes) {
    list.resize(std::max(list.size(), at + kDigestHexChars));
    list.replace(at, kDigestHexChars, hexDigest(bytes));
}

// Walks the entries as the checker does, past any it would fail on; with fix, writes the right digest after each
// one naming one of our files. False for a name with a slash: it could name a device that never ends (/dev/zero)
// or a file outside the scratch directory.
bool walkEntries(std::string& list, const std::vector<std::string>& files, bool fix) {
    for (size_t scan = 0;;) {
        const size_t end = textEnd(list), hash = list.find('#', scan), dollar = list.find('$', scan);
        if (hash >= end || dollar >= end || hash > dollar) return true;
        const std::string name = list.substr(hash + 1, dollar - hash - 1);
        if (name.find('/') != std::string::npos) return false;
        for (size_t i = 0; fix && i < files.size(); ++i)
            if (name == std::to_string(i)) putDigest(list, dollar + 1, files[i]);
        scan = dollar + 1 + kDigestHexChars;
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // Verdicts are not looked at; printing them only slows the run.
    if (std::freopen("/dev/null", "w", stdout) == nullptr) fuzzFail("/dev/null", __FILE__, __LINE__);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    std::vector<std::string> parts(1);
    for (size_t i = 1; i < size; ++i) {
        if (data[i] == 0xFF && parts.size() <= kMaxFiles) parts.emplace_back();
        else parts.back() += static_cast<char>(data[i]);
    }
    std::string list = parts[0];
    const std::vector<std::string> files(parts.begin() + 1, parts.end());
    if (data[0] & 1) walkEntries(list, files, true);
    if (data[0] & 2 && trailerStar(list) != std::string::npos)
        putDigest(list, trailerStar(list) + 1, list.substr(0, trailerStar(list) + 1));
    if (!walkEntries(list, files, false)) return 0;

    // The list names files relative to the working directory. Going back after each input keeps libFuzzer's
    // relative paths working (a crash inside still writes its file there: give -artifact_prefix an absolute one).
    const int back = open(".", O_RDONLY | O_DIRECTORY);
    FUZZ_CHECK(back >= 0 && chdir(scratchDir()) == 0);
    writeFile("list", list.data(), list.size());
    for (size_t i = 0; i < kMaxFiles; ++i) {
        if (i < files.size()) writeFile(std::to_string(i), files[i].data(), files[i].size());
        else std::remove(std::to_string(i).c_str());
    }
    const int result = DoParsingFile("list");
    FUZZ_CHECK(fchdir(back) == 0 && close(back) == 0);

    // Up to the list's own digest the verdict follows from the list alone; a 1 without a right trailer would pass
    // an altered list.
    const size_t star = trailerStar(list);
    int expected = 1;
    if (list.empty() || list.size() > kHashListMaxBytes) expected = -2;
    else if (star == std::string::npos) expected = -3;
    else if (list.compare(star + 1, kDigestHexChars, hexDigest(list.substr(0, star + 1))) != 0) expected = -4;
    FUZZ_CHECK(result == expected || (expected == 1 && result == 0));
    return 0;
}
