#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "card/record.h"
#include "card/serial.h"
#include "support.h"

using testsupport::TempDir;
using testsupport::writeFile;
using Bytes = std::vector<unsigned char>;

TEST(HexToBytes, Table) {
    struct Row {
        std::string text;
        int length;
        int result;
        Bytes bytes;
    };
    const std::vector<Row> rows = {
        {"0aFf10", 6, 3, {0x0A, 0xFF, 0x10}},
        {"0aFf10", 4, 2, {0x0A, 0xFF}},
        {"0aF", 3, -1, {}},
        {"", 0, 0, {}},
        {"00", -2, 0, {}},
        {"12g456", 6, 1, {0x12}},  // stops at the first pair with a non-hex character
        {"1234 6", 6, 2, {0x12, 0x34}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text + " / " + std::to_string(row.length));
        unsigned char out[8] = {};
        EXPECT_EQ(hexToBytes(out, row.text.c_str(), row.length), row.result);
        EXPECT_EQ(Bytes(out, out + row.bytes.size()), row.bytes);
    }
}

// A terminator in the high digit's place ends the conversion before the
// byte after it is read: the text here is an exact-size heap block.
TEST(HexToBytes, StopsAtTheTerminator) {
    std::unique_ptr<char[]> text(new char[3]{'a', 'b', '\0'});
    unsigned char out[4];
    EXPECT_EQ(hexToBytes(out, text.get(), 8), 1);
}

TEST(CalculateSsn, Crc32KnownAnswers) {
    unsigned char counting[8] = {1, 2, 3, 4, 5, 6, 7, 8}, zeros[8] = {};
    char ssn[kSsnBufferChars] = {};
    calculateSSN(counting, ssn);
    EXPECT_STREQ(ssn, "3FCA88C5");
    calculateSSN(zeros, ssn);
    EXPECT_STREQ(ssn, "6522DF69");
    calculateSSN(nullptr, ssn);  // ignored
    EXPECT_STREQ(ssn, "6522DF69");
}

TEST(RecordLookup, EveryResultCode) {
    const unsigned char sn[8] = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0xAB};
    const std::string key = "#SN:01020304050607AB";
    const std::string iv = "#IV:1122334455667788", cs = "#CS:a1a2a3a4a5a6a7a8", pcs = "#PCS:B1B2B3B4B5B6B7B8";
    const std::string good = key + "(#SSN:3FCA88C5)" + iv + cs + pcs + "#GEN_TIME:11/15/26_12:34:56\r\n";
    struct Row {
        std::string name, text;
        int code;
    };
    const std::vector<Row> rows = {
        {"one record", good, RECORD_OK},
        {"among other cards and text", "notes\r\n#SN:0000000000000000#IV:00#CS:00\r\n" + good, RECORD_OK},
        {"first record wins", good + key + "#IV:FFFFFFFFFFFFFFFF#CS:00#PCS:00\r\n", RECORD_OK},
        {"IV on a later line", key + "(#SSN:x)\r\nother line" + iv + cs + pcs, RECORD_OK},
        {"longer field accepted", key + iv + "99" + cs + pcs, RECORD_OK},
        {"exactly 16383 bytes", good + std::string(16383 - good.size(), ' '), RECORD_OK},
        {"16384 bytes", good + std::string(16384 - good.size(), ' '), RECORD_EMPTY_OR_TOO_LARGE},
        {"empty", "", RECORD_EMPTY_OR_TOO_LARGE},
        {"no record", "#SN:0102030405060708" + iv + cs + pcs, RECORD_NO_SN},
        {"SN in lower case", "#SN:01020304050607ab" + iv + cs + pcs, RECORD_NO_SN},
        {"no IV", key + cs + pcs, RECORD_NO_IV},
        {"IV of 15 digits then #", key + "#IV:112233445566778#" + cs + pcs, RECORD_BAD_IV},
        {"IV tag at the very end", key + "#IV:", RECORD_BAD_IV},
        {"no CS", key + iv + pcs, RECORD_NO_CS},
        {"CS truncated at the end", key + iv + "#CS:a1a2a3", RECORD_BAD_CS},
        {"no PCS", key + iv + cs, RECORD_NO_PCS},
        {"PCS with a bad digit", key + iv + cs + "#PCS:B1B2B3B4B5B6B7BX", RECORD_BAD_PCS},
    };
    TempDir dir;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        writeFile(dir.file("records.txt"), row.text);
        Bytes ivOut(3, 0xEE), csOut, pcsOut(40, 0xEE);
        EXPECT_EQ(doParsingCSFile(dir.file("records.txt").c_str(), sn, ivOut, csOut, pcsOut), row.code);
        if (row.code == RECORD_OK) {
            EXPECT_EQ(testsupport::toHex(ivOut.data(), ivOut.size()), "1122334455667788");
            EXPECT_EQ(testsupport::toHex(csOut.data(), csOut.size()), "A1A2A3A4A5A6A7A8");
            EXPECT_EQ(testsupport::toHex(pcsOut.data(), pcsOut.size()), "B1B2B3B4B5B6B7B8");
        }
    }
    Bytes a, b, c;
    EXPECT_EQ(doParsingCSFile(dir.file("missing.txt").c_str(), sn, a, b, c), RECORD_CANNOT_OPEN);
}

TEST(RecordLookup, GostRecordsHave32ByteFields) {
    const unsigned char sn[8] = {9, 9, 9, 9, 9, 9, 9, 9};
    const std::string hex32(64, 'C');
    TempDir dir;
    writeFile(dir.file("r.txt"), "#SN:0909090909090909(#SSN:1)#IV:" + hex32 + "#CS:" + hex32 + "#PCS:" + hex32);
    Bytes iv, cs, pcs;
    EXPECT_EQ(findChecksumRecord(dir.file("r.txt").c_str(), sn, 32, iv, cs, pcs), RECORD_OK);
    EXPECT_EQ(pcs, Bytes(32, 0xCC));
    // The same GOST-2 record read with 8-byte fields takes the first 16 digits.
    EXPECT_EQ(doParsingCSFile(dir.file("r.txt").c_str(), sn, iv, cs, pcs), RECORD_OK);
    EXPECT_EQ(iv, Bytes(8, 0xCC));
}
