// The list check's helpers where the end-to-end rows cannot reach them: null pointers, digest texts cut short in
// blocks of exactly their size, files the program never checks alone.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "cli/hash_list.h"
#include "support.h"

TEST(HashList, ChecksOnTextsAndFiles) {
    const std::string digits = "012345678901234567890123456789012345678901234567890123456789012";
    const char digest[] = "9D151EEFD8590B89DAA6BA6CB74AF9275DD051026BB149A452FD84E5E57B5500";
    testsupport::TempDir dir;
    testsupport::writeFile(dir.file("digits"), digits);
    // Blocks exactly as long as the texts, with no terminator added: a read past the end trips the sanitizer.
    const std::string goodText = digits + digest, cutText = digits + std::string(digest, 20) + '\0';
    const std::vector<char> good(goodText.begin(), goodText.end()), cut(cutText.begin(), cutText.end()), nul(1);
    const std::tuple<int, int, const char*> rows[] = {
        {fCheckMemHash(good.data(), good.data() + 63), 1, "a text and its digest"},
        {fCheckMemHash(cut.data(), cut.data() + 63), -1, "the digest cut short by a NUL"},
        {fCheckMemHash(nul.data(), nul.data()), -1, "nothing and no digest"},
        {fCheckMemHash(nullptr, good.data()), 0, "null text"},
        {fCheckMemHash(good.data(), nullptr), 0, "null digest"},
        {fCheckFileHash(dir.file("digits").c_str(), digest), 1, "a file"},
        {fCheckFileHash(dir.file("digits").c_str(), digest + 1), -1, "another digest"},
        {fCheckFileHash(dir.file("missing").c_str(), digest), 0, "a missing file"},
        {fCheckFileHash(dir.path().c_str(), digest), 0, "a directory"},
        {fCheckFileHash(nullptr, digest), 0, "null path"},
        {fCheckFileHash(dir.file("digits").c_str(), nullptr), 0, "null digest"},
    };
    for (const auto& [result, expected, what] : rows) EXPECT_EQ(result, expected) << what;

    char out[11] = "xxxxxxxxxx";
    fCalcMemHash(nullptr, 3, out);  // both ignored
    fCalcMemHash(digits.data(), 3, nullptr);
    print_hex_str(nullptr, 4, out);
    print_hex_str(reinterpret_cast<const unsigned char*>("\x00\x9A\xFF"), 3, nullptr);
    EXPECT_STREQ(out, "xxxxxxxxxx");
    print_hex_str(reinterpret_cast<const unsigned char*>("\x00\x9A\xFF\x10"), 4, out);
    EXPECT_EQ(std::string(out, 10), std::string("009AFF10\0x", 10));  // nothing past the NUL
}
