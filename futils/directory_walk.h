// One pass over a directory, by the system calls themselves: a listing already tells the kind of
// most entries, sizes are asked relative to the open directory, and no memory is allocated. An idle
// check cycle costs three system calls less than with std::filesystem's iterator, and a large
// archive is measured in less time.
#pragma once

#include <dirent.h>

#include <cstddef>
#include <optional>

class DirectoryWalk {
public:
    // `dir` must outlive the walk. Raises std::filesystem::filesystem_error if the directory cannot
    // be opened.
    explicit DirectoryWalk(const char* dir);
    DirectoryWalk(const DirectoryWalk&) = delete;
    DirectoryWalk& operator=(const DirectoryWalk&) = delete;
    ~DirectoryWalk();

    // Steps to the next entry, "." and ".." left out, in the file system's order. Returns false
    // behind the last one. Raises filesystem_error if the directory cannot be read.
    [[nodiscard]] bool Next();

    // The bare name of the entry, until the next step.
    [[nodiscard]] const char* Name() const { return entry->d_name; }

    // True for a regular file or a link to one. Raises filesystem_error if that cannot be told.
    [[nodiscard]] bool IsRegularFile() const;

    // The size in bytes of a regular file or of one that a link leads to, else nothing. Raises as
    // IsRegularFile does.
    [[nodiscard]] std::optional<unsigned long> RegularFileSize() const;

private:
    // Reads entries into the buffer. Returns false if there are no more.
    bool Fill();
    [[noreturn]] void Raise(const char* what) const;

    const char* const dir;
    const int fd;
    const dirent* entry = nullptr;
    std::size_t next = 0;               // in the buffer
    std::size_t filled = 0;             // bytes of it
    alignas(dirent) char buffer[4096];  // entries as the kernel gives them
};
