// One pass over a directory, by the C library's own calls: a listing already tells the kind of most
// entries, and sizes are asked relative to the open directory. An idle check cycle costs two system
// calls less than with std::filesystem's iterator, and a large archive is measured in less time.
#pragma once

#include <dirent.h>

#include <memory>
#include <optional>
#include <string>

class DirectoryWalk {
public:
    // Raises std::filesystem::filesystem_error if the directory cannot be opened.
    explicit DirectoryWalk(std::string dir);

    // Steps to the next entry, "." and ".." left out, in the file system's order. Returns false
    // behind the last one. Raises filesystem_error if the directory cannot be read.
    [[nodiscard]] bool Next();

    // The bare name of the entry.
    [[nodiscard]] const char* Name() const { return entry->d_name; }

    // True for a regular file or a link to one. Raises filesystem_error if that cannot be told.
    [[nodiscard]] bool IsRegularFile() const;

    // The size in bytes of a regular file or of one that a link leads to, else nothing. Raises as
    // IsRegularFile does.
    [[nodiscard]] std::optional<unsigned long> RegularFileSize() const;

private:
    struct CloseStream {
        void operator()(DIR* stream) const { (void)closedir(stream); }
    };

    [[noreturn]] void Raise(const char* what) const;

    std::string dir;
    std::unique_ptr<DIR, CloseStream> stream;
    const dirent* entry = nullptr;
};
