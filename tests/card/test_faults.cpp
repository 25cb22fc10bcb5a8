// Card faults: whatever the card or the PC/SC service does, veltcheck ends by
// itself with its own messages and status 0 or 255, leaves the reader free,
// and says "Ok!" only after the very answers that justify it.
// VELT_FAULT_RUNS sets the number of random-card runs (default 300),
// VELT_FAULT_SEED their seed (else a fresh one, named on failure).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "sim/pcscd_fixture.h"
#include "support.h"

using sim::Bytes;
using sim::Protocol;
using sim::SimCard;

namespace {

using Clock = std::chrono::steady_clock;
using Exchanges = std::vector<std::pair<Bytes, Bytes>>;  // command, answer sent

struct Outcome {
    std::string out, err;  // err: where sanitizer reports go
    int status;            // exit status; 1000 + signal if killed
};

// Runs veltcheck in dir. A run still going after limitS seconds gets the
// SIGALRM that alarm() keeps across exec, so a hang fails as status 1014.
Outcome runLimited(const std::vector<std::string>& args, const std::string& dir, unsigned limitS = 30) {
    std::vector<std::string> words{"veltcheck"};
    words.insert(words.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (auto& w : words) argv.push_back(w.data());
    argv.push_back(nullptr);
    const std::string errPath = dir + "/stderr.txt";
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return {"", "pipe failed", -1};
    const pid_t pid = fork();
    if (pid == 0) {
        // Async-signal-safe calls only: the card threads are running.
        const int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (dup2(fds[1], STDOUT_FILENO) < 0 || err < 0 || dup2(err, STDERR_FILENO) < 0 || chdir(dir.c_str()) != 0)
            _exit(121);
        alarm(limitS);
        execv(VELTCHECK_BIN, argv.data());
        _exit(127);
    }
    close(fds[1]);
    Outcome o{{}, {}, -1};
    char buf[4096];
    for (ssize_t got; pid > 0 && (got = read(fds[0], buf, sizeof buf)) > 0;) o.out.append(buf, size_t(got));
    close(fds[0]);
    int status = 0;
    if (pid < 0 || waitpid(pid, &status, 0) != pid) return {o.out, "fork or wait failed", -1};
    o.status = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    o.err = testsupport::readFile(errPath);
    return o;
}

struct Mode {
    const char* flag;
    const char* banner;
    size_t len;  // of IV, checksum and PCS
    bool admin;
};
const Mode kGost{"-cs", "\r\napplet checksum mode:\r\n", 32, false};
const Mode kAdmin{"-ta", "\r\nVeltora Admin checksum mode:\r\n", 8, true};

Bytes ok(Bytes data) {
    data.insert(data.end(), {0x90, 0x00});
    return data;
}
Bytes cat(Bytes a, const Bytes& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}
std::string hex(const Bytes& b) { return testsupport::toHex(b.data(), b.size()); }
std::string shown(std::string s) {
    for (size_t at = 0; (at = s.find_first_of("\r\n", at)) != std::string::npos; at += 2)
        s.replace(at, 1, s[at] == '\r' ? "\\r" : "\\n");
    return s;
}

// A checksum record's values, and its line in a record file.
struct Record {
    Bytes sn, iv, cs, pcs;
    std::string text() const {
        return "#SN:" + hex(sn) + "(#SSN:X)#IV:" + hex(iv) + "#CS:" + hex(cs) + "#PCS:" + hex(pcs) +
               "#GEN_TIME:01/02/03_04:05:06\r\n";
    }
};
Record recordOf(const SimCard& card, const Mode& m, const Bytes& iv) {
    return {card.sn, iv, card.checksum(iv, m.len), m.admin ? card.adminPcs() : card.gostPcs()};
}

// What ends a reader's line; the first seven end the program with status 0
// when they end the last reader's line.
// clang-format off
const std::vector<std::string> kVerdicts = {"card not found", "Veltora-2 GOST not found", "ARM Applet not found",
    "'get PCS' error!", "'calculate cs of SN' error!", "cs_pcs_file - Ok!\r\n", "record\r\n", "'get info' error!",
    "'calculate checksum'(from SN) error!", "cs_init error!", "'receive random seed' error!", "'init random' error!",
    "'get random' error!", "'calculate checksum'(from rnd) error!", "SN found error in file records.txt!",
    "'calculate checksum'(for IV from file) error!", "cs_file error!", "pcs_file error!"};
// clang-format on
bool successful(const std::string& verdict) {
    return std::find(kVerdicts.begin(), kVerdicts.begin() + 7, verdict) != kVerdicts.begin() + 7;
}

std::string verdictOf(const std::string& line) {
    if (line.empty()) return "";
    std::string longest = "record\r\n";  // no other line may end in a line end
    for (const auto& v : kVerdicts) {    // the longest: "pcs_file error!" ends in "cs_file error!"
        const bool ends = line.size() >= v.size() && line.compare(line.size() - v.size(), v.size(), v) == 0;
        if (ends && v.size() > longest.size()) longest = v;
    }
    return longest;
}

std::string esc(const std::string& s) {
    static const std::regex special(R"([.^$|()\[\]{}*+?\\])");
    return std::regex_replace(s, special, R"(\$&)");
}
std::string any(std::initializer_list<std::string> alternatives) {
    std::string r;
    for (const auto& a : alternatives) r += (r.empty() ? "(?:" : "|") + a;
    return r + ")";
}

// Everything one reader's line may hold, in the order the program prints it.
std::string lineGrammar(const Mode& m, const std::string& reader, bool verify) {
    const std::string sn = "#SN:[0-9A-F]{16}", ssn = "\\(#SSN:[\\s\\S]{0,15}?\\)",
                      value = "[0-9A-F]{" + std::to_string(2 * m.len) + "}";
    const std::string record = sn + ssn + "#IV:" + value + "#CS:" + value + "#PCS:" + value + "#GEN_TIME:[^\r\n]*\r\n";
    const std::string tail =
        verify
            ? esc(" " + reader + " : ") + sn + " " + ssn + " " +
                  any({esc("SN found error in file records.txt!"), esc("'calculate checksum'(for IV from file) error!"),
                       esc("cs_file error!"), esc("pcs_file error!"), esc("cs_pcs_file - Ok!\r\n")})
            : any({esc("'receive random seed' error!"), esc("'init random' error!"), esc("'get random' error!"),
                   esc("'calculate checksum'(from rnd) error!"), record});
    const std::string init = any({esc("cs_init error!"), esc("cs_init - Ok!\r\n") + tail});
    const std::string head = esc("\r\n " + reader + " : ");
    if (m.admin) {
        const std::string afterSsn = any({esc("'get PCS' error!"), esc("'calculate cs of SN' error!"), init});
        return head + any({esc("card not found"), esc("ARM Applet not found"), sn + " " + ssn + " " + afterSsn});
    }
    const std::string afterSsn = any({esc("'get info' error!"), esc("'calculate checksum'(from SN) error!"), init});
    const std::string afterSn = any({esc("'get info' error!"), ssn + " " + afterSsn});
    return head +
           any({esc("card not found"), esc("Veltora-2 GOST not found"), esc("'get info' error!"), sn + " " + afterSn});
}

// Checks what every run must show: only the program's messages, a status
// that follows the last reader's verdict, a silent standard error, no reader
// held. Returns the two readers' lines (empty if the output is not the program's).
std::vector<std::string> checkOutcome(const Outcome& o, const Mode& m, bool verify) {
    static std::map<std::pair<bool, bool>, std::regex> grammars;
    std::regex& grammar = grammars[{m.admin, verify}];
    if (grammar.mark_count() == 0)
        grammar = std::regex(esc(m.banner) + "(" + lineGrammar(m, sim::readerName(0), verify) + ")(" +
                             lineGrammar(m, sim::readerName(1), verify) + ")\r\n(\r\nError 0\r\n)?");
    EXPECT_EQ(o.err, "");
    EXPECT_TRUE(o.status == 0 || o.status == 255) << "status " << o.status;
    EXPECT_FALSE(sim::cardInUse(0));
    EXPECT_FALSE(sim::cardInUse(1));
    std::smatch line;
    if (!std::regex_match(o.out, line, grammar)) {
        ADD_FAILURE() << "not the program's messages: " << shown(o.out);
        return {"", ""};
    }
    EXPECT_EQ(o.status, successful(verdictOf(line[2])) ? 0 : 255) << shown(o.out);
    EXPECT_EQ(line[3].matched, o.status == 255) << shown(o.out);
    return {line[1], line[2]};
}

// An answer that a verdict rests on: the last answer sent to a command that
// `is` picks, or to a GET RESPONSE right after one, must be `answer`.
struct Needed {
    std::function<bool(const Bytes&)> is;
    Bytes answer;
};
bool answered(const Exchanges& sent, const std::vector<Needed>& needs) {
    for (const auto& need : needs) {
        const Bytes* last = nullptr;
        bool picked = false;
        for (const auto& [command, answer] : sent) {
            if (command.size() < 4 || command[0] != 0x00 || command[1] != 0xC0) picked = need.is(command);
            if (picked) last = &answer;
        }
        if (last == nullptr || *last != need.answer) return false;
    }
    return true;
}
std::function<bool(const Bytes&)> exactly(const Bytes& c) {
    return [c](const Bytes& command) { return command == c; };
}
std::function<bool(const Bytes&)> getInfo(unsigned char p2) {  // any Le, for a 6C resend
    return [p2](const Bytes& c) {
        return c.size() == 5 && Bytes(c.begin(), c.begin() + 4) == Bytes{0x80, 0x38, 0x20, p2};
    };
}
Bytes checksumCommand(const Mode& m, const Bytes& data) {
    const Bytes header = m.admin ? Bytes{0x80, 0x8E, 0x00, 0x00} : Bytes{0x80, 0x38, 0x40, 0x00};
    return cat(cat(header, {static_cast<unsigned char>(data.size())}), data);
}
// "cs_init - Ok!" needs the card's stored value and its checksum of its own SN.
std::vector<Needed> initOkNeeds(const SimCard& card, const Mode& m) {
    return {{m.admin ? exactly({0x80, 0x8E, 0x00, 0x00}) : getInfo(0x03),
             ok(m.admin ? card.adminPcs() : card.storedInitChecksum())},
            {exactly(checksumCommand(m, card.sn)), ok(card.checksum(card.sn, m.len))}};
}
// "cs_pcs_file - Ok!" needs the record's PCS and its checksum for the record's IV.
std::vector<Needed> fileOkNeeds(const Record& r, const Mode& m) {
    return {{m.admin ? exactly({0x80, 0x8E, 0x00, 0x00}) : getInfo(0x0B), ok(r.pcs)},
            {exactly(checksumCommand(m, r.iv)), ok(r.cs)}};
}

// Answers for the card at random: each command gets the card's own answer,
// or with probability rate a fault. Keeps every answer it sent.
class Chaos {
public:
    Chaos(uint64_t seed, double rate) : rng_(seed), rate_(rate) {}
    Bytes answer(const Bytes& command, const Bytes& own) {
        std::lock_guard<std::mutex> lock(mutex_);
        sent_.emplace_back(command, std::uniform_real_distribution<>(0, 1)(rng_) < rate_ ? fault(own) : own);
        return sent_.back().second;
    }
    Exchanges sent() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return sent_;
    }

private:
    Bytes fault(const Bytes& own) {
        auto n = [&](size_t k) { return static_cast<size_t>(rng_() % k); };
        auto noise = [&](size_t len) {
            Bytes b(len);
            for (auto& x : b) x = static_cast<unsigned char>(rng_());
            return b;
        };
        Bytes data(own.begin(), own.end() - std::min<size_t>(own.size(), 2));
        switch (n(8)) {
            case 0:  // pulled out, or any bytes
                return n(2) == 0 ? Bytes{} : noise(1 + n(300));
            case 1:
                return noise(1 + n(300));
            case 2:  // looks valid, up to 300 in all
                return ok(noise(n(299)));
            case 3:  // the right length, other data
                return ok(noise(data.size()));
            case 4:  // its own data cut or lengthened
                if (n(2) == 0 && !data.empty()) return ok(Bytes(data.begin(), data.begin() + n(data.size())));
                return ok(cat(data, noise(1 + n(8))));
            case 5:  // asks for another exchange
                return {static_cast<unsigned char>(n(2) == 0 ? 0x61 : 0x6C), static_cast<unsigned char>(rng_())};
            case 6:  // a status word alone
                return n(2) == 0 ? Bytes{0x90, 0x00} : noise(2);
            default:  // its own data, another status
                return cat(data, noise(2));
        }
    }
    std::mt19937_64 rng_;
    double rate_;
    mutable std::mutex mutex_;
    Exchanges sent_;
};

uint64_t envNumber(const char* name, uint64_t otherwise) {
    const char* v = std::getenv(name);
    return v != nullptr && *v != '\0' ? std::strtoull(v, nullptr, 0) : otherwise;
}

class CardFaults : public ::testing::Test {
protected:
    // A good card's whole run in the card's reader shows the reader usable.
    void expectGoodRun(const SimCard& card, const Mode& m) {
        testsupport::writeFile(dir.file("records.txt"), recordOf(card, m, Bytes(m.len, 0x3C)).text());
        const Outcome o = runLimited({m.flag, "records.txt"}, dir.path());
        EXPECT_EQ(verdictOf(checkOutcome(o, m, true)[card.reader()]), "cs_pcs_file - Ok!\r\n") << shown(o.out);
    }
    std::string verdict(const std::vector<std::string>& args, const Mode& m, int reader) {
        return verdictOf(checkOutcome(runLimited(args, dir.path()), m, args.size() > 1)[reader]);
    }
    static int failures() {
        return ::testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count();
    }
    testsupport::TempDir dir;
};

}  // namespace

// The random card: any answer may be a fault, the card may be pulled out at
// any command; runs with and without a record file, matching or not, and now
// and then a good card in the other reader, which must not notice.
TEST_F(CardFaults, RandomAnswers) {
    const uint64_t runs = envNumber("VELT_FAULT_RUNS", 300),
                   seed = envNumber("VELT_FAULT_SEED", std::random_device()());
    SimCard card, good, other;  // other: whose records the card must not pass
    good.applets = {sim::kGostAid, sim::kAdminAid};
    good.sn = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};
    other.secret = {0x07};
    other.sn = {9, 9, 9, 9, 9, 9, 9, 9};
    bool inserted = false, withGood = false;
    int reader = 1, failedRuns = 0;
    std::map<std::string, int> verdicts;
    const auto start = Clock::now();
    for (uint64_t run = 0; run < runs && failedRuns < 3; ++run) {
        std::seed_seq runSeed{seed, run};
        std::mt19937_64 rng(runSeed);
        if (!inserted || rng() % 8 == 0) {
            // Another card now and then: protocol, reader, SN and SSN applet vary.
            if (inserted) {
                ASSERT_TRUE(sim::removeCard(card));
            }
            if (withGood) {
                ASSERT_TRUE(sim::removeCard(good));
            }
            card.protocol = rng() % 2 == 0 ? Protocol::T0 : Protocol::T1;
            card.answer61 = card.protocol == Protocol::T0;
            for (auto& b : card.sn) b = static_cast<unsigned char>(rng() % 3 == 0 ? 0 : rng());
            card.applets = {sim::kGostAid, sim::kAdminAid};
            if (rng() % 2 == 0) card.applets.push_back(rng() % 2 == 0 ? sim::kSsnAid1 : sim::kSsnAid2);
            card.ssnLengthCode = rng() % 2 == 0 ? 0xA0 : 0xAC;
            card.ssnValue = {static_cast<unsigned char>('A' + rng() % 26), 0x31, 0x32, 0x33};
            reader = static_cast<int>(rng() % 2);
            withGood = rng() % 2 == 0;
            ASSERT_TRUE(sim::insertCard(card, reader));
            inserted = true;
            if (withGood) {
                ASSERT_TRUE(sim::insertCard(good, 1 - reader));
            }
        }
        const Mode& m = rng() % 2 == 0 ? kGost : kAdmin;
        Bytes iv(m.len);
        for (auto& b : iv) b = static_cast<unsigned char>(rng());
        Record file = recordOf(card, m, iv);
        const int kind = static_cast<int>(rng() % 6);  // 0 no file; 1, 2 the card's record, 2 after another
        if (kind == 3) file.cs[0] ^= 1;
        if (kind == 4) file.pcs[m.len - 1] ^= 0x80;
        if (kind == 5) file = recordOf(other, m, iv);
        std::vector<std::string> args{m.flag};
        if (kind != 0) {
            const std::string before = kind == 2 ? recordOf(other, m, iv).text() : "";
            testsupport::writeFile(dir.file("records.txt"), before + file.text() + recordOf(good, m, iv).text());
            args.push_back("records.txt");
        }
        const double rate = std::vector<double>{1.0, 0.5, 0.2, 0.08}[rng() % 4];
        auto chaos = std::make_shared<Chaos>(rng(), rate);
        card.setResponder([chaos](const Bytes& c, const Bytes& own) { return chaos->answer(c, own); });
        const Outcome o = runLimited(args, dir.path());
        card.setResponder(nullptr);
        const Exchanges sent = chaos->sent();

        std::ostringstream what;
        what << "VELT_FAULT_SEED=" << seed << " run " << run << ": veltcheck " << m.flag << (kind ? " records.txt" : "")
             << " (file kind " << kind << "), card in reader " << reader << (withGood ? " beside a good one" : "")
             << ", " << sim::protocolName(card.protocol) << ", SN " << hex(card.sn) << ", " << card.applets.size()
             << " applets, fault rate " << rate << "\noutput: " << shown(o.out) << "\nstderr: " << o.err
             << "\nexchanges:";
        for (const auto& [command, answer] : sent)
            what << "\n  " << hex(command) << " -> " << (answer.empty() ? "(pulled out)" : hex(answer));
        SCOPED_TRACE(what.str());
        const int failuresBefore = failures();
        const std::vector<std::string> lines = checkOutcome(o, m, kind != 0);
        const std::string verdict = verdictOf(lines[reader]);
        ++verdicts[std::string(m.flag) + " " + shown(verdict)];
        // A wrong "Ok!" is the worst fault: each must rest on the answers that justify it.
        if (lines[reader].find("cs_init - Ok!") != std::string::npos) {
            EXPECT_TRUE(answered(sent, initOkNeeds(card, m))) << "cs_init - Ok! without the card's answers";
        }
        if (verdict == "cs_pcs_file - Ok!\r\n") {
            EXPECT_TRUE(kind != 0 && answered(sent, fileOkNeeds(file, m))) << "Ok! without the record's answers";
        }
        if (withGood && !verdict.empty()) {
            EXPECT_EQ(verdictOf(lines[1 - reader]), kind != 0 ? "cs_pcs_file - Ok!\r\n" : "record\r\n");
        }
        if (std::any_of(sent.begin(), sent.end(), [](const auto& e) { return e.second.empty(); })) {
            ASSERT_TRUE(sim::reinsertCard(card));  // it was pulled out
        }
        expectGoodRun(card, m);
        failedRuns += failures() > failuresBefore;
    }
    std::printf("%llu random-card runs, VELT_FAULT_SEED=%llu, %.0f s; verdicts on the card's reader:\n",
                static_cast<unsigned long long>(runs), static_cast<unsigned long long>(seed),
                std::chrono::duration<double>(Clock::now() - start).count());
    for (const auto& [verdict, count] : verdicts) std::printf("  %5d  %s\n", count, verdict.c_str());
}

// A fault on the first reader's card leaves the next card as it was: a 6C
// answer to a select must not change the select that the next card gets.
TEST_F(CardFaults, FaultStaysOnItsReader) {
    const std::pair<const Mode*, int> rows[] = {{&kGost, 1}, {&kGost, 2}, {&kAdmin, 1}};
    for (const auto& [m, nth] : rows) {
        SCOPED_TRACE(std::string(m->flag) + ", 6C 05 to select " + std::to_string(nth));
        const Bytes select = cat({0x00, 0xA4, 0x04, 0x00, 0x08}, m->admin ? sim::kAdminAid : sim::kGostAid);
        SimCard bad, good;
        bad.applets = good.applets = {sim::kGostAid, sim::kAdminAid};
        good.sn = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};
        bad.faults = {{select, {0x6C, 0x05}, nth}};
        testsupport::writeFile(dir.file("records.txt"), recordOf(good, *m, Bytes(m->len, 0x42)).text());
        ASSERT_TRUE(sim::insertCard(bad, 0));
        ASSERT_TRUE(sim::insertCard(good, 1));
        EXPECT_EQ(verdict({m->flag, "records.txt"}, *m, 1), "cs_pcs_file - Ok!\r\n");
        const auto log = good.log();
        EXPECT_NE(std::find(log.begin(), log.end(), hex(select)), log.end());
        ASSERT_TRUE(sim::removeCard(bad));
        ASSERT_TRUE(sim::removeCard(good));
    }
}

// The card pulled out at the nth command, for every n of a whole run of each
// procedure and action, on T=0 for its GET RESPONSEs; put back, it works.
TEST_F(CardFaults, PulledOutAtEachCommand) {
    for (const Mode* m : {&kGost, &kAdmin}) {
        for (const bool verify : {false, true}) {
            SimCard card(Protocol::T0);
            card.applets = {sim::kGostAid, sim::kAdminAid, sim::kSsnAid1};
            const int reader = verify ? 0 : 1;
            std::vector<std::string> args{m->flag};
            if (verify) {
                testsupport::writeFile(dir.file("records.txt"), recordOf(card, *m, Bytes(m->len, 0x42)).text());
                args.push_back("records.txt");
            }
            ASSERT_TRUE(sim::insertCard(card, reader));
            const std::string whole = verdict(args, *m, reader);
            EXPECT_EQ(whole, verify ? "cs_pcs_file - Ok!\r\n" : "record\r\n");
            const size_t commands = card.log().size();
            for (size_t n = 1; n <= commands; ++n) {
                SCOPED_TRACE(std::string(m->flag) + (verify ? " records.txt" : "") + ", out at command " +
                             std::to_string(n));
                auto count = std::make_shared<std::atomic<size_t>>(0);
                card.setResponder([count, n](const Bytes&, const Bytes& own) { return ++*count == n ? Bytes{} : own; });
                EXPECT_NE(verdict(args, *m, reader), whole);
                card.setResponder(nullptr);
                EXPECT_EQ(count->load(), n);
                ASSERT_TRUE(sim::reinsertCard(card));
                EXPECT_EQ(verdict(args, *m, reader), whole);
            }
        }
    }
}

// pcscd stopped while the program waits for the card's answer: the program
// still ends by itself with its own messages; pcscd then starts again.
TEST_F(CardFaults, PcscdStoppedMidway) {
    struct Case {
        const Mode* m;
        bool verify;
        int reader;
        size_t heldAnswer;
        int signal;
    };
    const Case cases[] = {{&kGost, false, 1, 1, SIGKILL},  {&kGost, true, 1, 9, SIGTERM},
                          {&kGost, false, 0, 12, SIGKILL}, {&kAdmin, true, 1, 2, SIGTERM},
                          {&kAdmin, false, 1, 7, SIGKILL}, {&kAdmin, true, 0, 9, SIGTERM}};
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.m->flag) + (c.verify ? " records.txt" : "") + ", reader " +
                     std::to_string(c.reader) + ", answer " + std::to_string(c.heldAnswer) +
                     " held, pcscd sent signal " + std::to_string(c.signal));
        SimCard card(Protocol::T0);
        card.applets = {sim::kGostAid, sim::kAdminAid, sim::kSsnAid1};
        std::vector<std::string> args{c.m->flag};
        if (c.verify) {
            testsupport::writeFile(dir.file("records.txt"), recordOf(card, *c.m, Bytes(c.m->len, 0x42)).text());
            args.push_back("records.txt");
        }
        auto holding = std::make_shared<std::promise<void>>(), release = std::make_shared<std::promise<void>>();
        std::shared_future<void> released = release->get_future().share();
        auto count = std::make_shared<size_t>(0);
        card.setResponder([=](const Bytes&, const Bytes& own) {
            if (++*count == c.heldAnswer) {
                holding->set_value();
                released.wait_for(std::chrono::seconds(60));
            }
            return own;
        });
        ASSERT_TRUE(sim::insertCard(card, c.reader));
        auto running = std::async(std::launch::async, [&] { return runLimited(args, dir.path()); });
        const bool held = holding->get_future().wait_for(std::chrono::seconds(10)) == std::future_status::ready;
        const auto stopped = Clock::now();
        sim::stopPcscd(c.signal);
        const Outcome o = running.get();
        const double took = std::chrono::duration<double>(Clock::now() - stopped).count();
        release->set_value();
        card.remove();
        ASSERT_TRUE(sim::startPcscd());
        EXPECT_TRUE(held);
        EXPECT_LT(took, 10) << shown(o.out);
        checkOutcome(o, *c.m, c.verify);
        card.setResponder(nullptr);
        ASSERT_TRUE(sim::insertCard(card, c.reader));
        expectGoodRun(card, *c.m);
        ASSERT_TRUE(sim::removeCard(card));
    }
}
