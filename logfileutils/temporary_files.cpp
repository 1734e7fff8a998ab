// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "logfileutils/temporary_files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>

#include "daemon/moraine.h"
#include "logging/logging.h"

namespace fs = std::filesystem;

namespace Catalogue {

namespace {

// Another name of the file may be somewhere that the caller must not write to.
bool IsOwn(const struct stat& status) {
    return S_ISREG(status.st_mode) && status.st_uid == geteuid() && status.st_nlink == 1;
}

}  // namespace

bool RemoveForeign(const fs::path& pfn) {
    struct stat status {};
    if (lstat(pfn.c_str(), &status) != 0 || IsOwn(status)) return false;
    try {
        (void)fs::remove_all(pfn);
    } catch (const std::exception& e) {
        Log::Error("Remove failure for %s: %s", pfn.c_str(), e.what());
        return true;
    }
    return false;
}

ReservedFile::ReservedFile(const fs::path& pfn) : pfn(pfn), failed(RemoveForeign(pfn)) {
    if (failed) return;
    const int fd = open(pfn.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    isNew = fd >= 0;
    if (isNew) (void)close(fd);  // Nothing was written through it.
    const int error = errno;
    struct stat status {};
    const bool isThere = lstat(pfn.c_str(), &status) == 0 && IsOwn(status);
    if (isThere) return;
    failed = true;
    Log::Error("Unable to create %s: %s", pfn.c_str(), strerror(error));
}

ReservedFile::~ReservedFile() {
    struct stat status {};
    if (!isNew || stat(pfn.c_str(), &status) != 0 || status.st_size != 0) return;
    (void)unlink(pfn.c_str());  // An empty file does no harm.
}

DownloadLock::DownloadLock()
    : fd(open(Moraine::DownloadLockPfe.c_str(),
              O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, S_IRUSR | S_IWUSR)),
      isTaken(fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
    if (isTaken) Log::Error("Another log download is being packed.  Try again when it is done.");
}

DownloadLock::~DownloadLock() {
    if (fd >= 0) (void)close(fd);  // Nothing was written through it.
}

}  // namespace Catalogue
