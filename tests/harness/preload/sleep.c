// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Preloaded into the daemon: its sleep between two cycles takes the time that a test wants, so that
// many cycles take seconds. A sleep stays one system call, to be traced and failed, and ends early
// after a signal. The product knows nothing of it.
//
//   SLEEP_US            microseconds that a cycle sleep takes; without it, as many as are asked for
//   SLEEP_LAST          SIGTERM arrives in the cycle sleep of this number, from 1
//   SLEEP_FIRST_STOP    the process stops itself (SIGSTOP) at the end of this cycle sleep ...
//   SLEEP_SECOND_STOP   ... and of this one, to be looked at
#define _GNU_SOURCE
#include <errno.h>
#include <signal.h>
#include <stddef.h>
#include <stdlib.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

// A library that this file is linked into may have them. With MoveClock there is a clock that only
// sleeping moves on: then no sleep takes longer than SLEEP_US.
__attribute__((weak)) void MoveClock(const struct timespec* interval);
__attribute__((weak)) void BeforeCycleSleep(void);

// The daemon's other sleeps are of 1.5 seconds at most.
static const time_t CycleSleep = 2;

// In a trace, the nanoseconds distinguish the two kinds.
static const long CycleMark = 2;
static const long OtherMark = 1;

static unsigned long sleepUs, last, firstStop, secondStop;
static unsigned long cycleSleeps = 0;

static unsigned long Setting(const char* name) {
    const char* text = getenv(name);
    return text == NULL ? 0 : strtoul(text, NULL, 10);
}

__attribute__((constructor)) static void ReadSettings(void) {
    sleepUs = Setting("SLEEP_US");
    last = Setting("SLEEP_LAST");
    firstStop = Setting("SLEEP_FIRST_STOP");
    secondStop = Setting("SLEEP_SECOND_STOP");
}

static struct timespec RealSleep(const struct timespec* wanted, int isCycleSleep) {
    if (MoveClock == NULL && !(isCycleSleep && sleepUs != 0)) return *wanted;
    if (!isCycleSleep) return (struct timespec){0, OtherMark};
    return (struct timespec){(time_t)(sleepUs / 1000000),
                             (long)(sleepUs % 1000000) * 1000 + CycleMark};
}

int nanosleep(const struct timespec* wanted, struct timespec* rest) {
    const int isCycleSleep = wanted->tv_sec >= CycleSleep;
    if (isCycleSleep && BeforeCycleSleep != NULL) BeforeCycleSleep();
    if (isCycleSleep && ++cycleSleeps == last) {
        // Not raise, whose own system calls would be counted among the product's.
        (void)syscall(SYS_tgkill, getpid(), getpid(), SIGTERM);
        if (rest != NULL) *rest = *wanted;
        errno = EINTR;
        return -1;
    }
    const struct timespec real = RealSleep(wanted, isCycleSleep);
    struct timespec left = real;  // An interruption that a tracer makes leaves it alone.
    if (syscall(SYS_clock_nanosleep, CLOCK_REALTIME, 0, &real, &left) != 0) {
        if (isCycleSleep) --cycleSleeps;
        const int isAsWanted = real.tv_sec == wanted->tv_sec && real.tv_nsec == wanted->tv_nsec;
        if (rest != NULL) *rest = isAsWanted ? left : *wanted;
        return -1;
    }
    if (MoveClock != NULL) MoveClock(wanted);
    if (isCycleSleep && (cycleSleeps == firstStop || cycleSleeps == secondStop)) {
        (void)raise(SIGSTOP);
    }
    return 0;
}
