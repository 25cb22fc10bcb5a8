// The card commands, named once: the procedures build their APDUs from
// these, and the tests' simulated card answers by them.
#pragma once

#include <cstddef>

namespace cardcmd {

constexpr size_t kAidBytes = 8;
using Aid = unsigned char[kAidBytes];

// Applets, selected by name.
constexpr Aid kAidGost2 = {0xF2, 0x4E, 0x51, 0x00, 0x37, 0x00, 0x01, 0x01};   // Veltora-2 GOST checksum
constexpr Aid kAidAdmin = {0xF2, 0x4E, 0x51, 0x00, 0x37, 0x00, 0x10, 0x01};   // Veltora Admin "ARM Applet"
constexpr Aid kAidSsn = {0xF2, 0x4E, 0x51, 0x00, 0x37, 0x00, 0x0D, 0x01};     // serial-number applet
constexpr Aid kAidSsnAlt = {0xF2, 0x4E, 0x51, 0x00, 0x37, 0x00, 0x0D, 0x02};  // its second AID

// CLA INS P1 P2.
struct Header {
    unsigned char cla, ins, p1, p2;
};

constexpr Header kSelectByName{0x00, 0xA4, 0x04, 0x00};
constexpr Header kGetResponse{0x00, 0xC0, 0x00, 0x00};

// Serial-number applet: the SSN's length code, then its data (Le = the code).
constexpr Header kSsnLengthCode{0x80, 0x38, 0x10, 0x00};
constexpr Header kSsnData{0x80, 0x38, 0x20, 0x00};

// Veltora-2 GOST applet. 'get info' with P2 00: the SN; 03: the init
// checksum; 0B: the PCS. The checksum takes the SN or a 32-byte IV.
constexpr Header kGost2GetSn{0x80, 0x38, 0x20, 0x00};
constexpr Header kGost2GetInitChecksum{0x80, 0x38, 0x20, 0x03};
constexpr Header kGost2GetPcs{0x80, 0x38, 0x20, 0x0B};
constexpr Header kGost2Checksum{0x80, 0x38, 0x40, 0x00};
constexpr Header kGost2Seed{0x80, 0x3E, 0xD0, 0x00};  // Le 0x20
constexpr unsigned char kGost2SeedLe = 0x20;

// Veltora Admin applet: its checksum header alone (no Lc, no Le) asks for the
// PCS; with data, for the checksum of the SN or of an 8-byte IV.
constexpr Header kAdminChecksum{0x80, 0x8E, 0x00, 0x00};
constexpr Header kAdminSeed{0x80, 0x8C, 0x00, 0x00};  // Le 0x00: whatever the card gives
constexpr unsigned char kAdminSeedLe = 0x00;

}  // namespace cardcmd
