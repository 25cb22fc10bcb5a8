// "-cs" and "-ta" run as an operator runs them, against simulated cards in
// the fixture's two readers. Whole outputs are compared; only a new record's
// random IV, the checksum made from it and the time are taken from the output.
#include <gtest/gtest.h>

#include <functional>
#include <regex>
#include <string>

#include "e2e/run_program.h"
#include "sim/pcscd_fixture.h"
#include "support.h"

using sim::Bytes;
using sim::Fault;
using sim::Protocol;
using sim::SimCard;
using testsupport::fromHex;
using testsupport::TempDir;
using testsupport::toHex;

namespace {

struct Mode {
    const char* flag;
    const char* banner;
    Bytes aid;
    size_t valueLen;
    bool admin;
};
const Mode kGost{"-cs", "\r\napplet checksum mode:\r\n", sim::kGostAid, 32, false};
const Mode kAdmin{"-ta", "\r\nVeltora Admin checksum mode:\r\n", sim::kAdminAid, 8, true};

const std::string kDefaultSsn = "3FCA88C5";  // CRC-32 of the default SN 01..08
const std::string kFailure = "\r\nError 0\r\n";

std::string hex(const Bytes& b) { return toHex(b.data(), b.size()); }
std::string reader(int r) { return sim::readerName(r); }

std::string notFound(int r) { return "\r\n " + reader(r) + " : card not found"; }
std::string header(int r, const SimCard& card, const std::string& ssn) {
    return "\r\n " + reader(r) + " : #SN:" + hex(card.sn) + " (#SSN:" + ssn + ") ";
}
std::string initOk(int r, const SimCard& card, const std::string& ssn = kDefaultSsn) {
    return header(r, card, ssn) + "cs_init - Ok!\r\n";
}
std::string verifying(int r, const SimCard& card, const std::string& ssn = kDefaultSsn) {
    return " " + reader(r) + " : #SN:" + hex(card.sn) + " (#SSN:" + ssn + ") ";
}

Bytes pcsOf(const SimCard& card, const Mode& mode) { return mode.admin ? card.adminPcs() : card.gostPcs(); }

// A record for card as the program would print it, with a chosen IV.
std::string recordFor(const SimCard& card, const Mode& mode, const std::string& ssn = kDefaultSsn) {
    const Bytes iv(mode.valueLen, 0x5A);
    return "#SN:" + hex(card.sn) + "(#SSN:" + ssn + ")#IV:" + hex(iv) + "#CS:" + hex(card.checksum(iv, mode.valueLen)) +
           "#PCS:" + hex(pcsOf(card, mode)) + "#GEN_TIME:01/02/03_04:05:06\r\n";
}

size_t count(const std::vector<std::string>& log, const std::string& prefix) {
    size_t n = 0;
    for (const auto& line : log) n += line.rfind(prefix, 0) == 0;
    return n;
}

class ChecksumModes : public ::testing::Test {
protected:
    RunResult run(const std::vector<std::string>& args) { return runVeltcheck(args, dir.path()); }
    void TearDown() override {
        // Whatever happened, the program left no card held.
        EXPECT_FALSE(sim::cardInUse(0));
        EXPECT_FALSE(sim::cardInUse(1));
    }
    TempDir dir;
};

std::string seedCommand(const Mode& mode) { return mode.admin ? "808C000000" : "803ED00020"; }

}  // namespace

// New record, then the record saved among others verifies the card, on both
// protocols; T=0 brings the data back by GET RESPONSE.
TEST_F(ChecksumModes, NewRecordThenVerify) {
    for (const Mode* mode : {&kGost, &kAdmin}) {
        for (Protocol protocol : {Protocol::T0, Protocol::T1}) {
            SCOPED_TRACE(std::string(mode->flag) + " " + sim::protocolName(protocol));
            SimCard card(protocol);
            card.applets = {mode->aid};
            ASSERT_TRUE(sim::insertCard(card, 1));

            const RunResult made = run({mode->flag});
            const std::string hexField = "([0-9A-F]{" + std::to_string(2 * mode->valueLen) + "})";
            const std::regex record("#SN:" + hex(card.sn) + "\\(#SSN:" + kDefaultSsn + "\\)#IV:" + hexField +
                                    "#CS:" + hexField + "#PCS:" + hexField + "#GEN_TIME:([^\r\n]*)\r\n");
            std::smatch m;
            ASSERT_TRUE(std::regex_search(made.out, m, record)) << made.out;
            const Bytes iv = fromHex(m[1]);
            const std::string expectedRecord = "#SN:" + hex(card.sn) + "(#SSN:" + kDefaultSsn + ")#IV:" + hex(iv) +
                                               "#CS:" + hex(card.checksum(iv, mode->valueLen)) +
                                               "#PCS:" + hex(pcsOf(card, *mode)) + "#GEN_TIME:" + m[4].str() + "\r\n";
            EXPECT_EQ(made.out, mode->banner + notFound(0) + initOk(1, card) + expectedRecord + "\r\n");
            EXPECT_EQ(made.status, 0);
            EXPECT_EQ(count(card.log(), seedCommand(*mode)), 2u);
            EXPECT_EQ(count(card.log(), "00C00000") > 0, protocol == Protocol::T0);

            SimCard other;
            other.sn = {9, 8, 7, 6, 5, 4, 3, 2};
            testsupport::writeFile(dir.file("records.txt"), recordFor(other, *mode) + "\r\n" + expectedRecord);
            const int resetsBefore = card.resets();
            const RunResult checked = run({mode->flag, "records.txt"});
            EXPECT_EQ(checked.out, mode->banner + notFound(0) + initOk(1, card) + verifying(1, card) +
                                       "cs_pcs_file - Ok!\r\n" + "\r\n");
            EXPECT_EQ(checked.status, 0);
            EXPECT_GT(card.resets(), resetsBefore);  // each run leaves the card reset
            ASSERT_TRUE(sim::removeCard(card));
        }
    }
}

// One row: the card in reader 1 (reader 0 empty), how it is changed, the
// record file, and what reader 1's part of the output ends with.
TEST_F(ChecksumModes, VerifyAndFaultTable) {
    struct Row {
        const char* name;
        const Mode* mode;
        std::function<void(SimCard&)> setUp;
        std::function<std::string(const SimCard&)> file;  // null: new-record mode
        std::function<std::string(const SimCard&)> tail;  // reader 1's text after the reader name
        int status;
    };
    auto bodyPrefix = [](const SimCard& c, const std::string& ssn = kDefaultSsn) {
        return "#SN:" + hex(c.sn) + " (#SSN:" + ssn + ") ";
    };
    auto verifyTail = [&](std::string message) {
        return [=](const SimCard& c) { return bodyPrefix(c) + "cs_init - Ok!\r\n" + verifying(1, c) + message; };
    };
    auto flip = [](std::string text, const std::string& tag) {
        const size_t at = text.find(tag) + tag.size();
        text[at] = text[at] == '0' ? '1' : '0';
        return text;
    };
    const Bytes lettersSn = {0x0A, 0x1B, 0x2C, 0x3D, 0x4E, 0x5F, 0x60, 0x71};
    auto useLettersSn = [&](SimCard& c) { c.sn = lettersSn; };
    std::vector<Row> rows;
    for (const Mode* mode : {&kGost, &kAdmin}) {
        const std::string missing = "SN found error in file records.txt!";
        rows.push_back({"changed CS",
                        mode,
                        {},
                        [=](const SimCard& c) { return flip(recordFor(c, *mode), "#CS:"); },
                        verifyTail("cs_file error!"),
                        255});
        rows.push_back({"changed PCS",
                        mode,
                        {},
                        [=](const SimCard& c) { return flip(recordFor(c, *mode), "#PCS:"); },
                        verifyTail("pcs_file error!"),
                        255});
        rows.push_back({"SN missing",
                        mode,
                        {},
                        [=](const SimCard&) { return std::string("#SN:0000000000000000\r\n"); },
                        verifyTail(missing),
                        255});
        rows.push_back({"SN only in lower case", mode, useLettersSn,
                        [=](const SimCard& c) {
                            std::string r = recordFor(c, *mode);
                            for (size_t i = 4; i < 20; ++i) r[i] = static_cast<char>(std::tolower(r[i]));
                            return r;
                        },
                        [=](const SimCard& c) {
                            const std::string ssn = "E630DE61";
                            return bodyPrefix(c, ssn) + "cs_init - Ok!\r\n" + verifying(1, c, ssn) + missing;
                        },
                        255});
        rows.push_back({"applet missing",
                        mode,
                        [](SimCard& c) { c.applets.clear(); },
                        {},
                        [=](const SimCard&) {
                            return std::string(mode->admin ? "ARM Applet not found" : "Veltora-2 GOST not found");
                        },
                        0});
    }
    rows.push_back({"cs_init mismatch",
                    &kGost,
                    [](SimCard& c) { c.initChecksum = Bytes(32, 0x42); },
                    {},
                    [&](const SimCard& c) { return bodyPrefix(c) + "cs_init error!"; },
                    255});
    rows.push_back({"cs_init mismatch",
                    &kAdmin,
                    [](SimCard& c) { c.pcs = Bytes(8, 0x42); },
                    {},
                    [&](const SimCard& c) { return bodyPrefix(c) + "cs_init error!"; },
                    255});
    rows.push_back({"SN answer without data",
                    &kGost,
                    [](SimCard& c) {
                        c.faults = {{{0x80, 0x38, 0x20, 0x00}, {0x90, 0x00}}};
                    },
                    {},
                    [](const SimCard&) { return std::string("'get info' error!"); },
                    255});
    rows.push_back({"init checksum of 33 bytes",
                    &kGost,
                    [](SimCard& c) {
                        Bytes answer(31, 0x33);
                        answer.insert(answer.end(), {0x90, 0x00});
                        c.faults = {{{0x80, 0x38, 0x20, 0x03}, answer}};
                    },
                    {},
                    [](const SimCard& c) { return "#SN:" + hex(c.sn) + " 'get info' error!"; },
                    255});
    rows.push_back({"PCS answer longer than the buffer",
                    &kGost,
                    [](SimCard& c) {
                        c.faults = {{{0x80, 0x38, 0x20, 0x0B}, Bytes(300, 0x90)}};
                    },
                    {},
                    [&](const SimCard& c) { return bodyPrefix(c) + "'get info' error!"; },
                    255});
    rows.push_back({"checksum of SN with a bad status",
                    &kGost,
                    [](SimCard& c) {
                        c.faults = {{{0x80, 0x38, 0x40, 0x00, 0x08}, {0x6A, 0x80}}};
                    },
                    {},
                    [&](const SimCard& c) { return bodyPrefix(c) + "'calculate checksum'(from SN) error!"; },
                    255});
    rows.push_back({"seed refused",
                    &kGost,
                    [](SimCard& c) {
                        c.faults = {{{0x80, 0x3E}, {0x6F, 0x00}}};
                    },
                    {},
                    [&](const SimCard& c) { return bodyPrefix(c) + "cs_init - Ok!\r\n'receive random seed' error!"; },
                    255});
    rows.push_back({"get PCS of 9 bytes",
                    &kAdmin,
                    [](SimCard& c) {
                        c.faults = {{{0x80, 0x8E, 0x00, 0x00}, Bytes{1, 2, 3, 4, 5, 6, 7, 0x90, 0x00}, 1}};
                    },
                    {},
                    [&](const SimCard& c) { return bodyPrefix(c) + "'get PCS' error!"; },
                    0});
    rows.push_back(
        {"checksum from the random IV fails",
         &kAdmin,
         [](SimCard& c) {
             c.faults = {{{0x80, 0x8E, 0x00, 0x00, 0x08}, {0x69, 0x85}, 2}};
         },
         {},
         [&](const SimCard& c) { return bodyPrefix(c) + "cs_init - Ok!\r\n'calculate checksum'(from rnd) error!"; },
         255});
    rows.push_back(
        {"select answer too short for an SN",
         &kAdmin,
         [](SimCard& c) {
             c.faults = {{{0x00, 0xA4, 0x04, 0x00, 0x08, 0xF2, 0x4E, 0x51, 0x00, 0x37, 0x00, 0x10}, {0x90, 0x00}}};
         },
         // The SN reads as zeros, never as bytes left from an earlier answer.
         {},
         [](const SimCard&) { return std::string("#SN:0000000000000000 (#SSN:6522DF69) 'get PCS' error!"); },
         0});
    // The SSN: from the SSN applet (A0 reversed for GOST-2 only, AC text), else the CRC-32.
    auto ssnRow = [&](const Mode* mode, unsigned char code, Bytes value, std::string ssn) {
        rows.push_back({"SSN", mode,
                        [=](SimCard& c) {
                            c.applets.push_back(sim::kSsnAid1);
                            c.ssnLengthCode = code;
                            c.ssnValue = value;
                        },
                        [=](const SimCard& c) { return recordFor(c, *mode, ssn); },
                        [=](const SimCard& c) {
                            return bodyPrefix(c, ssn) + "cs_init - Ok!\r\n" + verifying(1, c, ssn) +
                                   "cs_pcs_file - Ok!\r";
                        },
                        0});
    };
    ssnRow(&kGost, 0xA0, {0x12, 0x34, 0x56, 0x78}, "78563412");
    ssnRow(&kAdmin, 0xA0, {0x12, 0x34, 0x56, 0x78}, "12345678");
    ssnRow(&kGost, 0xAC, {'A', 'B', 'C'}, "ABC");
    ssnRow(&kAdmin, 0xAC, {'A', 'B', 'C'}, "ABC");
    ssnRow(&kGost, 0xAC, Bytes(16, 'X'), kDefaultSsn);  // too long: the CRC-32 instead

    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.mode->flag) + " " + row.name);
        SimCard card;
        card.applets = {row.mode->aid};
        if (row.setUp) row.setUp(card);
        ASSERT_TRUE(sim::insertCard(card, 1));
        std::vector<std::string> args = {row.mode->flag};
        if (row.file) {
            testsupport::writeFile(dir.file("records.txt"), row.file(card));
            args.push_back("records.txt");
        }
        const RunResult r = run(args);
        std::string tail = row.tail(card);
        if (tail.back() == '\r') tail += "\n";  // a verdict written with puts
        EXPECT_EQ(r.out, row.mode->banner + notFound(0) + "\r\n " + reader(1) + " : " + tail + "\r\n" +
                             (row.status == 255 ? kFailure : ""));
        EXPECT_EQ(r.status, row.status);
        ASSERT_TRUE(sim::removeCard(card));
    }
}

// Readers are visited in order; only the first card is asked for a seed,
// and the verdict follows the last reader.
TEST_F(ChecksumModes, TwoReaders) {
    SimCard first, second;
    first.applets = second.applets = {kGost.aid};
    second.sn = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};
    ASSERT_TRUE(sim::insertCard(first, 0));
    ASSERT_TRUE(sim::insertCard(second, 1));
    const RunResult made = run({"-cs"});
    EXPECT_EQ(made.status, 0);
    EXPECT_EQ(count(first.log(), seedCommand(kGost)), 2u);
    EXPECT_EQ(count(second.log(), seedCommand(kGost)), 0u);
    const size_t firstAt = made.out.find(reader(0)), secondAt = made.out.find(reader(1));
    EXPECT_LT(firstAt, secondAt);
    EXPECT_EQ(std::count(made.out.begin(), made.out.end(), '#'),
              2 * 8);  // per card: the line's SN and SSN, six record tags

    // The first card fails its check, the last reader's card passes: success.
    testsupport::writeFile(dir.file("records.txt"), [&] {
        std::string r = recordFor(first, kGost);
        r[r.find("#PCS:") + 5] ^= 1;
        return r;
    }() + recordFor(second, kGost, "9118E1C2"));
    ASSERT_TRUE(sim::removeCard(second));
    const RunResult mixed = run({"-cs", "records.txt"});
    EXPECT_EQ(mixed.out,
              kGost.banner + initOk(0, first) + verifying(0, first) + "pcs_file error!" + notFound(1) + "\r\n");
    EXPECT_EQ(mixed.status, 0);
    ASSERT_TRUE(sim::removeCard(first));
}
