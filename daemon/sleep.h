// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The daemon's two sleeps. They differ in what an interruption does.
#pragma once

// Sleeps 10 seconds, the time between two check cycles. A stop signal ends it early; other
// interruptions do not. An error of the clock is logged and ends it.
void SleepBetweenCycles();

// Sleeps `seconds`, or until a stop signal; not at all if MainRunning is not set. For programs with
// a main loop of their own: this daemon's loop uses the other one.
void SleepAtLeast(unsigned char seconds);
