// Hex text, record lookups, the serial-number checksum and the transport's protocol check, where the end-to-end
// and card rows do not reach.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "card/apdu.h"
#include "card/record.h"
#include "card/serial.h"
#include "support.h"

using testsupport::toHex;
using Bytes = std::vector<unsigned char>;

TEST(HexToBytes, ResultsAndBytes) {
    for (const auto& r : testsupport::rows(VELT_VECTORS_DIR "/hex_text.txt")) {
        const std::string text = r[0] == "-" ? "" : r[0];
        const int length = std::stoi(r[1]);
        const std::vector<char> exact(text.c_str(), text.c_str() + text.size() + 1);  // a read past the NUL trips ASan
        Bytes out(length > 0 ? length / 2 : 0);
        const int result = hexToBytes(out.data(), exact.data(), length);
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
        EXPECT_EQ(result == 1 ? toHex(iv) + toHex(cs) + toHex(pcs) : "---", r[2] + r[3] + r[4]);
    }
}

TEST(SerialNumber, ChecksumKnownAnswers) {
    for (const auto& r : testsupport::rows(VELT_VECTORS_DIR "/serial_numbers.txt")) {
        Bytes sn = testsupport::fromHex(r[0]);
        char ssn[kSsnBufferChars] = "-";
        calculateSSN(r[0] == "null" ? nullptr : sn.data(), ssn);
        EXPECT_STREQ(ssn, r[1].c_str());
    }
}

// Only T=0 and T=1 get as far as SCardTransmit, which refuses the card handle 0 (0x80100003, invalid handle) with
// no pcscd either; any other protocol is refused first (0x80100004, invalid parameter), with nothing sent.
TEST(Apdu, OnlyT0AndT1AreSent) {
    const std::pair<DWORD, uint32_t> rows[] = {{SCARD_PROTOCOL_UNDEFINED, 0x80100004},
                                               {SCARD_PROTOCOL_RAW, 0x80100004},
                                               {SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1, 0x80100004},
                                               {SCARD_PROTOCOL_T0, 0x80100003},
                                               {SCARD_PROTOCOL_T1, 0x80100003}};
    for (const auto& [protocol, expected] : rows) {
        unsigned char send[5] = {0x00, 0xCA, 0x00, 0x00, 0x00}, receive[kApduBufferBytes];
        DWORD length = sizeof receive;
        EXPECT_EQ(static_cast<uint32_t>(SendAPDU(0, protocol, send, sizeof send, receive, &length)), expected)
            << protocol;
    }
}

// A null SSN buffer is refused before anything is sent: with one, the bad handle fails the select.
TEST(Apdu, NullSsnBufferSendsNothing) {
    char ssn[kSsnBufferChars] = "untouched";
    EXPECT_EQ(obtainSpecificSSN(0, SCARD_PROTOCOL_T1, nullptr, true), 0);
    EXPECT_EQ(obtainSpecificSSN(0, SCARD_PROTOCOL_T1, ssn, true), -1);
    EXPECT_STREQ(ssn, "untouched");
}
