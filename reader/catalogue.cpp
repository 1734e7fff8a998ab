// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "reader/catalogue.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <tuple>

#include "reader/folder_walk.h"
#include "reader/hash.h"

namespace Reader {

namespace {

constexpr std::size_t ChunkSize = 64UL << 10;

bool IsEarlier(const Entry& a, const Entry& b) {
    if (a.kind != b.kind) return a.kind < b.kind;
    if (a.kind == Kind::Archive) {
        if (a.boot != b.boot) return a.boot < b.boot;
        return std::tuple(a.Rest(), a.Name()) < std::tuple(b.Rest(), b.Name());
    }
    if (a.kind == Kind::Rotation) {
        return IsOlderRotation(ParseName(a.Name()).rest, ParseName(b.Name()).rest);
    }
    return false;
}

}  // namespace

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    if (this != &other) {
        if (fd >= 0) (void)close(fd);  // Only read from.
        fd = other.Release();
    }
    return *this;
}

Descriptor::~Descriptor() {
    if (fd >= 0) (void)close(fd);  // Only read from.
}

std::string_view Arena::Add(std::string_view text) {
    if (text.size() > size - used) {
        size = std::max(ChunkSize, text.size());
        chunks.push_back(std::make_unique_for_overwrite<char[]>(size));
        used = 0;
    }
    char* const place = chunks.back().get() + used;
    std::memcpy(place, text.data(), text.size());
    used += text.size();
    return {place, text.size()};
}

void Catalogue::Add(std::string_view name, const Name& parsed, std::uint64_t inode) {
    Entry entry;
    // With a zero byte, for openat.
    entry.name = names.Add(std::string(name) + '\0').data();
    entry.nameLength = static_cast<std::uint8_t>(name.size());
    entry.restOffset = static_cast<std::uint8_t>(
        parsed.kind == Kind::Archive ? parsed.rest.data() - name.data() : 0);
    entry.id = inode;
    entry.boot = parsed.boot;
    entry.kind = parsed.kind;
    entry.isCompressed = parsed.isCompressed;
    entries.push_back(entry);
}

void Catalogue::AddPlaced(std::string_view name, const Name& parsed, const Placed& file) {
    Add(name, parsed, placed.size());
    entries.back().isPlaced = true;
    placed.push_back(file);
}

void Catalogue::Clear() {
    entries.clear();
    placed.clear();
    problems.clear();
    unreadable.clear();
    held.clear();
    names = {};
}

void Catalogue::Finish(std::uint32_t current) {
    std::uint32_t highest = 0;
    for (const Entry& entry : entries) {
        if (entry.kind == Kind::Archive) highest = std::max(highest, entry.boot);
    }
    currentBoot = current != 0 ? current : highest + 1;
    for (Entry& entry : entries) {
        if (entry.kind != Kind::Archive) entry.boot = currentBoot;
    }
    std::sort(entries.begin(), entries.end(), IsEarlier);
    Anchor anchor;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        if (entries[i].kind == Kind::Archive) continue;
        if (anchor.distance == 0 && i != 0) {
            anchor = {ShortHash(entries[i - 1].Name()), ShortHash(entries[i - 1].Rest()), 0};
        }
        ++anchor.distance;
        entries[i].anchor = anchor;
    }
}

bool Inspect(OpenFile& file, std::string& error) {
    struct stat status {};
    if (fstat(file.owned.Get(), &status) != 0) {
        error = strerror(errno);
        return true;
    }
    if (!S_ISREG(status.st_mode)) {
        error = "not a regular file";
        return true;
    }
    file.place = {};
    file.place.fd = file.owned.Get();
    file.mtime = status.st_mtim.tv_sec;
    file.size = static_cast<std::uint64_t>(status.st_size);
    return false;
}

OpenResult OpenRegular(int folder, const char* name, OpenFile& file, std::string& error) {
    file.owned =
        Descriptor(openat(folder, name, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW));
    if (!file.owned.IsOpen()) {
        if (errno == ENOENT) return OpenResult::Gone;
        error = errno == ELOOP ? "not a regular file" : strerror(errno);
        return OpenResult::Failed;
    }
    return Inspect(file, error) ? OpenResult::Failed : OpenResult::Opened;
}

OpenResult Catalogue::Open(std::size_t index, OpenFile& file, std::string& error) const {
    const Entry& entry = entries[index];
    if (entry.isPlaced) {
        const Placed& source = placed[entry.id];
        file.owned = Descriptor();
        file.place = source.place;
        file.mtime = source.mtime;
        file.size = source.place.size;
        return OpenResult::Opened;
    }
    const OpenResult result = OpenRegular(folder.Get(), entry.name, file, error);
    return result == OpenResult::Gone ? OpenRenumbered(entry, file, error) : result;
}

// The daemon gives the boots lower numbers at its start, when 999 are in use: the file is the same,
// and so is its name behind the boot number.
OpenResult Catalogue::OpenRenumbered(const Entry& entry, OpenFile& file, std::string& error) const {
    FolderWalk walk(folder.Get());
    while (const dirent* const found = walk.Next()) {
        if (found->d_ino != entry.id) continue;
        if (ParseArchiveName(found->d_name).rest != entry.Rest()) continue;
        return OpenRegular(folder.Get(), found->d_name, file, error);
    }
    if (walk.Error() == 0) return OpenResult::Gone;
    error = strerror(walk.Error());
    return OpenResult::Failed;
}

}  // namespace Reader
