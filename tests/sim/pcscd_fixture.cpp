#include "sim/pcscd_fixture.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <winscard.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

namespace sim {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

const char kPcscd[] = "/usr/sbin/pcscd";
const char kPcscdLog[] = "pcscd-fixture.log";  // in the test's working directory

pid_t gDaemon = -1;

struct Context {
    SCARDCONTEXT handle = 0;  // 0 when there is no service
    Context() {
        if (SCardEstablishContext(SCARD_SCOPE_USER, nullptr, nullptr, &handle) != SCARD_S_SUCCESS) handle = 0;
    }
    ~Context() {
        if (handle != 0) SCardReleaseContext(handle);
    }
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;
};

bool bothReadersListed() {
    Context context;
    char names[2048];
    DWORD length = sizeof names;
    if (context.handle == 0 || SCardListReaders(context.handle, nullptr, names, &length) != SCARD_S_SUCCESS)
        return false;
    const std::string list(names, std::min<size_t>(length, sizeof names));
    return list.find(std::string(readerName(0)) + '\0') != std::string::npos &&
           list.find(std::string(readerName(1)) + '\0') != std::string::npos;
}

void stopDaemonWith(int signal) {
    if (gDaemon <= 0) return;
    kill(gDaemon, signal);
    const auto deadline = Clock::now() + std::chrono::seconds(5);
    while (waitpid(gDaemon, nullptr, WNOHANG) == 0) {
        if (Clock::now() > deadline) {
            kill(gDaemon, SIGKILL);
            waitpid(gDaemon, nullptr, 0);
            break;
        }
        std::this_thread::sleep_for(milliseconds(20));
    }
    gDaemon = -1;
}

void stopDaemon() { stopDaemonWith(SIGTERM); }

// Empty on success, else why the fixture is not usable.
std::string startDaemon() {
    // Another pcscd (or a socket-activated one) would own vpcd's ports.
    if (Context().handle != 0) return "a PC/SC service is already running; stop it first";
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid < 0) return "cannot fork for pcscd";
    if (pid == 0) {
        // Its own group keeps a terminal's signals away; the death signal
        // ends it with us even when we are killed, so none outlives a run.
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (getppid() != parent) _exit(1);
        const int log = open(kPcscdLog, O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (log >= 0) {
            dup2(log, STDOUT_FILENO);
            dup2(log, STDERR_FILENO);
        }
        execl(kPcscd, "pcscd", "-f", static_cast<char*>(nullptr));
        _exit(127);
    }
    gDaemon = pid;
    static const int registered = std::atexit(stopDaemon);
    (void)registered;

    const auto deadline = Clock::now() + std::chrono::seconds(15);
    while (Clock::now() < deadline) {
        int status = 0;
        if (waitpid(pid, &status, WNOHANG) == pid) {
            gDaemon = -1;
            return std::string(kPcscd) + " -f ended with status " + std::to_string(status) + "; see " + kPcscdLog;
        }
        if (bothReadersListed()) return {};
        std::this_thread::sleep_for(milliseconds(50));
    }
    stopDaemon();
    return std::string("vpcd's readers did not appear within 15 s; see ") + kPcscdLog;
}

// A reader state that makes SCardGetStatusChange report at once.
SCARD_READERSTATE unawareOf(int reader) {
    SCARD_READERSTATE state{};
    state.szReader = readerName(reader);
    state.dwCurrentState = SCARD_STATE_UNAWARE;
    return state;
}

// PC/SC's count of insertions and removals seen in the reader (the high word
// of the event state), and its value when each reader's card was last put in.
DWORD cardEvents(int reader) {
    Context context;
    SCARD_READERSTATE state = unawareOf(reader);
    if (context.handle == 0 || SCardGetStatusChange(context.handle, 0, &state, 1) != SCARD_S_SUCCESS) return 0;
    return state.dwEventState >> 16;
}
DWORD gEventsAtInsert[2];

class PcscEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        const std::string error = startDaemon();
        ASSERT_TRUE(error.empty()) << "card fixture: " << error;
    }
    void TearDown() override { stopDaemon(); }
};

[[maybe_unused]] ::testing::Environment* const kEnvironment = ::testing::AddGlobalTestEnvironment(new PcscEnvironment);

}  // namespace

const char* readerName(int reader) { return reader == 0 ? "Virtual PCD 00 00" : "Virtual PCD 00 01"; }

::testing::AssertionResult insertCard(SimCard& card, int reader) {
    static int lastReader = 1;
    reader = reader == kAnyReader ? 1 - lastReader : reader;
    lastReader = reader;
    if (::testing::AssertionResult empty = waitForCard(reader, false); !empty) return empty;
    if (!card.insert(reader)) return ::testing::AssertionFailure() << "vpcd's port of reader " << reader << " refused";
    ::testing::AssertionResult present = waitForCard(reader, true);
    gEventsAtInsert[reader] = cardEvents(reader);
    return present;
}

::testing::AssertionResult reinsertCard(SimCard& card) {
    const int reader = card.reader();
    const auto deadline = Clock::now() + std::chrono::seconds(5);
    while (cardEvents(reader) == gEventsAtInsert[reader]) {
        if (Clock::now() > deadline)
            return ::testing::AssertionFailure() << "PC/SC did not see the card leave " << readerName(reader);
        std::this_thread::sleep_for(milliseconds(20));
    }
    return insertCard(card, reader);
}

::testing::AssertionResult removeCard(SimCard& card) {
    card.remove();
    return waitForCard(card.reader(), false);
}

::testing::AssertionResult waitForCard(int reader, bool present, int timeoutMs) {
    Context context;
    SCARD_READERSTATE state = unawareOf(reader);
    const auto deadline = Clock::now() + milliseconds(timeoutMs);
    for (auto left = milliseconds(timeoutMs); context.handle != 0 && left.count() > 0;
         left = std::chrono::duration_cast<milliseconds>(deadline - Clock::now())) {
        const LONG result = SCardGetStatusChange(context.handle, static_cast<DWORD>(left.count()), &state, 1);
        if (result == SCARD_E_TIMEOUT) break;
        if (result != SCARD_S_SUCCESS)
            return ::testing::AssertionFailure() << "SCardGetStatusChange: " << pcsc_stringify_error(result);
        if (((state.dwEventState & SCARD_STATE_PRESENT) != 0) == present) return ::testing::AssertionSuccess();
        state.dwCurrentState = state.dwEventState & ~SCARD_STATE_CHANGED;
    }
    return ::testing::AssertionFailure() << readerName(reader) << " not " << (present ? "holding a card" : "empty")
                                         << " after " << timeoutMs << " ms";
}

void stopPcscd(int signal) { stopDaemonWith(signal); }

::testing::AssertionResult startPcscd() {
    const std::string error = startDaemon();
    if (error.empty()) return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "card fixture: " << error;
}

bool cardInUse(int reader) {
    Context context;
    SCARD_READERSTATE state = unawareOf(reader);
    return context.handle != 0 && SCardGetStatusChange(context.handle, 0, &state, 1) == SCARD_S_SUCCESS &&
           (state.dwEventState & SCARD_STATE_INUSE) != 0;
}

}  // namespace sim
