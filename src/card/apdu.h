// PC/SC transport: the one place that talks to a card, and the connection
// discipline every card procedure follows.
#pragma once

#include <winscard.h>

// Capacity of every receive buffer.
constexpr DWORD kApduBufferBytes = 256;

// Sends one command to a connected card and returns the PC/SC result of the
// last transmit. *receiveLength holds the capacity on entry and the response
// length (data and status word) on return. A lone 61 xx is followed by one
// GET RESPONSE; a lone 6C xx by one resend with xx as the command's last byte
// (written into send when sendLength > 4). SCARD_E_INVALID_PARAMETER for a
// protocol other than T=0 and T=1, with nothing sent.
LONG SendAPDU(LONG hCard, DWORD activeProtocol, unsigned char* send, DWORD sendLength, unsigned char* receive,
              DWORD* receiveLength);

// True when an exchange succeeded: result 0 and status word 90 00.
bool apduOk(LONG result, const unsigned char* response, DWORD responseLength);

// Context, connection and transaction for one procedure, released in reverse
// order whatever path the procedure leaves by: end the transaction (leave
// the card), disconnect with a reset, release the context.
class CardSession {
public:
    explicit CardSession(const char* readerName);
    ~CardSession();
    CardSession(const CardSession&) = delete;
    CardSession& operator=(const CardSession&) = delete;

    // False when the context, the connection or the transaction failed.
    bool ok() const { return ok_; }
    LONG card() const { return static_cast<LONG>(card_); }
    DWORD protocol() const { return protocol_; }

    // SendAPDU with the receive length set to the full buffer first.
    LONG transmit(unsigned char* send, DWORD sendLength, unsigned char* receive, DWORD* receiveLength) const;

private:
    SCARDCONTEXT context_ = 0;
    SCARDHANDLE card_ = 0;
    DWORD protocol_ = 0;
    bool ok_ = false;
};
