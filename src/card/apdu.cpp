#include "card/apdu.h"

namespace {

constexpr unsigned char kSw1MoreData = 0x61;
constexpr unsigned char kSw1WrongLength = 0x6C;

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
        unsigned char getResponse[5] = {0x00, 0xC0, 0x00, 0x00, receive[1]};
        *receiveLength = capacity;
        result = SCardTransmit(hCard, pci, getResponse, sizeof getResponse, nullptr, receive, receiveLength);
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
    ok_ = SCardBeginTransaction(card_) == SCARD_S_SUCCESS;
}

CardSession::~CardSession() {
    if (card_ != 0) {
        SCardEndTransaction(card_, SCARD_LEAVE_CARD);
        SCardDisconnect(card_, SCARD_RESET_CARD);
    }
    if (context_ != 0) SCardReleaseContext(context_);
}

LONG CardSession::transmit(unsigned char* send, DWORD sendLength, unsigned char* receive,
                           DWORD* receiveLength) const {
    *receiveLength = kApduBufferBytes;
    return SendAPDU(card(), protocol_, send, sendLength, receive, receiveLength);
}
