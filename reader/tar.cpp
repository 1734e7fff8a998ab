// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Reading a tar file where it is: the members' names and places. Understood are the forms in which
// tar programs write downloads and copies: ustar, old GNU with long names and large numbers, and
// pax. What is no file of the log is passed over. A sparse member, whose text is not in one piece,
// is skipped as what is no regular file.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <map>
#include <new>
#include <optional>
#include <utility>

#include "reader/catalogue.h"
#include "reader/tar_format.h"

namespace Reader {

namespace {

constexpr std::uint64_t MaxExtension = 1UL << 20;  // a long name, a pax header
constexpr std::size_t MaxName = 250;               // of a file system

template <std::size_t Size>
std::string_view Text(const char (&field)[Size]) {
    return {field, strnlen(field, Size)};
}

bool HasChecksum(const TarHeader& header) {
    std::uint64_t expected = 0;
    return !ReadTarNumber(header.checksum, expected) && SumOf(header) == expected;
}

// A long path of ustar is in two fields; old GNU tar has other things in the second one.
std::string PathOf(const TarHeader& header) {
    std::string path(Text(header.name));
    const std::string_view prefix = Text(header.prefix);
    if (!prefix.empty() && Text(header.magic) == "ustar") path.insert(0, "/").insert(0, prefix);
    return path;
}

// In a copy of the whole folder, names that the log's own files have may stand below foreign/.
bool IsForeign(std::string_view path) {
    constexpr std::string_view Folder = "foreign";
    path = path.substr(0, path.size() - BareName(path).size());
    return path.ends_with('/') && BareName(path.substr(0, path.size() - 1)) == Folder;
}

bool IsZero(const TarHeader& header) {
    const auto* const bytes = reinterpret_cast<const char*>(&header);
    return std::all_of(bytes, bytes + TarBlockSize, [](char c) { return c == 0; });
}

// A file that cannot be sought in: whatever of it is asked for is kept.
class Stream {
public:
    explicit Stream(int fd) : fd(fd) {}

    // Appends `size` bytes to the memory; returns how many there were.
    std::uint64_t Append(std::uint64_t size) {
        std::uint64_t done = 0;
        while (done < size) {
            if (used == capacity) Grow();
            const std::uint64_t room = std::min<std::uint64_t>(size - done, capacity - used);
            const ssize_t count = read(fd, memory + used, room);
            if (count < 0 && errno == EINTR) continue;
            if (count < 0) error = errno;
            if (count <= 0) break;
            used += static_cast<std::size_t>(count);
            done += static_cast<std::size_t>(count);
        }
        return done;
    }
    void Drop(std::uint64_t size) { used -= static_cast<std::size_t>(size); }

    std::size_t Used() const { return used; }
    const char* At(std::uint64_t offset) const { return memory + offset; }
    int Error() const { return error; }
    std::unique_ptr<char[], void (*)(void*)> Release() {
        return {std::exchange(memory, nullptr), &std::free};
    }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;
    ~Stream() { std::free(memory); }

private:
    // mremap makes this cheap: the pages move, not the bytes.
    void Grow() {
        constexpr std::size_t Step = 1UL << 20;
        const std::size_t larger = std::max(Step, capacity + capacity / 4);
        void* const moved = std::realloc(memory, larger);
        if (moved == nullptr) throw std::bad_alloc();
        memory = static_cast<char*>(moved);
        capacity = larger;
    }

    int fd;
    char* memory = nullptr;
    std::size_t used = 0;
    std::size_t capacity = 0;
    int error = 0;
};

struct Member {
    Name name;
    Place place;
    std::int64_t mtime = 0;
    bool isRegular = true;
};

class TarReader {
public:
    TarReader(const std::string& path, Descriptor file, Catalogue& catalogue)
        : path(path), file(std::move(file)), catalogue(catalogue) {}
    void Read();

private:
    bool ReadHeader(TarHeader& header);
    void ReadMembers();
    bool ReadExtension(const TarHeader& header, std::uint64_t size);
    bool PassSparseMap(const TarHeader& header);
    void ForgetExtensions();
    bool TakeMember(const TarHeader& header, std::uint64_t size);
    std::uint64_t ReadData(std::uint64_t size, bool isKept, Place& place);
    std::string ReadText(std::uint64_t size);
    void ReadPax(std::string_view text);
    void Fail(const std::string& reason) { catalogue.problems.push_back({path, reason}); }
    void AddToCatalogue();

    const std::string& path;
    Descriptor file;
    Catalogue& catalogue;

    bool isSeekable = false;
    std::uint64_t position = 0;
    std::uint64_t fileSize = 0;
    std::unique_ptr<Stream> stream;

    // Of the next member, from headers before its own.
    std::string longName;
    std::optional<std::uint64_t> paxSize;
    std::optional<std::int64_t> paxTime;
    std::string sparseName;  // pax has a made-up one besides
    bool isSparse = false;

    std::map<std::string, Member> members;  // of two with the same name, the later one counts
};

void TarReader::Read() {
    struct stat status {};
    isSeekable = fstat(file.Get(), &status) == 0 && S_ISREG(status.st_mode);
    if (isSeekable) {
        const off_t at = lseek(file.Get(), 0, SEEK_CUR);
        position = static_cast<std::uint64_t>(std::max<off_t>(at, 0));
        fileSize = static_cast<std::uint64_t>(status.st_size);
    } else {
        stream = std::make_unique<Stream>(file.Get());
    }
    ReadMembers();
    AddToCatalogue();
}

// Reads the next block. Returns false at the end of the file.
bool TarReader::ReadHeader(TarHeader& header) {
    std::uint64_t count = 0;
    if (isSeekable) {
        const ssize_t done = pread(file.Get(), &header, TarBlockSize, static_cast<off_t>(position));
        count = done < 0 ? 0 : static_cast<std::uint64_t>(done);
        position += count;
    } else {
        count = stream->Append(TarBlockSize);
        if (count == TarBlockSize) {
            std::memcpy(&header, stream->At(stream->Used() - TarBlockSize), TarBlockSize);
        }
        stream->Drop(count);
        if (stream->Error() != 0) Fail(strerror(stream->Error()));
    }
    return count == TarBlockSize;
}

void TarReader::ReadMembers() {
    for (bool isFirst = true;; isFirst = false) {
        TarHeader header;
        if (!ReadHeader(header)) {
            Fail(isFirst ? "not a tar file" : "the tar file is truncated");
            return;
        }
        if (!isFirst && IsZero(header)) return;
        std::uint64_t size = 0;
        if (!HasChecksum(header) || ReadTarNumber(header.size, size)) {
            if (isFirst && IsZero(header)) return;  // an empty one
            Fail(isFirst ? "not a tar file" : "the tar file is damaged");
            return;
        }
        const bool isExtension = header.type == 'L' || header.type == 'x';
        if (isExtension ? ReadExtension(header, size) : TakeMember(header, size)) {
            Fail("the tar file is truncated");
            return;
        }
    }
}

// Passes over the bytes of a member and its padding. Returns how many bytes there were.
std::uint64_t TarReader::ReadData(std::uint64_t size, bool isKept, Place& place) {
    const std::uint64_t padding = TarPadding(size);
    if (isSeekable) {
        const std::uint64_t left = fileSize > position ? fileSize - position : 0;
        const std::uint64_t there = std::min(size, left);
        place.fd = file.Get();
        place.offset = position;
        place.size = there;
        position += size + padding;
        return there;
    }
    if (isKept) {
        place.offset = stream->Used();
        place.size = stream->Append(size);
        stream->Drop(stream->Append(padding));
        return place.size;
    }
    constexpr std::uint64_t Piece = 64UL << 10;
    std::uint64_t done = 0;
    while (done < size + padding) {
        const std::uint64_t wanted = std::min(Piece, size + padding - done);
        const std::uint64_t count = stream->Append(wanted);
        stream->Drop(count);
        done += count;
        if (count < wanted) break;
    }
    return std::min(done, size);
}

std::string TarReader::ReadText(std::uint64_t size) {
    Place place;
    const std::uint64_t there = ReadData(size, true, place);
    std::string text(static_cast<std::size_t>(there), '\0');
    if (isSeekable) {
        const ssize_t count =
            pread(file.Get(), text.data(), text.size(), static_cast<off_t>(place.offset));
        text.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
    } else {
        std::memcpy(text.data(), stream->At(place.offset), text.size());
        stream->Drop(there);
    }
    return text;
}

// Returns true if the file ends before.
bool TarReader::ReadExtension(const TarHeader& header, std::uint64_t size) {
    if (size > MaxExtension) {
        Place place;
        return ReadData(size, false, place) < size;
    }
    const std::string text = ReadText(size);
    if (text.size() < size) return true;
    if (header.type == 'L') {
        longName = text.substr(0, text.find('\0'));
    } else {
        ReadPax(text);
    }
    return false;
}

// Records of the form "LENGTH KEY=VALUE\n".
void TarReader::ReadPax(std::string_view text) {
    while (!text.empty()) {
        char* end = nullptr;
        const std::string digits(text.substr(0, 20));
        const unsigned long length = std::strtoul(digits.c_str(), &end, 10);
        const auto keyAt = static_cast<std::size_t>(end - digits.c_str()) + 1;
        if (length > text.size() || length <= keyAt || *end != ' ') return;
        const std::string_view record = text.substr(keyAt, length - keyAt - 1);
        text.remove_prefix(length);
        const std::size_t equals = record.find('=');
        if (equals == std::string_view::npos) continue;
        const std::string value(record.substr(equals + 1));
        if (record.starts_with("path=")) longName = value;
        if (record.starts_with("size=")) paxSize = std::strtoull(value.c_str(), nullptr, 10);
        if (record.starts_with("mtime=")) paxTime = std::strtoll(value.c_str(), nullptr, 10);
        if (record.starts_with("GNU.sparse.name=")) sparseName = value;
        isSparse =
            isSparse || record.starts_with("GNU.sparse.") || record.starts_with("SCHILY.realsize=");
    }
}

// Old GNU tar continues a long map of a sparse member between header and content. Another block
// follows while byte 482 of the header, then byte 504 of each block, is not 0. Returns true if the
// file ends before.
bool TarReader::PassSparseMap(const TarHeader& header) {
    if (header.type != 'S' || Text(header.magic) != "ustar ") return false;
    const auto byteOf = [](const TarHeader& block, std::size_t at) {
        return reinterpret_cast<const char*>(&block)[at];
    };
    TarHeader block;
    for (char more = byteOf(header, 482); more != 0; more = byteOf(block, 504)) {
        if (!ReadHeader(block)) return true;
    }
    return false;
}

void TarReader::ForgetExtensions() {
    longName.clear();
    paxSize.reset();
    paxTime.reset();
    sparseName.clear();
    isSparse = false;
}

// Returns true if the file ends before; what there is of the member is taken.
bool TarReader::TakeMember(const TarHeader& header, std::uint64_t size) {
    if (PassSparseMap(header)) return true;
    std::string place = !sparseName.empty() ? sparseName
                        : !longName.empty() ? longName
                                            : PathOf(header);
    while (place.ends_with('/')) place.pop_back();  // of a folder
    std::string name(BareName(place));
    size = paxSize.value_or(size);
    std::uint64_t time = 0;
    (void)ReadTarNumber(header.mtime, time);  // Without one, it counts as 0.
    Member member;
    member.mtime = paxTime.value_or(static_cast<std::int64_t>(time));

    constexpr std::uint64_t MaxSize = 1UL << 60;
    size = std::min(size, MaxSize);
    const bool isFile = header.type == '0' || header.type == '\0' || header.type == '7';
    member.isRegular = isFile && !isSparse;
    ForgetExtensions();
    const bool hasData = isFile || header.type == 'g' || header.type == 'K' || header.type == 'S' ||
                         header.type > '7';
    if (!hasData) size = 0;
    member.name = ParseName(name);
    const bool isOurs = member.name.form != Name::Form::Foreign && name.size() <= MaxName &&
                        !IsForeign(place) && header.type != 'g' && header.type != 'K';
    const bool isKept = isOurs && member.isRegular && member.name.form == Name::Form::Log;
    const std::uint64_t there = ReadData(size, isKept, member.place);
    if (isOurs) members.insert_or_assign(std::move(name), member);
    return there < size;
}

void TarReader::AddToCatalogue() {
    if (stream) {
        catalogue.memory = stream->Release();
    } else {
        catalogue.held.push_back(std::move(file));
    }
    for (auto& [name, member] : members) {
        // Parsed again: the parts point into the name.
        const Name parsed = ParseName(name);
        if (!member.isRegular) {
            catalogue.problems.push_back({name, "not a regular file, skipped"});
            continue;
        }
        if (parsed.form == Name::Form::Misnamed) {
            catalogue.problems.push_back({name, "no boot number in its name, skipped", true});
            continue;
        }
        const bool isHalfMade = parsed.kind != Kind::Archive && parsed.isCompressed &&
                                members.contains(name.substr(0, name.size() - 3));
        if (isHalfMade) continue;
        if (catalogue.memory) member.place.memory = catalogue.memory.get();
        catalogue.AddPlaced(name, parsed, {member.place, member.mtime});
    }
    catalogue.Finish(0);
}

}  // namespace

void OpenTar(const std::string& path, Descriptor file, Catalogue& catalogue) {
    TarReader(path, std::move(file), catalogue).Read();
}

}  // namespace Reader
