// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "logpage/limits.h"

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdio>

namespace Page {

std::atomic<bool> TimeIsUp = false;

namespace {

constexpr rlim_t CpuSeconds = 25;
constexpr rlim_t MaxCpuSeconds = 30;
constexpr rlim_t MemoryBytes = 160UL << 20;
constexpr int Slots = 4;
constexpr const char* LogFolder = "/perm/logs";

void LimitTo(int resource, rlim_t soft, rlim_t hard) {
    // Keeps a limit that is lower already.
    rlimit limit{};
    if (getrlimit(static_cast<__rlimit_resource>(resource), &limit) != 0) return;
    limit.rlim_max = std::min(limit.rlim_max, hard);
    limit.rlim_cur = std::min({limit.rlim_cur, limit.rlim_max, soft});
    (void)setrlimit(static_cast<__rlimit_resource>(resource), &limit);  // Lowering cannot fail.
}

}  // namespace

void LimitResources() {
    (void)std::signal(SIGXCPU, [](int) { TimeIsUp = true; });
    LimitTo(RLIMIT_CPU, CpuSeconds, MaxCpuSeconds);
#ifndef __SANITIZE_ADDRESS__  // which reserves terabytes of addresses
    LimitTo(RLIMIT_AS, MemoryBytes, MemoryBytes);
#endif
    LimitTo(RLIMIT_CORE, 0, 0);
    (void)prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
}

// A slot is a name of an abstract socket: it belongs to one process, disappears with it however it
// ends, and needs no file that somebody has to be allowed to write. The names differ where the
// file systems of several devices share one kernel, as in containers.
bool TakeSlot() {
    struct stat folder {};
    (void)stat(LogFolder, &folder);  // Zeros will do.
    for (int slot = 0; slot < Slots; ++slot) {
        // Not closed: it is held as long as the process lives.
        const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (fd < 0) return false;
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const int length = std::snprintf(address.sun_path + 1, sizeof address.sun_path - 1,
                                         "vandis-moraine-page-%llx-%llx-%d",
                                         static_cast<unsigned long long>(folder.st_dev),
                                         static_cast<unsigned long long>(folder.st_ino), slot);
        const auto size = offsetof(sockaddr_un, sun_path) + 1 + static_cast<std::size_t>(length);
        if (bind(fd, reinterpret_cast<sockaddr*>(&address), static_cast<socklen_t>(size)) == 0) {
            return true;
        }
    }
    return false;
}

}  // namespace Page
