// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Renaming, removing, testing, copying, sizing and syncing single files and directories.
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <system_error>

#include "futils/futils.h"
#include "futils/rename.h"
#include "logging/logging.h"

namespace fs = std::filesystem;

namespace {

int RenameAt2(const fs::path& from, const fs::path& to, unsigned flags) {
    const long result = syscall(SYS_renameat2, AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), flags);
    return result == 0 ? 0 : errno;
}

bool Exists(const fs::path& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 || errno != ENOENT;
}

}  // namespace

int Futils::TryRenameNoReplace(const fs::path& from, const fs::path& to) {
    const int error = RenameAt2(from, to, RENAME_NOREPLACE);
    if (error != EINVAL && error != ENOSYS) return error;
    return Exists(to) ? EEXIST : RenameAt2(from, to, 0);
}

Futils::RenameResult Futils::RenameNoReplace(const fs::path& from, const fs::path& to) {
    const int error = TryRenameNoReplace(from, to);
    if (error == 0) return RenameResult::Renamed;
    if (error == EEXIST) return RenameResult::TargetExists;
    const fs::filesystem_error failure("cannot rename", from, to, {error, std::generic_category()});
    Log::Error("Rename failure, reason: %s", failure.what());
    return RenameResult::Failed;
}

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
        return fs::is_directory(path);
    } catch (const std::exception& e) {
        Log::Debug("PathExists(%s) exception: %s", path.c_str(), e.what());
    }
    return false;
}

bool Futils::FileExists(const std::string& pfn) {
    try {
        return fs::is_regular_file(pfn);
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
        size = fs::file_size(pfn);
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
