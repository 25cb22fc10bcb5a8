// PC/SC transport: the one place that talks to a card, and the connection
// discipline every card procedure follows.
#pragma once

#include <winscard.h>

#include "card/commands.h"

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

// A command APDU: the header, then Lc and up to 32 data bytes, or Le. Built
// afresh for each exchange: a card's 6C xx answer rewrites its last byte.
struct Command {
    unsigned char bytes[5 + 33];
    DWORD length;
};
Command commandBare(cardcmd::Header header);
Command commandWithLe(cardcmd::Header header, unsigned char le);
Command commandWithData(cardcmd::Header header, const unsigned char* data, unsigned char dataLength);
Command selectApplet(const cardcmd::Aid aid);

// The one transmit path of the procedures: the receive length set to
// `capacity`, then SendAPDU.
LONG transmit(LONG hCard, DWORD activeProtocol, Command& command, unsigned char* receive, DWORD* receiveLength,
              DWORD capacity = kApduBufferBytes);

// Context, connection and transaction for one procedure, released in reverse
// order whatever path the procedure leaves by: end the transaction if one was
// begun (leaving the card), disconnect with a reset, release the context.
class CardSession {
public:
    explicit CardSession(const char* readerName);
    ~CardSession();
    CardSession(const CardSession&) = delete;
    CardSession& operator=(const CardSession&) = delete;

    // False when the context, the connection or the transaction failed.
    bool ok() const { return inTransaction_; }
    LONG card() const { return static_cast<LONG>(card_); }
    DWORD protocol() const { return protocol_; }

    // One exchange that must succeed, with exactly `length` response bytes
    // (0: any length); *receiveLength is the response's length afterwards.
    bool exchange(Command command, unsigned char* receive, DWORD* receiveLength, DWORD length = 0) const;

private:
    SCARDCONTEXT context_ = 0;
    SCARDHANDLE card_ = 0;
    DWORD protocol_ = 0;
    bool inTransaction_ = false;
};
