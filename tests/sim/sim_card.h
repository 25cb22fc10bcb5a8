// A simulated card for the vpcd virtual reader: a thread of the test process
// that connects to the reader's port and answers like a Veltora card.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "card/commands.h"

namespace sim {

using Bytes = std::vector<unsigned char>;

enum class Protocol { T0, T1 };
inline const char* protocolName(Protocol p) { return p == Protocol::T0 ? "T0" : "T1"; }

inline Bytes aid(const cardcmd::Aid a) { return Bytes(a, a + cardcmd::kAidBytes); }
// Inline, so that test tables built at start-up may use them.
inline const Bytes kSsnAid1 = aid(cardcmd::kAidSsn);
inline const Bytes kSsnAid2 = aid(cardcmd::kAidSsnAlt);
inline const Bytes kGostAid = aid(cardcmd::kAidGost2);
inline const Bytes kAdminAid = aid(cardcmd::kAidAdmin);

// A forced answer to every command that starts with prefix, or only to the
// nth such command (counted from 1). An empty answer drops the connection,
// as if the card were pulled out while the reader waits for it; vpcd then
// hands the program an empty response with success. An answer longer than
// the program's 256-byte buffer makes the transmit itself fail.
struct Fault {
    Bytes prefix;
    Bytes answer;
    int nth = 0;
};

class SimCard {
public:
    explicit SimCard(Protocol protocol = Protocol::T1);
    ~SimCard();
    SimCard(const SimCard&) = delete;
    SimCard& operator=(const SimCard&) = delete;

    // What the card is. Its thread reads these: change them only while it is out.
    Protocol protocol;
    std::vector<Bytes> applets;  // AIDs it answers a select for
    Bytes sn{0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08};
    Bytes secret{0x5E, 0xC2, 0xE7};  // what its checksums depend on
    unsigned char ssnLengthCode = 0xA0;
    Bytes ssnValue;                     // first data bytes of the SSN, zeros after
    std::optional<Bytes> initChecksum;  // unset: see storedInitChecksum()
    std::optional<Bytes> pcs;           // unset: see gostPcs(), adminPcs()
    size_t seedBytes = 32;              // random bytes per Admin seed request
    bool answer61;                      // data for a command with data comes by GET RESPONSE (T=0's way)
    bool answer6C = false;              // a command whose Le is not the answer's length gets 6C
    std::vector<Fault> faults;

    // The card's checksum: the first len bytes of GOST R 34.11-2012 (256)
    // of secret and data.
    Bytes checksum(const Bytes& data, size_t len) const;
    Bytes storedInitChecksum() const;  // by default checksum(sn, 32)
    Bytes gostPcs() const;             // by default checksum("PCS", 32)
    Bytes adminPcs() const;            // by default checksum(sn, 8)

    // Connects to vpcd's port of reader 0 or 1; false if that fails.
    bool insert(int reader);
    // Closes the connection and ends the thread; nothing if not inserted.
    void remove();
    int reader() const { return reader_; }

    // Every command APDU received since insert() or clearLog(), in order,
    // as upper-case hex.
    std::vector<std::string> log() const;
    void clearLog();
    // Resets vpcd has passed on since insert().
    int resets() const { return resets_; }

    // Sees every command with the answer the card would give and returns the
    // one to send instead (empty pulls the card out, as a fault's does). Unlike
    // the fields above, it may be changed while the card is in.
    using Responder = std::function<Bytes(const Bytes& command, const Bytes& answer)>;
    void setResponder(Responder responder);

private:
    void run();
    Bytes answer(const Bytes& command);
    Bytes appletAnswer(const Bytes& command);
    Bytes atr() const;
    Bytes random(size_t len);

    int fd_ = -1;
    int reader_ = -1;
    std::thread thread_;
    mutable std::mutex logMutex_;
    std::vector<std::string> log_;
    Responder responder_;  // guarded by logMutex_
    std::atomic<int> resets_{0};
    // Touched by the card's thread only.
    Bytes selected_;
    Bytes pending_;
    std::vector<int> faultHits_;
    unsigned randomCounter_ = 0;
};

}  // namespace sim
