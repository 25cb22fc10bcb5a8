// Puts a simulated Veltora-2 GOST card into reader 0 and a Veltora Admin
// card into reader 1 of a running pcscd (vpcd readers), prints "ready" once
// PC/SC sees both, and keeps them there until it is stopped.
#include <unistd.h>
#include <winscard.h>

#include <cstdio>

#include "sim/sim_card.h"

namespace {

bool bothPresent() {
    SCARDCONTEXT context = 0;
    if (SCardEstablishContext(SCARD_SCOPE_USER, nullptr, nullptr, &context) != SCARD_S_SUCCESS) return false;
    SCARD_READERSTATE states[2] = {};
    states[0].szReader = "Virtual PCD 00 00";
    states[1].szReader = "Virtual PCD 00 01";
    const bool ok = SCardGetStatusChange(context, 0, states, 2) == SCARD_S_SUCCESS &&
                    (states[0].dwEventState & SCARD_STATE_PRESENT) && (states[1].dwEventState & SCARD_STATE_PRESENT);
    SCardReleaseContext(context);
    return ok;
}

}  // namespace

int main() {
    sim::SimCard gost(sim::Protocol::T1);
    gost.applets = {sim::kGostAid, sim::kSsnAid1};
    gost.ssnLengthCode = 0xAC;
    gost.ssnValue = {'G', 'O', 'S', 'T', '-', '0', '0', '1'};
    sim::SimCard admin(sim::Protocol::T0);
    admin.applets = {sim::kAdminAid};
    admin.sn = {0x41, 0x44, 0x4D, 0x00, 0x00, 0x00, 0x20, 0x26};
    // pcscd opens vpcd's ports a moment after it starts.
    bool gostIn = false, adminIn = false;
    for (int tries = 0; !(gostIn && adminIn); ++tries) {
        if (tries == 150) {
            std::fprintf(stderr, "cannot reach the vpcd readers\n");
            return 1;
        }
        if (!gostIn) gostIn = gost.insert(0);
        if (!adminIn) adminIn = admin.insert(1);
        if (!(gostIn && adminIn)) usleep(100000);
    }
    for (int tries = 0; !bothPresent(); ++tries) {
        if (tries == 150) {
            std::fprintf(stderr, "the cards did not show up in PC/SC\n");
            return 1;
        }
        usleep(100000);
    }
    std::puts("ready");
    std::fflush(stdout);
    for (;;) pause();
}
