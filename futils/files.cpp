// Renaming, removing, testing, copying, sizing and syncing single files and directories.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <system_error>

#include "futils/futils.h"
#include "logging/logging.h"

namespace fs = std::filesystem;

namespace {

// Two looks at a file, links followed. They raise filesystem_error as std::filesystem's own do, but
// unless they fail they need no memory: an idle check cycle is made of them.

[[noreturn]] void Raise(const char* what, const std::string& path, int error) {
    throw fs::filesystem_error(what, path, {error, std::generic_category()});
}

// The kind and rights of what the path leads to; 0, which is no kind, if that is nothing.
mode_t ModeOf(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) == 0) return status.st_mode;
    if (errno == ENOENT || errno == ENOTDIR) return 0;
    Raise("status", path, errno);
}

unsigned long SizeOf(const std::string& pfn) {
    struct stat status {};
    if (stat(pfn.c_str(), &status) != 0) Raise("cannot get file size", pfn, errno);
    if (S_ISREG(status.st_mode)) return static_cast<unsigned long>(status.st_size);
    Raise("cannot get file size", pfn, S_ISDIR(status.st_mode) ? EISDIR : ENOTSUP);
}

}  // namespace

bool Futils::Rename(const fs::path& from, const fs::path& to) {
    try {
        fs::rename(from, to);
    } catch (const std::exception& e) {
        Log::Error("Rename failure, reason: %s", e.what());
        return true;
    }
    return false;
}

bool Futils::Remove(const fs::path& pfn) {
    try {
        (void)fs::remove(pfn);  // Whether there was anything to remove does not matter.
    } catch (const std::exception& e) {
        Log::Error("Remove failure for %s: %s", pfn.c_str(), e.what());
        return true;
    }
    return false;
}

bool Futils::Sync(const fs::path& pfn) {
    const int fd = open(pfn.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0 && errno == ENOENT) return false;
    // EINVAL: the file system has nothing to sync this kind of file with.
    const bool failed = fd < 0 || (fsync(fd) != 0 && errno != EINVAL);
    if (failed) Log::Error("Unable to sync %s: %s", pfn.c_str(), strerror(errno));
    if (fd >= 0) (void)close(fd);  // Nothing was written through it.
    return failed;
}

bool Futils::PathExists(const std::string& path) {
    try {
        return S_ISDIR(ModeOf(path));
    } catch (const std::exception& e) {
        Log::Debug("PathExists(%s) exception: %s", path.c_str(), e.what());
    }
    return false;
}

bool Futils::FileExists(const std::string& pfn) {
    try {
        return S_ISREG(ModeOf(pfn));
    } catch (const std::exception& e) {
        Log::Debug("FileExists(%s) exception: %s", pfn.c_str(), e.what());
    }
    return false;
}

bool Futils::CopyFile(const std::string& from, const std::string& to) {
    try {
        fs::copy(from, to);
    } catch (const std::exception& e) {
        Log::Error("Unable to copy %s, reason: %s", fs::path(from).filename().c_str(), e.what());
        return true;
    }
    return false;
}

bool Futils::GetFileSize(unsigned long& size, const std::string& pfn) {
    size = 0;
    try {
        size = SizeOf(pfn);
    } catch (const std::exception& e) {
        Log::Error("GetFileSize(%s) exception: %s", pfn.c_str(), e.what());
        return true;
    }
    return false;
}

bool Futils::PfnHasErrors(const char* where, const std::string& pfn) {
    constexpr std::size_t MaxLength = 255;
    if (pfn.empty()) {
        Log::Error("Path/File cannot be empty in %s", where);
        return true;
    }
    if (pfn.size() > MaxLength) {
        Log::Error("Path + File Name is too long in %s", where);
        return true;
    }
    return false;
}
