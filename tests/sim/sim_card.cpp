#include "sim/sim_card.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "hash/hash.h"
#include "support.h"

namespace sim {

namespace {

constexpr int kFirstVpcdPort = 35963;  // reader n listens on this + n

bool startsWith(const Bytes& bytes, const Bytes& prefix) {
    return bytes.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), bytes.begin());
}

Bytes ok(Bytes data) {
    data.insert(data.end(), {0x90, 0x00});
    return data;
}

bool readAll(int fd, unsigned char* out, size_t len) {
    while (len > 0) {
        const ssize_t got = recv(fd, out, len, 0);
        if (got <= 0) return false;
        out += got;
        len -= static_cast<size_t>(got);
        // vpcd writes the length and the payload separately; an immediate ACK
        // keeps Nagle from holding the payload back for the delayed-ACK time.
        const int one = 1;
        setsockopt(fd, IPPROTO_TCP, TCP_QUICKACK, &one, sizeof one);
    }
    return true;
}

bool sendMessage(int fd, const Bytes& payload) {
    Bytes message{static_cast<unsigned char>(payload.size() >> 8), static_cast<unsigned char>(payload.size())};
    message.insert(message.end(), payload.begin(), payload.end());
    return send(fd, message.data(), message.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(message.size());
}

}  // namespace

SimCard::SimCard(Protocol p) : protocol(p), answer61(p == Protocol::T0) {}

SimCard::~SimCard() { remove(); }

Bytes SimCard::checksum(const Bytes& data, size_t len) const {
    HashContext* ctx = hashCreate(HASH_ALG_GOST12_256);
    hashInit(ctx);
    hashUpdate(ctx, secret.data(), static_cast<uint32_t>(secret.size()));
    hashUpdate(ctx, data.data(), static_cast<uint32_t>(data.size()));
    Bytes digest(32);
    hashFinal(ctx, digest.data(), 1);
    hashFree(ctx);
    digest.resize(std::min(len, digest.size()));
    return digest;
}

Bytes SimCard::storedInitChecksum() const { return initChecksum ? *initChecksum : checksum(sn, 32); }
Bytes SimCard::gostPcs() const { return pcs ? *pcs : checksum({'P', 'C', 'S'}, 32); }
Bytes SimCard::adminPcs() const { return pcs ? *pcs : checksum(sn, 8); }

Bytes SimCard::random(size_t len) {
    Bytes out;
    while (out.size() < len) {
        const Bytes block = checksum({'R', 'N', 'D', static_cast<unsigned char>(++randomCounter_)}, 32);
        out.insert(out.end(), block.begin(), block.end());
    }
    out.resize(len);
    return out;
}

Bytes SimCard::atr() const {
    // T=0 is the default without interface bytes; the other ATR offers T=1
    // only (TD1 = 01) and so needs its check byte.
    return protocol == Protocol::T0 ? Bytes{0x3B, 0x00} : Bytes{0x3B, 0x80, 0x01, 0x81};
}

bool SimCard::insert(int reader) {
    remove();
    fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd_ < 0) return false;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(kFirstVpcdPort + reader));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int one = 1;
    setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    if (connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        close(fd_);
        fd_ = -1;
        return false;
    }
    reader_ = reader;
    clearLog();
    resets_ = 0;
    selected_.clear();
    pending_.clear();
    faultHits_.assign(faults.size(), 0);
    thread_ = std::thread(&SimCard::run, this);
    return true;
}

void SimCard::remove() {
    if (fd_ < 0) return;
    shutdown(fd_, SHUT_RDWR);  // wakes the thread's blocking read
    thread_.join();
    close(fd_);
    fd_ = -1;
}

std::vector<std::string> SimCard::log() const {
    std::lock_guard<std::mutex> lock(logMutex_);
    return log_;
}

void SimCard::clearLog() {
    std::lock_guard<std::mutex> lock(logMutex_);
    log_.clear();
}

void SimCard::setResponder(Responder responder) {
    std::lock_guard<std::mutex> lock(logMutex_);
    responder_ = std::move(responder);
}

void SimCard::run() {
    for (;;) {
        unsigned char header[2];
        if (!readAll(fd_, header, 2)) return;
        Bytes payload(static_cast<size_t>(header[0] << 8 | header[1]));
        if (!readAll(fd_, payload.data(), payload.size())) return;
        if (payload.size() == 1) {
            // 0 power off, 1 power on, 2 reset: all restart the card; 4 asks for the ATR.
            if (payload[0] == 4 && !sendMessage(fd_, atr())) return;
            if (payload[0] <= 2) {
                selected_.clear();
                pending_.clear();
            }
            if (payload[0] == 2) ++resets_;
            continue;
        }
        Responder responder;
        {
            std::lock_guard<std::mutex> lock(logMutex_);
            log_.push_back(testsupport::toHex(payload.data(), payload.size()));
            responder = responder_;
        }
        Bytes response = answer(payload);
        if (responder) response = responder(payload, response);
        if (response.empty()) {
            shutdown(fd_, SHUT_RDWR);
            return;
        }
        if (!sendMessage(fd_, response)) return;
    }
}

Bytes SimCard::answer(const Bytes& command) {
    // Every matching fault counts the command, whichever of them answers.
    const Bytes* forced = nullptr;
    for (size_t i = 0; i < faults.size() && i < faultHits_.size(); ++i) {
        if (!startsWith(command, faults[i].prefix)) continue;
        ++faultHits_[i];
        if (forced == nullptr && (faults[i].nth == 0 || faults[i].nth == faultHits_[i])) forced = &faults[i].answer;
    }
    if (forced != nullptr) return *forced;
    const cardcmd::Header g = cardcmd::kGetResponse;
    if (startsWith(command, {g.cla, g.ins, g.p1, g.p2}) && !pending_.empty()) return std::exchange(pending_, {});
    pending_.clear();
    const Bytes response = appletAnswer(command);
    const size_t dataLength = response.size() - 2;
    if (answer61 && command.size() > 5 && dataLength > 0) {
        pending_ = response;
        return {0x61, static_cast<unsigned char>(dataLength)};
    }
    if (answer6C && command.size() == 5 && dataLength > 0 && command[4] != dataLength)
        return {0x6C, static_cast<unsigned char>(dataLength)};
    return response;
}

Bytes SimCard::appletAnswer(const Bytes& c) {
    using namespace cardcmd;
    // The header matches; with lc, also the command's length (header, Lc or Le, data).
    const auto is = [&c](Header h, size_t length = 0) {
        return c.size() >= 4 && c[0] == h.cla && c[1] == h.ins && c[2] == h.p1 && c[3] == h.p2 &&
               (length == 0 || c.size() == length);
    };
    const auto le = [&c, &is](Header h, unsigned char value) { return c.size() == 5 && c[4] == value && is(h); };
    if (is(kSelectByName, 5 + kAidBytes) && c[4] == kAidBytes) {
        selected_.assign(c.begin() + 5, c.end());
        if (std::find(applets.begin(), applets.end(), selected_) == applets.end()) {
            selected_.clear();
            return {0x6A, 0x82};
        }
        if (selected_ != kAdminAid) return ok({});
        Bytes fci{0x6F, 0x0B, 0x84};  // the SN sits in bytes 3 to 10
        fci.insert(fci.end(), sn.begin(), sn.end());
        return ok(fci);
    }
    const Bytes data(c.begin() + std::min<size_t>(c.size(), 5), c.end());
    if (selected_ == kSsnAid1 || selected_ == kSsnAid2) {
        if (is(kSsnLengthCode, 5)) return ok({0x01, 0x00, ssnLengthCode, 0x00});
        if (is(kSsnData, 5)) {
            Bytes value = ssnValue;
            value.resize(c[4]);
            return ok(value);
        }
    } else if (selected_ == kGostAid) {
        if (is(kGost2GetSn, 5)) {
            Bytes info{0x00, 0x0A};  // the SN ends the answer
            info.insert(info.end(), sn.begin(), sn.end());
            return ok(info);
        }
        if (is(kGost2GetInitChecksum, 5)) return ok(storedInitChecksum());
        if (is(kGost2GetPcs, 5)) return ok(gostPcs());
        if (c.size() > 5 && is(kGost2Checksum)) return ok(checksum(data, 32));
        if (le(kGost2Seed, kGost2SeedLe)) return ok(random(32));
    } else if (selected_ == kAdminAid) {
        if (is(kAdminChecksum, 4)) return ok(adminPcs());
        if (c.size() > 5 && is(kAdminChecksum)) return ok(checksum(data, 8));
        if (le(kAdminSeed, kAdminSeedLe)) return ok(random(seedBytes));
    }
    return {0x6D, 0x00};  // unknown here
}

}  // namespace sim
