// The card fixture: a real pcscd, run by the test binary for its whole life,
// with vpcd's two virtual readers, into which tests put simulated cards.
// Linking pcscd_fixture.cpp into a test binary starts the daemon before the
// first test and stops it after the last; the binary fails if it will not
// come up.
#pragma once

#include <gtest/gtest.h>

#include "sim/sim_card.h"

namespace sim {

// vpcd's names of reader 0 and reader 1.
const char* readerName(int reader);

// Waits until PC/SC reports the reader empty (a card taken out before is
// seen gone), puts card into reader 0 or 1 and waits until it is reported.
// Without a reader, the one not used last: pcscd polls readers about twice
// a second, and the other reader has most likely been seen empty already.
constexpr int kAnyReader = -1;
::testing::AssertionResult insertCard(SimCard& card, int reader = kAnyReader);
// Takes card out and waits until PC/SC reports its reader empty.
::testing::AssertionResult removeCard(SimCard& card);
// Puts a card that pulled itself out (an empty answer) back into its reader,
// once PC/SC has polled the reader empty. A failed reset of the gone card
// already shows the reader empty before that; a card back in by then is
// never seen arriving.
::testing::AssertionResult reinsertCard(SimCard& card);
// Waits until PC/SC reports the reader holding a card (present) or empty.
::testing::AssertionResult waitForCard(int reader, bool present, int timeoutMs = 5000);
// Whether an application holds a connection to the reader's card now.
bool cardInUse(int reader);

// For tests of a service that goes away under the program: stopPcscd ends
// the fixture's pcscd with signal (SIGKILL: as if it crashed; a SIGTERM not
// obeyed within 5 s is followed by SIGKILL), startPcscd starts it again.
// Cards in the readers are gone with it and must be inserted again.
void stopPcscd(int signal);
::testing::AssertionResult startPcscd();

inline void PrintTo(Protocol p, std::ostream* out) { *out << protocolName(p); }

}  // namespace sim
