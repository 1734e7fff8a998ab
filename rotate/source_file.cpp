#include "rotate/source_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <utility>

#include "util/elapsed_time.h"

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
      openError(fd < 0 ? errno : 0),
      // Where the file system knows no locks, it is nobody's.
      isTaken(fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {}

SourceFile::~SourceFile() {
    if (fd >= 0) (void)close(fd);  // Nothing was written through it.
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

double SourceFile::MsSinceTouched() const {
    struct stat now {};
    timespec clock{};
    (void)fstat(fd, &now);
    (void)clock_gettime(CLOCK_REALTIME, &clock);
    return Util::GetElapsedSec(clock, now.st_ctim) * 1000;
}
