// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "tests/support/faults.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>
#include <utility>

namespace {

struct Fault {
    int error;
    int nth;  // 0: every call
};

// Never destroyed: what runs after main calls these functions, too.
auto& faults = *new std::map<std::string, Fault>;
auto& actions = *new std::map<std::string, std::function<void()>>;
auto& calls = *new std::vector<std::string>;
std::optional<timespec> fixedClock;
std::optional<timespec> fixedTimeOfDay;
bool sleepsAreSkipped = false;
unsigned long capacity = 0;

template <typename Function>
Function* Real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// True if this call must fail; errno is set then.
bool MustFail(const std::string& function) {
    if (const auto action = actions.find(function); action != actions.end()) {
        const auto run = action->second;
        actions.erase(action);  // The action's own calls do not come back to it.
        run();
        actions.emplace(function, run);
    }
    const auto fault = faults.find(function);
    if (fault == faults.end()) return false;
    const int error = fault->second.error;
    if (fault->second.nth > 1) {
        --fault->second.nth;
        return false;
    }
    if (fault->second.nth == 1) faults.erase(fault);
    errno = error;
    return true;
}

// Fails, or calls the C library's function of that name.
template <auto& Function, typename Failure, typename... Arguments>
auto FailOrCall(const char* name, Failure failure, Arguments... arguments) {
    static auto* const real = Real<std::remove_reference_t<decltype(Function)>>(name);
    return MustFail(name) ? failure : real(arguments...);
}

std::string PathOf(int fd) {
    char target[4096] = {};
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    const ssize_t length = readlink(link.c_str(), target, sizeof target - 1);
    return length < 0 ? std::to_string(fd) : target;
}

void MoveOn(std::optional<timespec>& clock, const timespec& interval) {
    if (!clock) return;
    constexpr long Second = 1000000000;
    const long nanoseconds = clock->tv_nsec + interval.tv_nsec;
    *clock = {clock->tv_sec + interval.tv_sec + nanoseconds / Second, nanoseconds % Second};
}

// "10.000000000"
std::string TextOf(const timespec& time) {
    const std::string nanoseconds = std::to_string(time.tv_nsec);
    return std::to_string(time.tv_sec) + '.' + std::string(9 - nanoseconds.size(), '0') +
           nanoseconds;
}

}  // namespace

void Faults::Fail(const std::string& function, int error, int nth) {
    faults[function] = {error, nth};
}

void Faults::Clear() {
    faults.clear();
    actions.clear();
    calls.clear();
    ReleaseClock();
    sleepsAreSkipped = false;
    capacity = 0;
}

void Faults::FixClock(timespec now) {
    fixedClock = now;
}

void Faults::FixTimeOfDay(timespec now) {
    fixedTimeOfDay = now;
}

void Faults::ReleaseClock() {
    fixedClock.reset();
    fixedTimeOfDay.reset();
}

void Faults::SkipSleeps() {
    sleepsAreSkipped = true;
}

void Faults::SetCapacity(unsigned long bytes) {
    capacity = bytes;
}

void Faults::OnCall(const std::string& function, std::function<void()> action) {
    actions[function] = std::move(action);
}

std::vector<std::string> Faults::TakeCalls() {
    return std::exchange(calls, {});
}

extern "C" {

int clock_gettime(clockid_t clock, timespec* now) noexcept {
    static auto* const real = Real<int(clockid_t, timespec*)>("clock_gettime");
    if (clock == CLOCK_MONOTONIC) {
        if (MustFail("clock_gettime")) return -1;
        if (fixedClock) {
            *now = *fixedClock;
            return 0;
        }
    }
    if (clock == CLOCK_REALTIME && fixedTimeOfDay) {
        *now = *fixedTimeOfDay;
        return 0;
    }
    return real(clock, now);
}

std::tm* gmtime_r(const std::time_t* time, std::tm* date) noexcept {
    return FailOrCall<gmtime_r>("gmtime_r", nullptr, time, date);
}

std::size_t strftime(char* text, std::size_t size, const char* format,
                     const std::tm* date) noexcept {
    return FailOrCall<strftime>("strftime", 0, text, size, format, date);
}

int fsync(int fd) {
    calls.push_back("fsync " + PathOf(fd));
    return FailOrCall<fsync>("fsync", -1, fd);
}

int flock(int fd, int operation) noexcept {
    return FailOrCall<flock>("flock", -1, fd, operation);
}

int rename(const char* from, const char* to) noexcept {
    calls.push_back(std::string("rename ") + from + ' ' + to);
    return FailOrCall<rename>("rename", -1, from, to);
}

int remove(const char* path) noexcept {
    calls.push_back(std::string("remove ") + path);
    return FailOrCall<remove>("remove", -1, path);
}

std::FILE* fopen(const char* path, const char* mode) {
    return FailOrCall<fopen>("fopen", nullptr, path, mode);
}

int fclose(std::FILE* stream) {
    static auto* const real = Real<int(std::FILE*)>("fclose");
    const bool fails = MustFail("fclose");
    const int error = errno;
    const int result = real(stream);
    if (!fails) return result;
    errno = error;
    return EOF;
}

std::size_t fread(void* items, std::size_t size, std::size_t count, std::FILE* stream) {
    return FailOrCall<fread>("fread", count - 1, items, size, count, stream);
}

int fileno(std::FILE* stream) noexcept {
    return FailOrCall<fileno>("fileno", -1, stream);
}

int fstat(int fd, struct stat* status) noexcept {
    return FailOrCall<fstat>("fstat", -1, fd, status);
}

int statvfs(const char* path, struct statvfs* status) noexcept {
    static auto* const real = Real<int(const char*, struct statvfs*)>("statvfs");
    if (MustFail("statvfs")) return -1;
    const int result = real(path, status);
    if (result == 0 && capacity != 0) {
        status->f_frsize = 1;
        status->f_blocks = capacity;
    }
    return result;
}

int close(int fd) {
    return FailOrCall<close>("close", -1, fd);
}

DIR* opendir(const char* path) {
    return FailOrCall<opendir>("opendir", nullptr, path);
}

int closedir(DIR* stream) {
    return FailOrCall<closedir>("closedir", -1, stream);
}

// F_SETLEASE and F_SETSIG take an int, as all commands that this program uses.
[[gnu::no_sanitize_address]] int fcntl(int fd, int command, ...) {
    static auto* const real = Real<int(int, int, ...)>("fcntl");
    std::va_list args;
    va_start(args, command);
    void* const value = va_arg(args, void*);
    va_end(args);
    if (command == F_SETLEASE && MustFail("lease")) return -1;
    return real(fd, command, value);
}

int nanosleep(const timespec* interval, timespec* rest) {
    static auto* const real = Real<int(const timespec*, timespec*)>("nanosleep");
    calls.push_back("nanosleep " + TextOf(*interval));
    if (MustFail("nanosleep")) {
        if (errno == EINTR && rest != nullptr) *rest = {interval->tv_sec - 1, interval->tv_nsec};
        return -1;
    }
    if (!sleepsAreSkipped) return real(interval, rest);
    MoveOn(fixedClock, *interval);
    MoveOn(fixedTimeOfDay, *interval);
    return 0;
}

void syslog(int priority, const char* format, ...) {
    static auto* const real = Real<void(int, const char*, va_list)>("vsyslog");
    (void)MustFail("syslog");
    va_list args;
    va_start(args, format);
    real(priority, format, args);
    va_end(args);
}

int kill(pid_t pid, int signal) noexcept {
    calls.push_back("kill " + std::to_string(pid) + ' ' + std::to_string(signal));
    return MustFail("kill") ? -1 : 0;
}

int posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const* arguments,
                char* const* environment) {
    static auto* const real =
        Real<int(pid_t*, const char*, const posix_spawn_file_actions_t*, const posix_spawnattr_t*,
                 char* const*, char* const*)>("posix_spawn");
    calls.push_back(std::string("system ") + arguments[2]);
    if (MustFail("system")) return errno;
    return real(pid, path, actions, attributes, arguments, environment);
}

pid_t waitpid(pid_t pid, int* status, int options) {
    return FailOrCall<waitpid>("waitpid", -1, pid, status, options);
}

// As the C library's own it takes all the arguments that there may be, so that the sanitizer must
// not look.
[[gnu::no_sanitize_address]] long syscall(long number, ...) noexcept {
    static auto* const real = Real<long(long, ...)>("syscall");
    std::va_list args;
    va_start(args, number);
    long values[6];
    for (long& value : values) value = va_arg(args, long);
    va_end(args);
    const auto [first, second, third, fourth, fifth, sixth] = values;
    if (number == SYS_renameat2) {
        calls.push_back(std::string("rename ") + reinterpret_cast<const char*>(second) + ' ' +
                        reinterpret_cast<const char*>(fourth));
        if (fifth != 0 && MustFail("renameat2")) return -1;
        if (MustFail("rename")) return -1;
    }
    return real(number, first, second, third, fourth, fifth, sixth);
}

}  // extern "C"
