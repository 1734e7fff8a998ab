// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "daemon/stop_signals.h"

#include <algorithm>
#include <array>
#include <csignal>

#include "daemon/moraine.h"
#include "logging/logging.h"

std::atomic<int> ExitCode = 0;
std::atomic<int> MainRunning = false;

namespace {

constexpr std::array StopSignals{SIGHUP, SIGINT, SIGTERM, SIGQUIT};

// Written by the handler, which is never interrupted by itself, and read with the stop signals
// blocked.
constexpr unsigned MaxNotes = 64;
std::array<volatile std::sig_atomic_t, MaxNotes> noted;
std::atomic<unsigned> numNoted = 0;
static_assert(std::atomic<unsigned>::is_always_lock_free);

sigset_t StopSignalSet() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : StopSignals) sigaddset(&set, signal);
    return set;
}

// Empties the notes into `caught`. Returns how many there were.
unsigned TakeNotes(std::array<int, MaxNotes>& caught) {
    const sigset_t stopSignals = StopSignalSet();
    sigset_t before;
    sigprocmask(SIG_BLOCK, &stopSignals, &before);
    const unsigned count = numNoted;
    std::copy_n(noted.begin(), count, caught.begin());
    numNoted = 0;
    sigprocmask(SIG_SETMASK, &before, nullptr);
    return count;
}

}  // namespace

void SigHandler(int signal) {
    const unsigned place = std::min<unsigned>(numNoted, MaxNotes - 1);
    noted[place] = signal;
    numNoted = place + 1;
    ExitCode = signal == SIGTERM ? 0 : signal;  // guard: exit-code
    MainRunning = false;                        // guard: handler
}

void InstallStopSignals() {
    Logging::SetBeforeEntryHook(LogCaughtSignals);
    struct sigaction action {};
    action.sa_handler = SigHandler;
    action.sa_mask = StopSignalSet();  // The handler does not interrupt itself.
    action.sa_flags = SA_RESTART;
    for (const int signal : StopSignals) (void)sigaction(signal, &action, nullptr);
    (void)std::signal(SIGPIPE, SIG_IGN);
}

void LogCaughtSignals() {
    static bool isLogging = false;  // `Log::Info` re-enters this function through the hook.
    if (isLogging) return;
    isLogging = true;
    while (numNoted != 0) {  // guard: caught-signals
        std::array<int, MaxNotes> caught;
        const unsigned count = TakeNotes(caught);
        for (unsigned i = 0; i < count; ++i) {
            Log::Info("%s Caught signal %d, shutting down...", Moraine::Name.c_str(), caught[i]);
        }
    }
    isLogging = false;
}

void BlockStopSignals() {
    const sigset_t stopSignals = StopSignalSet();
    sigprocmask(SIG_BLOCK, &stopSignals, nullptr);
}
