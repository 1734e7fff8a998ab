// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The entries of an open folder. A listing that fails halfway is not taken for a complete one.
#pragma once

#include <dirent.h>
#include <fcntl.h>

#include <cerrno>

namespace Reader {

class FolderWalk {
public:
    explicit FolderWalk(int folder) {
        const int copy = openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        stream = copy < 0 ? nullptr : fdopendir(copy);
        if (stream == nullptr) error = errno;
    }
    FolderWalk(const FolderWalk&) = delete;
    FolderWalk& operator=(const FolderWalk&) = delete;
    ~FolderWalk() {
        if (stream != nullptr) (void)closedir(stream);
    }

    const dirent* Next() {
        if (stream == nullptr) return nullptr;
        errno = 0;
        const dirent* const entry = readdir(stream);
        if (entry == nullptr) error = errno;
        return entry;
    }
    // As errno, after the last entry; 0 if that is all of them.
    int Error() const { return error; }

private:
    DIR* stream = nullptr;
    int error = 0;
};

}  // namespace Reader
