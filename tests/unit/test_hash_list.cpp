// The list check's helpers where the end-to-end rows cannot reach them: null pointers, digest texts cut short in
// blocks of exactly their size, files the program never checks alone.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <memory>
#include <string>

#include "cli/hash_list.h"
#include "support.h"

namespace {

const std::string kDigits = "012345678901234567890123456789012345678901234567890123456789012";
const char kDigest[] = "9D151EEFD8590B89DAA6BA6CB74AF9275DD051026BB149A452FD84E5E57B5500";

std::unique_ptr<char[]> exact(const std::string& text) {
    std::unique_ptr<char[]> p(new char[text.size()]);
    std::memcpy(p.get(), text.data(), text.size());
    return p;
}

}  // namespace

TEST(HashList, ChecksOnTextsAndFiles) {
    testsupport::TempDir dir;
    testsupport::writeFile(dir.file("digits"), kDigits);
    ASSERT_EQ(mkdir(dir.file("sub").c_str(), 0700), 0);
    const auto good = exact(kDigits + kDigest), cut = exact(kDigits + std::string(kDigest, 20) + '\0');
    const auto nul = exact(std::string(1, '\0'));
    const struct {
        int result, expected;
        const char* what;
    } rows[] = {
        {fCheckMemHash(good.get(), good.get() + 63), 1, "a text and its digest"},
        {fCheckMemHash(cut.get(), cut.get() + 63), -1, "the digest cut short by a NUL"},
        {fCheckMemHash(nul.get(), nul.get()), -1, "nothing and no digest"},
        {fCheckMemHash(nullptr, good.get()), 0, "null text"},
        {fCheckMemHash(good.get(), nullptr), 0, "null digest"},
        {fCheckFileHash(dir.file("digits").c_str(), kDigest), 1, "a file"},
        {fCheckFileHash(dir.file("digits").c_str(), kDigest + 1), -1, "another digest"},
        {fCheckFileHash(dir.file("missing").c_str(), kDigest), 0, "a missing file"},
        {fCheckFileHash(dir.file("sub").c_str(), kDigest), 0, "a directory"},
        {fCheckFileHash(nullptr, kDigest), 0, "null path"},
        {fCheckFileHash(dir.file("digits").c_str(), nullptr), 0, "null digest"},
    };
    for (const auto& row : rows) EXPECT_EQ(row.result, row.expected) << row.what;

    char out[11] = "xxxxxxxxxx";
    fCalcMemHash(nullptr, 3, out);  // both ignored
    fCalcMemHash(kDigits.data(), 3, nullptr);
    print_hex_str(nullptr, 4, out);
    print_hex_str(reinterpret_cast<const unsigned char*>("\x00\x9A\xFF"), 3, nullptr);
    EXPECT_STREQ(out, "xxxxxxxxxx");
    print_hex_str(reinterpret_cast<const unsigned char*>("\x00\x9A\xFF\x10"), 4, out);
    EXPECT_EQ(std::string(out, 10), std::string("009AFF10\0x", 10));  // nothing past the NUL
}
