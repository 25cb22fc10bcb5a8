// Hex text, record lookups and the serial-number checksum, where the end-to-end rows do not reach.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "card/record.h"
#include "card/serial.h"
#include "support.h"

using testsupport::toHex;
using Bytes = std::vector<unsigned char>;

TEST(HexToBytes, ResultsAndBytes) {
    for (const auto& r : testsupport::rows(VELT_VECTORS_DIR "/hex_text.txt")) {
        const std::string text = r[0] == "-" ? "" : r[0];
        const int length = std::stoi(r[1]);
        std::unique_ptr<char[]> exact(new char[text.size() + 1]);  // a read past the NUL trips the sanitizer
        std::copy(text.c_str(), text.c_str() + text.size() + 1, exact.get());
        Bytes out(length > 0 ? length / 2 : 0);
        const int result = hexToBytes(out.data(), exact.get(), length);
        EXPECT_EQ(result, std::stoi(r[2])) << r[0] << " " << r[1];
        EXPECT_EQ(toHex(out.data(), std::max(result, 0)), r.size() > 3 ? r[3] : "") << r[0] << " " << r[1];
    }
}

TEST(RecordLookup, EveryResult) {
    const unsigned char sn[8] = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0xAB};
    testsupport::TempDir dir;
    for (const auto& r : testsupport::rows(VELT_VECTORS_DIR "/record_lookup.txt")) {
        SCOPED_TRACE(r[5].substr(0, 80));
        std::string text = r[5] == "-" ? "" : r[5];
        if (r.size() > 6) text.resize(std::stoul(r[6]), ' ');
        const std::string path = dir.file(r[5] == "none" ? "none" : "records.txt");
        if (r[5] != "none") testsupport::writeFile(path, text);
        const size_t len = std::stoul(r[0]);
        Bytes iv(3, 0xEE), cs, pcs(40, 0xEE);
        const int result = findChecksumRecord(path.c_str(), sn, len, iv, cs, pcs);
        EXPECT_EQ(result, std::stoi(r[1]));
        EXPECT_EQ(len == 8 ? doParsingCSFile(path.c_str(), sn, iv, cs, pcs) : result, result);
        // The fields are sized before the search, whatever it finds.
        EXPECT_TRUE(result == -1 || result == -2 || (iv.size() == len && cs.size() == len && pcs.size() == len));
        const std::string fields =
            toHex(iv.data(), iv.size()) + toHex(cs.data(), cs.size()) + toHex(pcs.data(), pcs.size());
        EXPECT_EQ(result == 1 ? fields : "---", r[2] + r[3] + r[4]);
    }
}

TEST(SerialNumber, ChecksumKnownAnswers) {
    unsigned char counting[8] = {1, 2, 3, 4, 5, 6, 7, 8}, zeros[8] = {};
    char ssn[kSsnBufferChars] = {};
    calculateSSN(counting, ssn);
    EXPECT_STREQ(ssn, "3FCA88C5");
    calculateSSN(zeros, ssn);
    calculateSSN(nullptr, ssn);  // ignored
    EXPECT_STREQ(ssn, "6522DF69");
}
