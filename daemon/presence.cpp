// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "daemon/presence.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "daemon/moraine.h"

namespace Daemon {

namespace {

void RemoveBootNum() {
    (void)unlink(Moraine::BootNumPfe.c_str());  // It may not be there.
}

}  // namespace

Presence::Presence()
    : fd(open(Moraine::LockPfe.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK,
              S_IRUSR | S_IWUSR)),
      isTaken(fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
    if (!isTaken) RemoveBootNum();  // One that a killed daemon has left.
}

Presence::~Presence() {
    if (!isTaken) RemoveBootNum();
    if (fd >= 0) (void)close(fd);  // Nothing was written through it.
}

void Presence::PublishBootNum(unsigned int bootNum) const {
    const int file = open(Moraine::BootNumPfe.c_str(),
                          O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR);
    if (file < 0) return;
    // Readers take an empty file for none, and one that is cut short cannot be: it is one write.
    if (dprintf(file, "%u\n", bootNum) < 0) RemoveBootNum();
    (void)fchmod(file, S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH);  // Whatever the umask.
    (void)close(file);
}

}  // namespace Daemon
