// obtainSpecificSSN against simulated cards with and without the SSN applet.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "sim/pcscd_fixture.h"
#include "card/apdu.h"
#include "card/serial.h"
#include "support.h"

using sim::Bytes;
using sim::Fault;
using sim::Protocol;
using sim::SimCard;
using testsupport::fromHex;

namespace {

const char kSelect1[] = "00A4040008F24E510037000D01";
const char kSelect2[] = "00A4040008F24E510037000D02";
const char kHeader[] = "8038100000";
const char kDataA0[] = "80382000A0";
const char kDataAC[] = "80382000AC";
const char kUntouched[kSsnBufferChars] = "untouched";

Bytes text(const std::string& s) { return Bytes(s.begin(), s.end()); }

Bytes padded(size_t dataBytes, Bytes status) {
    Bytes answer(dataBytes, 0x11);
    answer.insert(answer.end(), status.begin(), status.end());
    return answer;
}

struct SsnCase {
    const char* name;
    std::vector<Bytes> applets;
    unsigned char lengthCode;
    Bytes value;  // the SSN record's first data bytes
    std::vector<Fault> faults;
    bool answer6C;  // the card insists on an exact Le
    bool reversed;
    int result;
    const char* ssn;  // null: left as it was
    std::vector<std::string> sent;
};

void PrintTo(const SsnCase& row, std::ostream* out) { *out << row.name; }

const Bytes kFourBytes{0x12, 0x34, 0x56, 0x78, 0x9A};  // only the first four make the SSN

// Each row: the card (applets, length code, SSN data, faults, exact Le or
// not), the reversed argument, then the result, the SSN and what was sent.
const std::vector<SsnCase> kCases = {
    {"FourBytesReversed", {sim::kSsnAid1}, 0xA0, kFourBytes, {}, false, true, SSN_OK, "78563412",
     {kSelect1, kHeader, kDataA0}},
    {"FourBytesInOrder", {sim::kSsnAid1}, 0xA0, kFourBytes, {}, false, false, SSN_OK, "12345678",
     {kSelect1, kHeader, kDataA0}},
    {"Text", {sim::kSsnAid1}, 0xAC, text("ABC"), {}, false, true, SSN_OK, "ABC", {kSelect1, kHeader, kDataAC}},
    {"TextOf15", {sim::kSsnAid1}, 0xAC, text("ABCDEFGHIJKLMNO"), {}, false, true, SSN_OK, "ABCDEFGHIJKLMNO",
     {kSelect1, kHeader, kDataAC}},
    {"TextOf16", {sim::kSsnAid1}, 0xAC, text("ABCDEFGHIJKLMNOP"), {}, false, true, SSN_BAD_DATA, nullptr,
     {kSelect1, kHeader, kDataAC}},
    {"EmptyText", {sim::kSsnAid1}, 0xAC, {}, {}, false, true, SSN_OK, "", {kSelect1, kHeader, kDataAC}},
    {"CardInsistsOnExactLe", {sim::kSsnAid1}, 0xA0, kFourBytes, {}, true, false, SSN_OK, "12345678",
     {kSelect1, kHeader, "8038100004", kDataA0}},
    {"NoApplet", {sim::kGostAid}, 0xA0, kFourBytes, {}, false, true, SSN_NO_APPLET, nullptr, {kSelect1, kSelect2}},
    {"SecondAid", {sim::kSsnAid2}, 0xA0, kFourBytes, {}, false, false, SSN_OK, "12345678",
     {kSelect1, kSelect2, kHeader, kDataA0}},
    {"FirstAidBadStatus", {sim::kSsnAid1, sim::kSsnAid2}, 0xA0, kFourBytes, {{fromHex(kSelect1), {0x6F, 0x00}}},
     false, false, SSN_OK, "12345678", {kSelect1, kSelect2, kHeader, kDataA0}},
    // An answer too long for the receive buffer fails the transmit itself.
    {"FirstSelectTransportError", {sim::kSsnAid1, sim::kSsnAid2}, 0xA0, kFourBytes,
     {{fromHex(kSelect1), padded(300, {0x90, 0x00})}}, false, false, SSN_NO_APPLET, nullptr, {kSelect1}},
    {"HeaderOfFourBytes", {sim::kSsnAid1}, 0xA0, kFourBytes, {{fromHex(kHeader), {0x01, 0xA0, 0x90, 0x00}}}, false,
     false, SSN_BAD_HEADER, nullptr, {kSelect1, kHeader}},
    {"HeaderBadStatus", {sim::kSsnAid1}, 0xA0, kFourBytes, {{fromHex(kHeader), {0x01, 0x00, 0xA0, 0x00, 0x6A, 0x88}}},
     false, false, SSN_BAD_HEADER, nullptr, {kSelect1, kHeader}},
    {"BadLengthCode", {sim::kSsnAid1}, 0xA1, kFourBytes, {}, false, false, SSN_BAD_HEADER, nullptr,
     {kSelect1, kHeader}},
    {"DataOfWrongLength", {sim::kSsnAid1}, 0xA0, kFourBytes, {{fromHex("80382000"), padded(4, {0x90, 0x00})}},
     false, false, SSN_BAD_DATA, nullptr, {kSelect1, kHeader, kDataA0}},
    {"DataBadStatus", {sim::kSsnAid1}, 0xA0, kFourBytes, {{fromHex("80382000"), padded(0xA0, {0x6A, 0x88})}},
     false, false, SSN_BAD_DATA, nullptr, {kSelect1, kHeader, kDataA0}},
};

class ObtainSsn : public ::testing::TestWithParam<std::tuple<SsnCase, Protocol>> {};

TEST_P(ObtainSsn, ReadsTheApplet) {
    const SsnCase& row = std::get<0>(GetParam());
    SimCard card(std::get<1>(GetParam()));
    card.applets = row.applets;
    card.ssnLengthCode = row.lengthCode;
    card.ssnValue = row.value;
    card.faults = row.faults;
    card.answer6C = row.answer6C;
    ASSERT_TRUE(sim::insertCard(card));
    CardSession session(sim::readerName(card.reader()));
    ASSERT_TRUE(session.ok());

    char ssn[kSsnBufferChars];
    std::memcpy(ssn, kUntouched, sizeof ssn);
    EXPECT_EQ(obtainSpecificSSN(session.card(), session.protocol(), ssn, row.reversed), row.result);
    if (row.ssn != nullptr)
        EXPECT_STREQ(ssn, row.ssn);
    else
        EXPECT_EQ(std::memcmp(ssn, kUntouched, sizeof ssn), 0) << "ssn now " << std::string(ssn, sizeof ssn);
    EXPECT_EQ(card.log(), row.sent);
}

INSTANTIATE_TEST_SUITE_P(Bench, ObtainSsn,
                         ::testing::Combine(::testing::ValuesIn(kCases), ::testing::Values(Protocol::T0, Protocol::T1)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).name) + "_" +
                                    sim::protocolName(std::get<1>(info.param));
                         });

TEST(ObtainSsnNull, SendsNothing) {
    SimCard card;
    card.applets = {sim::kSsnAid1};
    ASSERT_TRUE(sim::insertCard(card));
    CardSession session(sim::readerName(card.reader()));
    ASSERT_TRUE(session.ok());
    EXPECT_EQ(obtainSpecificSSN(session.card(), session.protocol(), nullptr, true), SSN_NULL_BUFFER);
    EXPECT_TRUE(card.log().empty());
}

}  // namespace
