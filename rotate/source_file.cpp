// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "rotate/source_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <utility>

#include "util/elapsed_time.h"

namespace Rotation {

namespace {

bool SameTime(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

bool SameFile(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

}  // namespace

SourceFile::SourceFile(std::filesystem::path path)
    : pfn(std::move(path)),
      fd(open(pfn.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)),
      openError(fd < 0 ? errno : 0) {}

SourceFile::~SourceFile() {
    if (fd >= 0) (void)close(fd);  // guard: close-source
}

void SourceFile::Mark() {
    marked = {};
    (void)fstat(fd, &marked);  // Without a mark, Look finds a difference.
}

SourceFile::State SourceFile::Look() const {
    struct stat now {};
    if (fstat(fd, &now) == 0 && now.st_nlink == 0) return State::Deleted;
    struct stat named {};
    if (stat(pfn.c_str(), &named) != 0 || !SameFile(named, now)) return State::Moved;
    const bool same = now.st_size == marked.st_size && SameTime(now.st_mtim, marked.st_mtim);
    return same ? State::Same : State::Changed;
}

std::size_t SourceFile::ReadAt(off_t offset, char* data, std::size_t size) const {
    const ssize_t length = pread(fd, data, size, offset);
    return length < 0 ? 0 : static_cast<std::size_t>(length);
}

bool SourceFile::LockOutWriters() const {
    // The signal that announces a waiting writer: by default it would end the process.
    (void)fcntl(fd, F_SETSIG, SIGURG);
    return fcntl(fd, F_SETLEASE, F_RDLCK) == 0 || errno != EAGAIN;
}

void SourceFile::LetWritersIn() const {
    (void)fcntl(fd, F_SETLEASE, F_UNLCK);  // It may hold none.
}

double SourceFile::MsSinceTouched() const {
    struct stat now {};
    timespec clock{};
    (void)fstat(fd, &now);
    (void)clock_gettime(CLOCK_REALTIME, &clock);
    return Util::GetElapsedSec(clock, now.st_ctim) * 1000;
}

bool HaveSameTime(const std::filesystem::path& a, const std::filesystem::path& b) {
    struct stat first {};
    struct stat second {};
    return stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0 &&
           SameTime(first.st_mtim, second.st_mtim);
}

}  // namespace Rotation
