// SendAPDU and CardSession against simulated cards in vpcd's readers.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "sim/pcscd_fixture.h"
#include "card/apdu.h"
#include "support.h"

using sim::Bytes;
using sim::Fault;
using sim::Protocol;
using sim::SimCard;
using testsupport::fromHex;

namespace {

const char kCalcFromSn[] = "80384000080102030405060708";  // the default card's SN as data
const char kGetInit[] = "8038200300";
const char kGetPcs[] = "808E0000";
const char kGetResponse20[] = "00C0000020";

std::string hex(const Bytes& bytes) { return testsupport::toHex(bytes.data(), bytes.size()); }

Bytes withOk(Bytes data) {
    data.insert(data.end(), {0x90, 0x00});
    return data;
}

DWORD pcscProtocol(Protocol p) { return p == Protocol::T0 ? SCARD_PROTOCOL_T0 : SCARD_PROTOCOL_T1; }

// Selects aid through the session; true when the card answered 90 00.
bool select(const CardSession& session, const Bytes& aid) {
    unsigned char response[kApduBufferBytes];
    DWORD length = 0;
    return session.exchange(selectApplet(aid.data()), response, &length);
}

struct Retry {
    const char* name;
    Bytes aid;  // applet selected before the command
    std::string command;
    std::vector<Fault> faults;
    bool answer61;                           // data of commands with data comes by GET RESPONSE
    Bytes (*response)(const SimCard& card);  // what the caller gets
    std::vector<std::string> sent;           // what the card saw, in order
    std::string commandAfter;                // the caller's command afterwards
};

void PrintTo(const Retry& row, std::ostream* out) { *out << row.name; }

// The second-status rows force that status only once more, so that a
// SendAPDU retrying without end fails here rather than hangs.
std::vector<Retry> retries() {
    return {
        // The bare 61 20 leaves the length at 2; the answer fits only if the
        // capacity is restored before the GET RESPONSE.
        {"MoreDataFetchedOnce", sim::kGostAid, kCalcFromSn, {}, true,
         [](const SimCard& c) { return withOk(c.checksum(c.sn, 32)); }, {kCalcFromSn, kGetResponse20}, kCalcFromSn},
        {"SecondMoreDataHandedBack", sim::kGostAid, kCalcFromSn, {{fromHex("00C0"), {0x61, 0x20}, 1}}, true,
         [](const SimCard&) { return Bytes{0x61, 0x20}; }, {kCalcFromSn, kGetResponse20}, kCalcFromSn},
        {"WrongLengthResentWithCardsLe", sim::kGostAid, kGetInit, {{fromHex(kGetInit), {0x6C, 0x10}, 1}}, false,
         [](const SimCard& c) { return withOk(c.storedInitChecksum()); }, {kGetInit, "8038200310"}, "8038200310"},
        {"SecondWrongLengthHandedBack", sim::kGostAid, kGetInit,
         {{fromHex("80382003"), {0x6C, 0x10}, 1}, {fromHex("80382003"), {0x6C, 0x10}, 2}}, false,
         [](const SimCard&) { return Bytes{0x6C, 0x10}; }, {kGetInit, "8038200310"}, "8038200310"},
        {"WrongLengthOnFourByteCommandResentUnchanged", sim::kAdminAid, kGetPcs,
         {{fromHex(kGetPcs), {0x6C, 0x08}, 1}}, false, [](const SimCard& c) { return withOk(c.adminPcs()); },
         {kGetPcs, kGetPcs}, kGetPcs},
        // Without an Le byte the card's length replaces the last data byte.
        {"WrongLengthReplacesLastDataByte", sim::kGostAid, kCalcFromSn, {{fromHex(kCalcFromSn), {0x6C, 0x20}, 1}},
         false,
         [](const SimCard& c) {
             Bytes data = c.sn;
             data.back() = 0x20;
             return withOk(c.checksum(data, 32));
         },
         {kCalcFromSn, "80384000080102030405060720"}, "80384000080102030405060720"},
        // Data that looks like a status word too: only a bare status word counts.
        {"LongAnswerEndingIn61NotFollowed", sim::kGostAid, kGetInit, {{fromHex(kGetInit), {0x61, 0x10, 0x61, 0x10}}},
         false, [](const SimCard&) { return Bytes{0x61, 0x10, 0x61, 0x10}; }, {kGetInit}, kGetInit},
        {"OtherStatusNotFollowed", sim::kGostAid, kGetInit, {{fromHex(kGetInit), {0x6A, 0x88}}}, false,
         [](const SimCard&) { return Bytes{0x6A, 0x88}; }, {kGetInit}, kGetInit},
    };
}

class SendApduRetry : public ::testing::TestWithParam<std::tuple<Retry, Protocol>> {};

TEST_P(SendApduRetry, MakesAtMostOneFollowUp) {
    const Retry& row = std::get<0>(GetParam());
    SimCard card(std::get<1>(GetParam()));
    card.applets = {sim::kGostAid, sim::kAdminAid};
    card.answer61 = row.answer61;
    card.faults = row.faults;
    ASSERT_TRUE(sim::insertCard(card));
    CardSession session(sim::readerName(card.reader()));
    ASSERT_TRUE(session.ok());
    ASSERT_TRUE(select(session, row.aid));
    card.clearLog();

    Bytes command = fromHex(row.command);
    unsigned char response[kApduBufferBytes];
    DWORD length = kApduBufferBytes;
    const LONG result = SendAPDU(session.card(), session.protocol(), command.data(),
                                 static_cast<DWORD>(command.size()), response, &length);
    EXPECT_EQ(result, SCARD_S_SUCCESS);
    ASSERT_LE(length, kApduBufferBytes);
    EXPECT_EQ(hex(Bytes(response, response + length)), hex(row.response(card)));
    EXPECT_EQ(card.log(), row.sent);
    EXPECT_EQ(hex(command), row.commandAfter);
}

INSTANTIATE_TEST_SUITE_P(Bench, SendApduRetry,
                         ::testing::Combine(::testing::ValuesIn(retries()),
                                            ::testing::Values(Protocol::T0, Protocol::T1)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).name) + "_" +
                                    sim::protocolName(std::get<1>(info.param));
                         });

TEST(SendApdu, RefusesOtherProtocolsWithNothingSent) {
    SimCard card(Protocol::T1);
    card.applets = {sim::kGostAid};
    ASSERT_TRUE(sim::insertCard(card));
    CardSession session(sim::readerName(card.reader()));
    ASSERT_TRUE(session.ok());
    for (const DWORD protocol : {DWORD{SCARD_PROTOCOL_RAW}, DWORD{SCARD_PROTOCOL_UNDEFINED},
                                 DWORD{SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1}}) {
        Bytes command = fromHex(kGetInit);
        unsigned char response[kApduBufferBytes];
        DWORD length = kApduBufferBytes;
        EXPECT_EQ(SendAPDU(session.card(), protocol, command.data(), 5, response, &length),
                  static_cast<LONG>(0x80100004))
            << "protocol " << protocol;
    }
    EXPECT_TRUE(card.log().empty());
}

class Session : public ::testing::TestWithParam<Protocol> {};

TEST_P(Session, LeavesNothingBehindOnAnyExit) {
    SimCard card(GetParam());
    card.applets = {sim::kGostAid};
    ASSERT_TRUE(sim::insertCard(card));
    {
        CardSession session(sim::readerName(card.reader()));
        ASSERT_TRUE(session.ok());
        EXPECT_EQ(session.protocol(), pcscProtocol(GetParam()));
        EXPECT_TRUE(select(session, sim::kGostAid));
        EXPECT_TRUE(sim::cardInUse(card.reader()));
    }
    EXPECT_EQ(card.resets(), 1);
    EXPECT_FALSE(sim::cardInUse(card.reader()));

    // Sessions that fail to connect: an empty reader and an unknown one.
    const int other = 1 - card.reader();
    ASSERT_TRUE(sim::waitForCard(other, false));
    for (const char* reader : {sim::readerName(other), "No Such Reader 00 00"}) {
        CardSession session(reader);
        EXPECT_FALSE(session.ok()) << reader;
    }
    // A new session connects and holds a transaction at once.
    CardSession again(sim::readerName(card.reader()));
    ASSERT_TRUE(again.ok());
    EXPECT_TRUE(select(again, sim::kGostAid));
}

// The card goes away between two commands, or while the reader waits for
// its answer (which vpcd reports as an empty answer, not an error): the
// command fails, the session ends without hanging, the reader takes the
// next card.
TEST_P(Session, EndsCleanlyWhenTheCardIsPulledOut) {
    for (const bool midCommand : {false, true}) {
        SimCard card(GetParam());
        card.applets = {sim::kGostAid};
        if (midCommand) card.faults = {{fromHex(kGetInit), {}}};
        ASSERT_TRUE(sim::insertCard(card));
        {
            CardSession session(sim::readerName(card.reader()));
            ASSERT_TRUE(session.ok());
            if (!midCommand) {
                ASSERT_TRUE(sim::removeCard(card));
            }
            unsigned char response[kApduBufferBytes];
            DWORD length = 0;
            EXPECT_FALSE(session.exchange(commandWithLe(cardcmd::kGost2GetInitChecksum, 0x00), response, &length))
                << "mid-command " << midCommand;
            EXPECT_TRUE(sim::waitForCard(card.reader(), false));
        }
        SimCard next(GetParam());
        next.applets = {sim::kGostAid};
        ASSERT_TRUE(sim::insertCard(next, card.reader()));
        CardSession session(sim::readerName(next.reader()));
        ASSERT_TRUE(session.ok());
        EXPECT_TRUE(select(session, sim::kGostAid));
    }
}

INSTANTIATE_TEST_SUITE_P(Bench, Session, ::testing::Values(Protocol::T0, Protocol::T1),
                         [](const auto& info) { return std::string(sim::protocolName(info.param)); });

}  // namespace
