// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The signals that stop the daemon. The handler may interrupt anything, the C library's own locks
// included, so it only notes the signal; the note becomes a log line before the daemon's next line,
// or when the main loop next asks, whichever comes first.
#pragma once

#include <atomic>

// The status that main returns. Follows the last stop signal: 0 for SIGTERM, else its number.
extern std::atomic<int> ExitCode;

// Not zero while the main loop is to go on. An int, since not every processor has lock-free bytes
// (riscv64 has none).
extern std::atomic<int> MainRunning;

static_assert(std::atomic<int>::is_always_lock_free, "the handler may use nothing that locks");

// The handler: notes the signal, sets ExitCode and clears MainRunning.
void SigHandler(int signal);

// Installs the handler for SIGHUP, SIGINT, SIGTERM and SIGQUIT, ignores SIGPIPE, and has noted
// signals logged before any other entry.
void InstallStopSignals();

// Logs the signals that were noted, one Info line each, oldest first. Of more than 64, the last
// ones share one place.
void LogCaughtSignals();

// From here on no stop signal is delivered any more: ExitCode is final.
void BlockStopSignals();
