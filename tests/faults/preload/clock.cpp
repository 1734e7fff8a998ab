// A clock that only sleeping moves on: ten thousand cycles take a minute, names come out the same
// in each run, and so does the sequence of system calls. A sleep is still one system call, so that
// it can be traced and made to fail, and ends early after a signal.
//
//   FAULTS_CYCLES        SIGTERM arrives in this cycle sleep (0: in none)
//   FAULTS_SLEEP_US      what a cycle sleep really takes
//   FAULTS_FIRST_STOP    the process stops itself (SIGSTOP) at the end of this cycle sleep ...
//   FAULTS_SECOND_STOP   ... and of this one, to be looked at
#include <dlfcn.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include "process.h"

namespace {

constexpr long Second = 1000000000;

// The daemon's other sleeps are of 1.5 seconds at most.
constexpr time_t CycleSleep = 5;

// In a trace, the time that was really slept tells the two kinds apart.
constexpr long CycleMark = 2;
constexpr long OtherMark = 1;

unsigned long cycles, sleepMicroseconds, firstStop, secondStop;
unsigned long cycleSleeps = 0;
timespec now{.tv_sec = 3600, .tv_nsec = 0};  // since the device started

[[gnu::constructor]] void ReadSettings() {
    cycles = FaultsPreload::Setting("FAULTS_CYCLES");
    sleepMicroseconds = FaultsPreload::Setting("FAULTS_SLEEP_US");
    firstStop = FaultsPreload::Setting("FAULTS_FIRST_STOP");
    secondStop = FaultsPreload::Setting("FAULTS_SECOND_STOP");
}

void MoveOn(const timespec& interval) {
    now.tv_sec += interval.tv_sec + (now.tv_nsec + interval.tv_nsec) / Second;
    now.tv_nsec = (now.tv_nsec + interval.tv_nsec) % Second;
}

}  // namespace

extern "C" int nanosleep(const timespec* wanted, timespec* rest) {
    const bool isCycleSleep = wanted->tv_sec >= CycleSleep;
    if (isCycleSleep) {
        FaultsPreload::Report("sleep", FaultsPreload::Allocations());
        if (++cycleSleeps == cycles) {
            // Not raise, whose own system calls would be counted among the product's.
            (void)syscall(SYS_tgkill, getpid(), getpid(), SIGTERM);
            if (rest != nullptr) *rest = *wanted;
            errno = EINTR;
            return -1;
        }
    }
    const long slept =
        isCycleSleep ? static_cast<long>(sleepMicroseconds) * 1000 + CycleMark : OtherMark;
    const timespec real{.tv_sec = slept / Second, .tv_nsec = slept % Second};
    if (syscall(SYS_clock_nanosleep, CLOCK_REALTIME, 0, &real, nullptr) != 0) {
        if (isCycleSleep) --cycleSleeps;
        if (rest != nullptr) *rest = *wanted;
        return -1;
    }
    MoveOn(*wanted);
    if (isCycleSleep && (cycleSleeps == firstStop || cycleSleeps == secondStop)) {
        (void)std::raise(SIGSTOP);
    }
    return 0;
}

extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
    // The date stands before that of any file: who waits for a file to age waits in each run.
    *time = clock == CLOCK_REALTIME ? timespec{} : now;
    return 0;
}
