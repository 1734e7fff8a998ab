// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The files of a log, in the order of their text. A file of the archive is a name and an inode in
// 24 bytes, because there may be tens of thousands; it is opened when its turn comes. A file that
// is held open, or that is a member of a tar file, has a place as well.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "reader/log.h"
#include "reader/text.h"

namespace Reader {

// An open file, closed at the end.
class Descriptor {
public:
    explicit Descriptor(int fd = -1) : fd(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd(other.Release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept;
    ~Descriptor();
    int Get() const { return fd; }
    bool IsOpen() const { return fd >= 0; }
    int Release() {
        const int result = fd;
        fd = -1;
        return result;
    }

private:
    int fd;
};

// Keeps bytes at their address.
class Arena {
public:
    std::string_view Add(std::string_view text);

private:
    std::vector<std::unique_ptr<char[]>> chunks;
    std::size_t used = 0;
    std::size_t size = 0;
};

struct Entry {
    const char* name = nullptr;
    std::uint64_t id = 0;  // inode; with a place, its index
    std::uint32_t boot = 0;
    Anchor anchor{};  // of a file that is not archived
    std::uint8_t nameLength = 0;
    std::uint8_t restOffset = 0;  // of what is behind the boot number, or of a rotation's suffix
    Kind kind = Kind::Archive;
    bool isCompressed : 1 = false;
    bool isPlaced : 1 = false;

    std::string_view Name() const { return {name, nameLength}; }
    std::string_view Rest() const { return Name().substr(restOffset); }
    Source GetSource() const { return {Name(), kind, isCompressed, boot, anchor}; }
};

struct Placed {
    Place place;
    std::int64_t mtime = 0;
};

// What a file is read from.
struct OpenFile {
    Descriptor owned;  // not used by a place
    Place place;
    std::int64_t mtime = 0;
    std::uint64_t size = 0;
};

enum class OpenResult { Opened, Gone, Failed };

// Something that could not be read, or was left out.
struct Problem {
    std::string file;
    std::string reason;
    bool isMisnamed = false;  // an archive file's name without a boot number
};

class Catalogue {
public:
    // Adds a file. Its boot number, unless it is archived, is set at the end.
    void Add(std::string_view name, const Name& parsed, std::uint64_t inode);
    void AddPlaced(std::string_view name, const Name& parsed, const Placed& file);
    void Remove(std::size_t index) { entries.erase(entries.begin() + static_cast<long>(index)); }
    void Clear();

    // Brings the files into the order of the text. Those that are not archived get the boot number
    // `current`, or without one the highest in the archive + 1.
    void Finish(std::uint32_t current);

    // Opens a file; `error` is set if it Failed.
    OpenResult Open(std::size_t index, OpenFile& file, std::string& error) const;

    std::vector<Entry> entries;
    std::vector<Placed> placed;
    std::vector<Problem> problems;
    std::vector<std::string> unreadable;  // names of waiting logs that are not among the entries
    std::vector<Descriptor> held;         // that places refer to
    std::unique_ptr<char[], void (*)(void*)> memory{nullptr, nullptr};  // a tar from a pipe
    Descriptor folder;                                                  // of the archive
    std::uint32_t currentBoot = 1;

private:
    OpenResult OpenRenumbered(const Entry& entry, OpenFile& file, std::string& error) const;

    Arena names;
};

// Fills an open file's record. Returns true on failure, with the reason.
[[nodiscard]] bool Inspect(OpenFile& file, std::string& error);

// Opens a file that must be a regular one: no pipe or device is waited for, no link followed.
OpenResult OpenRegular(int folder, const char* name, OpenFile& file, std::string& error);

// All of these leave their problems in the catalogue.

// Lists an archive folder.
void ListArchive(int folder, const std::string& path, Catalogue& catalogue);

// A copied folder.
void OpenFolder(const std::string& path, Catalogue& catalogue);

// The device's own folders, consistently.
void OpenDeviceFolders(Catalogue& catalogue);

// A tar file, from an open file that is closed with the catalogue.
void OpenTar(const std::string& path, Descriptor file, Catalogue& catalogue);

}  // namespace Reader
