#include "card/apdu.h"

#include <cstring>

namespace {

constexpr unsigned char kSw1MoreData = 0x61;
constexpr unsigned char kSw1WrongLength = 0x6C;
constexpr DWORD kMaxData = sizeof(Command::bytes) - 5;

Command withHeader(cardcmd::Header header) {
    Command c{};
    c.bytes[0] = header.cla;
    c.bytes[1] = header.ins;
    c.bytes[2] = header.p1;
    c.bytes[3] = header.p2;
    c.length = 4;
    return c;
}

}  // namespace

LONG SendAPDU(LONG hCard, DWORD activeProtocol, unsigned char* send, DWORD sendLength, unsigned char* receive,
              DWORD* receiveLength) {
    const DWORD capacity = *receiveLength;
    const SCARD_IO_REQUEST* pci = nullptr;
    if (activeProtocol == SCARD_PROTOCOL_T0) pci = SCARD_PCI_T0;
    else if (activeProtocol == SCARD_PROTOCOL_T1) pci = SCARD_PCI_T1;
    else return SCARD_E_INVALID_PARAMETER;

    LONG result = SCardTransmit(hCard, pci, send, sendLength, nullptr, receive, receiveLength);
    // Only a bare status word asks for a second exchange, and only one is made.
    if (*receiveLength != 2) return result;
    if (receive[0] == kSw1MoreData) {
        Command getResponse = commandWithLe(cardcmd::kGetResponse, receive[1]);
        *receiveLength = capacity;
        result = SCardTransmit(hCard, pci, getResponse.bytes, getResponse.length, nullptr, receive, receiveLength);
    } else if (receive[0] == kSw1WrongLength) {
        // The card names the length it wants; it goes into the command's last
        // byte, whatever that byte is, and the caller's command keeps it.
        if (sendLength > 4) send[sendLength - 1] = receive[1];
        *receiveLength = capacity;
        result = SCardTransmit(hCard, pci, send, sendLength, nullptr, receive, receiveLength);
    }
    return result;
}

bool apduOk(LONG result, const unsigned char* response, DWORD responseLength) {
    return result == SCARD_S_SUCCESS && responseLength >= 2 && responseLength <= kApduBufferBytes &&
           response[responseLength - 2] == 0x90 && response[responseLength - 1] == 0x00;
}

Command commandBare(cardcmd::Header header) { return withHeader(header); }

Command commandWithLe(cardcmd::Header header, unsigned char le) {
    Command c = withHeader(header);
    c.bytes[c.length++] = le;
    return c;
}

Command commandWithData(cardcmd::Header header, const unsigned char* data, unsigned char dataLength) {
    Command c = withHeader(header);
    const DWORD n = dataLength < kMaxData ? dataLength : kMaxData;
    c.bytes[c.length++] = static_cast<unsigned char>(n);
    std::memcpy(c.bytes + c.length, data, n);
    c.length += n;
    return c;
}

Command selectApplet(const cardcmd::Aid aid) {
    return commandWithData(cardcmd::kSelectByName, aid, cardcmd::kAidBytes);
}

LONG transmit(LONG hCard, DWORD activeProtocol, Command& command, unsigned char* receive, DWORD* receiveLength,
              DWORD capacity) {
    *receiveLength = capacity;
    return SendAPDU(hCard, activeProtocol, command.bytes, command.length, receive, receiveLength);
}

CardSession::CardSession(const char* readerName) {
    if (SCardEstablishContext(SCARD_SCOPE_USER, nullptr, nullptr, &context_) != SCARD_S_SUCCESS) {
        context_ = 0;
        return;
    }
    if (SCardConnect(context_, readerName, SCARD_SHARE_SHARED, SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1, &card_,
                     &protocol_) != SCARD_S_SUCCESS) {
        card_ = 0;
        return;
    }
    inTransaction_ = SCardBeginTransaction(card_) == SCARD_S_SUCCESS;
}

CardSession::~CardSession() {
    if (inTransaction_) SCardEndTransaction(card_, SCARD_LEAVE_CARD);
    if (card_ != 0) SCardDisconnect(card_, SCARD_RESET_CARD);
    if (context_ != 0) SCardReleaseContext(context_);
}

bool CardSession::exchange(Command command, unsigned char* receive, DWORD* receiveLength, DWORD length) const {
    const LONG result = transmit(card(), protocol_, command, receive, receiveLength);
    return apduOk(result, receive, *receiveLength) && (length == 0 || *receiveLength == length);
}
