// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// A stopwatch and timeout on the monotonic clock.
#pragma once

#include <ctime>

class ElapsedTime {
public:
    // Starts now. `timeoutMs` in milliseconds; a negative one counts as 0.
    explicit ElapsedTime(double timeoutMs);
    ElapsedTime(const ElapsedTime&) = default;
    ElapsedTime& operator=(const ElapsedTime&) = default;
    virtual ~ElapsedTime() = default;

    // True when the timeout has passed; then it also restarts, from now. Called again and again it
    // is a timer that fires once per period.
    virtual bool CheckTimeout();

    // Restart from now, with the timeout as it is or a new one in milliseconds.
    virtual void ResetTimeout();
    virtual void ResetTimeoutMs(double timeoutMs);

    // True when at least the timeout has passed. Does not restart.
    virtual bool HasTimedOut();

    // Milliseconds since the start or the last restart.
    double GetMsElapsed();

    // Does nothing. Kept for callers that print time differences in builds of their own.
    void PrintMsDiff(const char* label);

    // Waits at least `ms` milliseconds, and at least one. Below ten seconds it polls the clock
    // without a pause: exact to the microsecond, at the price of the processor.
    static void SleepMs(double ms);

protected:
    double timeoutMs;
    timespec start;
};

namespace Util {

// The monotonic clock: the time since the device started.
timespec MonotonicNow();

// Seconds from `earlier` to `later`; 1e-9 if they are equal, so that it may be divided by.
double GetElapsedSec(timespec later, timespec earlier);

}  // namespace Util
