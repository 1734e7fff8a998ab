// The identity of a file while its path may come to name another one: syslogd renames its rotations
// at any moment, and may go on writing to a file that was renamed under it. The open descriptor
// holds on to the very file that is archived, and locks it for as long: two daemons would take each
// other's half-compressed copies for their own.
#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <utility>

class SourceFile {
public:
    // Opens and locks the file at `pfn`. Never blocks, and logs nothing.
    explicit SourceFile(std::filesystem::path pfn);
    SourceFile(const SourceFile&) = delete;
    SourceFile& operator=(const SourceFile&) = delete;
    ~SourceFile();

    // The path by which it is known. Renaming the file is the caller's.
    const std::filesystem::path& Pfn() const { return pfn; }
    void SetPfn(std::filesystem::path path) { pfn = std::move(path); }

    // 0, or the errno with which opening failed.
    int OpenError() const { return openError; }

    // True if another process archives it.
    bool IsTaken() const { return isTaken; }

    // Takes the present content as the one that Look compares with.
    void Mark();

    enum class State {
        Same,     // the path names this file, and its content is the marked one
        Changed,  // the path names this file, and it was written to since Mark
        Moved,    // the path names another file or none; this one has a name elsewhere
        Deleted,  // this file has no name any more
    };
    [[nodiscard]] State Look() const;

    // Milliseconds since the file was last written to or renamed, by the system's clock.
    [[nodiscard]] double MsSinceTouched() const;

private:
    std::filesystem::path pfn;
    int fd;
    int openError;
    bool isTaken;
    struct stat marked {};
};
