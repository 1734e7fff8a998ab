// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// One pass over a directory. A listing names the kind of most entries, and sizes are read relative
// to the open directory, so each file costs at most one stat.
#pragma once

#include <dirent.h>

#include <optional>
#include <string>

namespace Futils {

class DirectoryWalk {
public:
    // Throws std::filesystem::filesystem_error if the directory cannot be opened.
    explicit DirectoryWalk(std::string dir);
    DirectoryWalk(const DirectoryWalk&) = delete;
    DirectoryWalk& operator=(const DirectoryWalk&) = delete;
    ~DirectoryWalk();

    // Steps to the next entry, in the file system's order, without "." and "..". Returns false
    // behind the last one. Throws filesystem_error if the directory cannot be read.
    [[nodiscard]] bool Next();

    // The bare name of the entry, until the next step.
    [[nodiscard]] const char* Name() const { return entry->d_name; }

    // True for a regular file or a link to one. Throws filesystem_error if the kind cannot be read.
    [[nodiscard]] bool IsRegularFile() const;

    // The size in bytes of a regular file or of one that a link leads to, else nothing. Throws as
    // IsRegularFile does.
    [[nodiscard]] std::optional<unsigned long> RegularFileSize() const;

private:
    [[noreturn]] void Throw(const char* what) const;

    const std::string dir;
    DIR* const stream;
    const dirent* entry = nullptr;
};

}  // namespace Futils
