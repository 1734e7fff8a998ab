// The daemon's two sleeps. They differ in what an interruption does.
#pragma once

// Sleeps 10 seconds, the time between two check cycles. A stop signal ends it early; other
// interruptions do not. An error of the clock is logged and ends it.
void SleepBetweenCycles();

// Sleeps while MainRunning is set, at most `seconds`; returns at once if it is not.
void SleepAtLeast(unsigned char seconds);
