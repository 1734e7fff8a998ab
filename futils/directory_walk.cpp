#include "futils/directory_walk.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

DirectoryWalk::DirectoryWalk(std::string path)
    : dir(std::move(path)), stream(opendir(dir.c_str())) {
    if (!stream) Raise("cannot open directory");
}

bool DirectoryWalk::Next() {
    do {
        errno = 0;
        entry = readdir(stream.get());
        if (entry == nullptr && errno != 0) Raise("cannot read directory");
    } while (entry != nullptr &&
             (Name() == std::string_view(".") || Name() == std::string_view("..")));
    return entry != nullptr;
}

bool DirectoryWalk::IsRegularFile() const {
    return entry->d_type == DT_REG || RegularFileSize().has_value();
}

std::optional<unsigned long> DirectoryWalk::RegularFileSize() const {
    const bool mayBeRegular =
        entry->d_type == DT_REG || entry->d_type == DT_LNK || entry->d_type == DT_UNKNOWN;
    if (!mayBeRegular) return std::nullopt;

    struct stat status {};
    if (fstatat(dirfd(stream.get()), Name(), &status, 0) != 0) {
        // A dangling link, or a file that went away since it was listed.
        if (errno == ENOENT || errno == ENOTDIR) return std::nullopt;
        Raise("cannot get file status");
    }
    if (!S_ISREG(status.st_mode)) return std::nullopt;
    return static_cast<unsigned long>(status.st_size);
}

void DirectoryWalk::Raise(const char* what) const {
    const std::error_code error(errno, std::generic_category());
    const std::filesystem::path where = entry == nullptr ? dir : dir + '/' + Name();
    throw std::filesystem::filesystem_error(what, where, error);
}
