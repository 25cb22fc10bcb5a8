// DoParsingFile on a fuzzed list and the files it names.
//
// Input: a flags byte, the list, then the contents of up to four files, each after a 0xFF byte; the files are
// named "0", "1", "2", "3". No mutation keeps a digest right, so flag 1 writes the right digest after each entry
// naming one of those files and flag 2 seals the trailer: the entry loop is fuzzed too.
#undef NDEBUG  // the checks abort, so libFuzzer keeps the input, in every build
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "cli/hash_list.h"
#include "support.h"

namespace {

constexpr size_t kMaxFiles = 4;

std::string hexDigest(const std::string& bytes) {
    unsigned char digest[kDigestBytes];
    fCalcMemHash(bytes.data(), static_cast<unsigned>(bytes.size()), reinterpret_cast<char*>(digest));
    return testsupport::toHex(digest, kDigestBytes);
}

// The checker reads the list as a zero-terminated text.
size_t textEnd(const std::string& list) { return std::min(list.find('\0'), list.size()); }

// The star the checker finds, or npos.
size_t trailerStar(const std::string& list) { return list.find('*') < textEnd(list) ? list.find('*') : list.npos; }

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
    // Verdicts are not looked at; printing them only slows the run. libFuzzer ignores the result.
    return std::freopen("/dev/null", "w", stdout) == nullptr;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    std::string list;
    std::vector<std::string> files;
    for (size_t i = 1; i < size; ++i) {
        if (data[i] == 0xFF && files.size() < kMaxFiles) files.emplace_back();
        else (files.empty() ? list : files.back()) += static_cast<char>(data[i]);
    }
    if (data[0] & 1) walkEntries(list, files, true);
    if (data[0] & 2 && trailerStar(list) != std::string::npos)
        putDigest(list, trailerStar(list) + 1, list.substr(0, trailerStar(list) + 1));
    if (!walkEntries(list, files, false)) return 0;

    // The list names files relative to the working directory. Going back after each input keeps libFuzzer's
    // relative paths working (a crash inside still writes its file there: give -artifact_prefix an absolute one).
    // In memory where /dev/shm allows: every input writes files.
    static const testsupport::TempDir scratch(std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp");
    const int back = open(".", O_RDONLY | O_DIRECTORY);
    assert(back >= 0 && chdir(scratch.path().c_str()) == 0);
    testsupport::writeFile("list", list);
    for (size_t i = 0; i < kMaxFiles; ++i) std::remove(std::to_string(i).c_str());
    for (size_t i = 0; i < files.size(); ++i) testsupport::writeFile(std::to_string(i), files[i]);
    const int result = DoParsingFile("list");
    assert(fchdir(back) == 0 && close(back) == 0);

    // Up to the list's own digest the verdict follows from the list alone; a 1 without a right trailer would pass
    // an altered list.
    const size_t star = trailerStar(list);
    int want = list.empty() || list.size() > kHashListMaxBytes ? -2 : star == std::string::npos ? -3 : 1;
    if (want == 1 && list.compare(star + 1, kDigestHexChars, hexDigest(list.substr(0, star + 1))) != 0) want = -4;
    assert(result == want || (want == 1 && result == 0));
    return 0;
}
