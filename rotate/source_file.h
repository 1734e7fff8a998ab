// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The identity of a file while its path may come to name another one: syslogd renames its rotations
// at any moment, and a writer may go on writing to a file that was renamed under it. The open
// descriptor holds on to the very file that is archived.
#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <filesystem>
#include <utility>

namespace Rotation {

class SourceFile {
public:
    // Opens the file at `pfn`. Never blocks, and logs nothing.
    explicit SourceFile(std::filesystem::path pfn);
    SourceFile(const SourceFile&) = delete;
    SourceFile& operator=(const SourceFile&) = delete;
    ~SourceFile();

    // The path by which it is known. Renaming the file is the caller's.
    const std::filesystem::path& Pfn() const { return pfn; }
    void SetPfn(std::filesystem::path path) { pfn = std::move(path); }

    // 0, or the errno with which opening failed.
    int OpenError() const { return openError; }

    // Takes the present content as the one that Look compares with.
    void Mark();

    enum class State {
        Same,     // the path names this file, and its content is the marked one
        Changed,  // the path names this file, and it was written to since Mark
        Moved,    // the path names another file or none; this one has a name elsewhere
        Deleted,  // this file has no name any more
    };
    [[nodiscard]] State Look() const;

    // Bytes, when it was marked.
    off_t Size() const { return marked.st_size; }

    // Reads up to `size` bytes at `offset`. Returns how many; 0 at the end and on an error.
    [[nodiscard]] std::size_t ReadAt(off_t offset, char* data, std::size_t size) const;

    // Keeps writers out: who opens the file for writing from now on waits for LetWritersIn. Returns
    // false if somebody has it open for writing already. True where the file system knows no
    // leases.
    [[nodiscard]] bool LockOutWriters() const;
    void LetWritersIn() const;

    // Milliseconds since the file was last written to or renamed, by the system's clock.
    [[nodiscard]] double MsSinceTouched() const;

private:
    std::filesystem::path pfn;
    int fd;
    int openError;
    struct stat marked {};
};

// True if both files are there and were modified at the same nanosecond: xz gives its output the
// time of its input.
[[nodiscard]] bool HaveSameTime(const std::filesystem::path& a, const std::filesystem::path& b);

}  // namespace Rotation
