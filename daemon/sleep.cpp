// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "daemon/sleep.h"

#include <cerrno>
#include <cstring>
#include <ctime>

#include "daemon/stop_signals.h"
#include "logging/logging.h"

namespace {

// Sleeps what remains of `interval`. Returns true if it was interrupted, with the rest in it.
bool WasInterrupted(timespec& interval) {
    if (nanosleep(&interval, &interval) == 0) return false;
    if (errno == EINTR) return true;
    Log::Error("nanosleep error: %s", strerror(errno));
    return false;
}

}  // namespace

void SleepBetweenCycles() {
    timespec interval{.tv_sec = 10, .tv_nsec = 0};
    while (WasInterrupted(interval) && MainRunning) {
    }
}

void SleepAtLeast(unsigned char seconds) {
    timespec interval{.tv_sec = seconds, .tv_nsec = 0};
    while (MainRunning && WasInterrupted(interval)) {
    }
}
