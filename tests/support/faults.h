// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Faults that mounts cannot make: the test program has its own version of some functions of the C
// library, which fail on request and else call the real one. The product knows nothing of it.
#pragma once

#include <ctime>
#include <functional>
#include <string>
#include <vector>

namespace Faults {

// Lets calls of the function fail with `error` as errno: the `nth` call from now on (1: the next),
// and no other; 0: every call. Known functions: "clock_gettime" (monotonic clock only), "gmtime_r",
// "strftime" (returns 0), "fsync", "flock", "lease" (fcntl's F_SETLEASE), "rename" (every kind of
// it), "renameat2" (with flags), "remove", "fopen", "fclose", "fread" (one item short), "fileno",
// "fstat", "statvfs", "opendir", "closedir", "close", "nanosleep" (of an interval that is
// interrupted, EINTR, one second has passed), "kill", "system" (a command that cannot be started),
// "waitpid".
void Fail(const std::string& function, int error, int nth = 0);

// Everything works again, clocks and sleeps included, and no call is recorded.
void Clear();

// Sets the monotonic clock or the time of day to a fixed reading, or both back to the real ones.
void FixClock(timespec now);
void FixTimeOfDay(timespec now);
void ReleaseClock();

// From now on nanosleep takes no time, but moves fixed clocks on as if it had.
void SkipSleeps();

// What statvfs says a file system has in all, in bytes; 0: the truth.
void SetCapacity(unsigned long bytes);

// Called at each call of the function, before it does anything. For what happens in between. Known
// functions: those that can fail, and "syslog".
void OnCall(const std::string& function, std::function<void()> action);

// The calls since the last Take, in order: "fsync /path", "rename FROM TO", "remove PATH",
// "kill PID SIGNAL", "system COMMAND", "nanosleep SECONDS.NANOSECONDS". kill is only recorded,
// never done.
std::vector<std::string> TakeCalls();

}  // namespace Faults
