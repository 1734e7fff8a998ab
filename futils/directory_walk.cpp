#include "futils/directory_walk.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

// On 64-bit Linux the C libraries' `dirent` is the kernel's own; only some wrap the call.
static_assert(offsetof(dirent, d_reclen) == 16 && offsetof(dirent, d_type) == 18 &&
              offsetof(dirent, d_name) == 19);

DirectoryWalk::DirectoryWalk(const char* dir)
    : dir(dir), fd(open(dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (fd < 0) Raise("cannot open directory");
}

DirectoryWalk::~DirectoryWalk() {
    (void)close(fd);  // Nothing was written through it.
}

bool DirectoryWalk::Next() {
    do {
        if (next == filled && !Fill()) return false;
        entry = reinterpret_cast<const dirent*>(buffer + next);
        next += entry->d_reclen;
    } while (Name() == std::string_view(".") || Name() == std::string_view(".."));
    return true;
}

bool DirectoryWalk::Fill() {
    entry = nullptr;
    const long length = syscall(SYS_getdents64, fd, buffer, sizeof buffer);
    if (length < 0) {
        if (errno == ENOENT) return false;  // It was removed meanwhile, and was empty then.
        Raise("cannot read directory");
    }
    next = 0;
    filled = static_cast<std::size_t>(length);
    return length > 0;
}

bool DirectoryWalk::IsRegularFile() const {
    return entry->d_type == DT_REG || RegularFileSize().has_value();
}

std::optional<unsigned long> DirectoryWalk::RegularFileSize() const {
    const bool mayBeRegular =
        entry->d_type == DT_REG || entry->d_type == DT_LNK || entry->d_type == DT_UNKNOWN;
    if (!mayBeRegular) return std::nullopt;

    struct stat status {};
    if (fstatat(fd, Name(), &status, 0) != 0) {
        // A dangling link, or a file that went away since it was listed.
        if (errno == ENOENT || errno == ENOTDIR) return std::nullopt;
        Raise("cannot get file status");
    }
    if (!S_ISREG(status.st_mode)) return std::nullopt;
    return static_cast<unsigned long>(status.st_size);
}

void DirectoryWalk::Raise(const char* what) const {
    const std::error_code error(errno, std::generic_category());
    std::string where = dir;
    if (entry != nullptr) where.append("/").append(Name());
    throw std::filesystem::filesystem_error(what, where, error);
}
