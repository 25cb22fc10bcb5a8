#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>
#include <memory>
#include <string>

#include "cli/hash_list.h"
#include "support.h"

using testsupport::TempDir;
using testsupport::writeFile;

namespace {

const char kDigits63[] = "012345678901234567890123456789012345678901234567890123456789012";
const char kDigits63Digest[] = "9D151EEFD8590B89DAA6BA6CB74AF9275DD051026BB149A452FD84E5E57B5500";
const char kEmptyDigest[] = "3F539A213E97C802CC229D474C6AA32A825A360B2A933A949FD925208D9CE1BB";

// Copies text into a heap block of exactly its size (no terminator unless
// included), so a read one byte too far trips AddressSanitizer.
std::unique_ptr<char[]> exact(const std::string& text) {
    std::unique_ptr<char[]> p(new char[text.size()]);
    std::memcpy(p.get(), text.data(), text.size());
    return p;
}

}  // namespace

TEST(HexText, PrintHexStrFormatsAndTerminates) {
    const unsigned char bytes[] = {0x00, 0x9A, 0xFF, 0x10};
    char out[9];
    std::memset(out, 'x', sizeof out);
    print_hex_str(bytes, 4, out);
    EXPECT_STREQ(out, "009AFF10");
    print_hex_str(bytes, 0, out);
    EXPECT_STREQ(out, "");
    print_hex_str(nullptr, 4, out);  // must not crash or write
    EXPECT_STREQ(out, "");
}

TEST(HexText, CalcMemHashGivesRawDigest) {
    unsigned char digest[32];
    fCalcMemHash(kDigits63, 63, reinterpret_cast<char*>(digest));
    EXPECT_EQ(testsupport::toHex(digest, 32), kDigits63Digest);
    fCalcMemHash(nullptr, 3, reinterpret_cast<char*>(digest));  // ignored
    fCalcMemHash(kDigits63, 3, nullptr);
}

TEST(CheckMemHash, ResultCodes) {
    const std::string good = std::string(kDigits63) + kDigits63Digest;
    auto text = exact(good);
    EXPECT_EQ(fCheckMemHash(text.get(), text.get() + 63), 1);

    std::string lower = good;
    lower[63 + 10] = 'b';  // "DA" -> "bA"
    auto lowerText = exact(lower);
    EXPECT_EQ(fCheckMemHash(lowerText.get(), lowerText.get() + 63), -1);

    EXPECT_EQ(fCheckMemHash(nullptr, text.get()), 0);
    EXPECT_EQ(fCheckMemHash(text.get(), nullptr), 0);
}

// A digest text cut short by its terminator is a mismatch, found without
// reading beyond the terminator.
TEST(CheckMemHash, ShortDigestTextIsNotReadPastItsEnd) {
    const std::string cut = std::string(kDigits63) + std::string(kDigits63Digest, 20) + '\0';
    auto text = exact(cut);
    EXPECT_EQ(fCheckMemHash(text.get(), text.get() + 63), -1);
    auto empty = exact(std::string(1, '\0'));
    EXPECT_EQ(fCheckMemHash(empty.get(), empty.get()), -1);
}

TEST(CheckFileHash, KnownDigestsAndUnreadablePaths) {
    TempDir dir;
    writeFile(dir.file("digits"), kDigits63);
    writeFile(dir.file("empty"), "");
    EXPECT_EQ(fCheckFileHash(dir.file("digits").c_str(), kDigits63Digest), 1);
    EXPECT_EQ(fCheckFileHash(dir.file("empty").c_str(), kEmptyDigest), 1);
    EXPECT_EQ(fCheckFileHash(dir.file("digits").c_str(), kEmptyDigest), -1);
    EXPECT_EQ(fCheckFileHash(dir.file("missing").c_str(), kEmptyDigest), 0);
    // A directory reads as nothing; it must not pass for an empty file.
    ASSERT_EQ(mkdir(dir.file("sub").c_str(), 0700), 0);
    EXPECT_EQ(fCheckFileHash(dir.file("sub").c_str(), kEmptyDigest), 0);
    EXPECT_EQ(fCheckFileHash(nullptr, kEmptyDigest), 0);
}

TEST(FileHash, ChunkBordersDoNotChangeTheDigest) {
    TempDir dir;
    // Two chunks and a bit, so the chunk loop runs three times.
    std::string big(2 * kHashChunkBytes + 17, '\0');
    for (size_t i = 0; i < big.size(); ++i) big[i] = static_cast<char>(i * 7);
    writeFile(dir.file("big"), big);
    unsigned char fromFile[32], fromMemory[32];
    ASSERT_TRUE(fHashFile(dir.file("big").c_str(), fromFile));
    fCalcMemHash(big.data(), static_cast<unsigned>(big.size()), reinterpret_cast<char*>(fromMemory));
    EXPECT_EQ(testsupport::toHex(fromFile, 32), testsupport::toHex(fromMemory, 32));
    EXPECT_EQ(testsupport::toHex(fromFile, 32), testsupport::rhashFile("gost12-256", dir.file("big")));
}
