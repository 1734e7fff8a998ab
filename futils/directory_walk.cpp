// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "futils/directory_walk.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

namespace Futils {

DirectoryWalk::DirectoryWalk(std::string path)
    : dir(std::move(path)), stream(opendir(dir.c_str())) {
    if (stream == nullptr) Throw("cannot open directory");
}

DirectoryWalk::~DirectoryWalk() {
    (void)closedir(stream);  // Nothing was written through it.
}

bool DirectoryWalk::Next() {
    do {
        errno = 0;
        entry = readdir(stream);
        if (entry == nullptr && errno != 0) Throw("cannot read directory");
        if (entry == nullptr) return false;
    } while (Name() == std::string_view(".") || Name() == std::string_view(".."));
    return true;
}

bool DirectoryWalk::IsRegularFile() const {
    return entry->d_type == DT_REG || RegularFileSize().has_value();
}

std::optional<unsigned long> DirectoryWalk::RegularFileSize() const {
    const bool mayBeRegular =
        entry->d_type == DT_REG || entry->d_type == DT_LNK || entry->d_type == DT_UNKNOWN;
    if (!mayBeRegular) return std::nullopt;

    struct stat status {};
    if (fstatat(dirfd(stream), Name(), &status, 0) != 0) {
        // A dangling link, or a file that went away since it was listed.
        if (errno == ENOENT || errno == ENOTDIR) return std::nullopt;
        Throw("cannot get file status");
    }
    if (!S_ISREG(status.st_mode)) return std::nullopt;
    return static_cast<unsigned long>(status.st_size);
}

void DirectoryWalk::Throw(const char* what) const {
    const std::error_code error(errno, std::generic_category());
    const std::string where = entry == nullptr ? dir : dir + "/" + Name();
    throw std::filesystem::filesystem_error(what, where, error);
}

}  // namespace Futils
