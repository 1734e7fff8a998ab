// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "util/elapsed_time.h"

#include <unistd.h>

#include <algorithm>
#include <limits>

namespace {

double MsBetween(const timespec& later, const timespec& earlier) {
    return static_cast<double>(later.tv_sec - earlier.tv_sec) * 1000 +
           static_cast<double>(later.tv_nsec - earlier.tv_nsec) / 1000000;
}

double NotNegative(double ms) {
    return ms < 0 ? 0 : ms;
}

}  // namespace

ElapsedTime::ElapsedTime(double timeoutMs)
    : timeoutMs(NotNegative(timeoutMs)), start(Util::MonotonicNow()) {}

bool ElapsedTime::CheckTimeout() {
    if (timeoutMs > GetMsElapsed()) return false;
    ResetTimeout();
    return true;
}

void ElapsedTime::ResetTimeout() {
    start = Util::MonotonicNow();
}

void ElapsedTime::ResetTimeoutMs(double newTimeoutMs) {
    timeoutMs = NotNegative(newTimeoutMs);
    ResetTimeout();
}

bool ElapsedTime::HasTimedOut() {
    return timeoutMs <= GetMsElapsed();
}

double ElapsedTime::GetMsElapsed() {
    return MsBetween(Util::MonotonicNow(), start);
}

void ElapsedTime::PrintMsDiff(const char* /*label*/) {}

void ElapsedTime::SleepMs(double ms) {
    if (!(ms >= 1.0)) ms = 1.0;  // This form takes a NaN, too.
    constexpr double MaxPauseUs = std::numeric_limits<useconds_t>::max();
    const auto pauseUs = static_cast<useconds_t>(std::min(ms / 10000.0, MaxPauseUs));
    ElapsedTime wait(ms);
    while (!wait.HasTimedOut()) usleep(pauseUs);
}

timespec Util::MonotonicNow() {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);  // It cannot fail for this clock.
    return now;
}

double Util::GetElapsedSec(timespec later, timespec earlier) {
    if (later.tv_sec == earlier.tv_sec && later.tv_nsec == earlier.tv_nsec) return 1e-9;
    return MsBetween(later, earlier) / 1000.0;
}
