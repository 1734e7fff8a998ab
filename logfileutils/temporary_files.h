// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Safe use of fixed names in a folder where anybody can create files: a link, FIFO or folder that
// somebody planted there would have root write elsewhere, wait, or fail.
#pragma once

#include <filesystem>

namespace Catalogue {

// Removes what has this name, a folder with all its content included, unless it is a regular file
// of the caller's own, with no other name. Returns true if it is still there. Logs an Error line
// then.
[[nodiscard]] bool RemoveForeign(const std::filesystem::path& pfn);

// A file of the caller's own under this name, for a command to write to: one that is there already,
// or an empty one. Nobody can plant anything there any more, since only the owner removes files
// from a sticky folder.
class ReservedFile {
public:
    explicit ReservedFile(const std::filesystem::path& pfn);
    ReservedFile(const ReservedFile&) = delete;
    ReservedFile& operator=(const ReservedFile&) = delete;
    // Removes the file if it is new and nothing was written to it.
    ~ReservedFile();

    // True if the name could not be reserved. An Error line says why.
    [[nodiscard]] bool Failed() const { return failed; }

private:
    const std::filesystem::path& pfn;
    bool isNew = false;
    bool failed = false;
};

// Held while a download is packed. Where its file cannot be opened, it is always free.
class DownloadLock {
public:
    DownloadLock();
    DownloadLock(const DownloadLock&) = delete;
    DownloadLock& operator=(const DownloadLock&) = delete;
    ~DownloadLock();

    // True if another process packs a download. An Error line says so.
    [[nodiscard]] bool IsTaken() const { return isTaken; }

private:
    int fd;
    bool isTaken;
};

}  // namespace Catalogue
