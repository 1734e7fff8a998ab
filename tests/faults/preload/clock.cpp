// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// A clock that only sleeping moves on: ten thousand cycles take a minute, names come out the same
// in each run, and so does the sequence of system calls. tests/harness/preload/sleep.c has the
// sleeping.
#include <time.h>

#include "tests/faults/preload/process.h"

namespace {

constexpr long Second = 1000000000;

timespec now{.tv_sec = 3600, .tv_nsec = 0};  // since the device started

}  // namespace

extern "C" void MoveClock(const timespec* interval) {
    now.tv_sec += interval->tv_sec + (now.tv_nsec + interval->tv_nsec) / Second;
    now.tv_nsec = (now.tv_nsec + interval->tv_nsec) % Second;
}

extern "C" void BeforeCycleSleep() {
    FaultsPreload::Report("sleep", FaultsPreload::Allocations());
}

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
    // The date is before that of any file: who waits for a file to age waits in each run.
    *time = clock == CLOCK_REALTIME ? timespec{} : now;
    return 0;
}
