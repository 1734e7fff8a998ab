// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "reader/pack.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <set>
#include <utility>

#include "reader/catalogue.h"
#include "reader/format.h"
#include "reader/sha256.h"
#include "reader/xz_encoder.h"

namespace Reader {

namespace {

// The manifest: a head, the members, the names left out, and their number.
constexpr std::string_view ManifestName = "manifest.json";
constexpr std::string_view MembersEnd = "],\"left_out\":[";
constexpr std::size_t MaxTailSize = 64;
constexpr std::string_view Separator = ",\n";  // between the entries of a list

constexpr std::size_t KeptAtMost = 1U << 20;  // of the compressed text of a waiting log
constexpr std::size_t ChunkSize = 64UL << 10;
constexpr std::size_t DigestSize = 64;

// In RFC 3339's form, with the offset of local time: "2026-11-21T17:48:08+01:00".
std::string Rfc3339(std::int64_t time) {
    const std::time_t seconds = time;
    std::tm local{};
    localtime_r(&seconds, &local);
    std::array<char, 40> buffer{};
    (void)std::strftime(buffer.data(), buffer.size(), "%Y-%m-%dT%H:%M:%S%z", &local);
    std::string text = buffer.data();
    return text.insert(text.size() - 2, ":");
}

std::string MemberEntry(const PackMember& member) {
    std::string text = "{\"name\":";
    AppendJsonString(text, member.name);
    text += ",\"boot\":" + std::to_string(member.boot);
    text += ",\"size\":" + std::to_string(member.size);
    text += ",\"sha256\":\"";
    text += member.sha256.empty() ? std::string(DigestSize, '0') : member.sha256;
    return text + "\"}";
}

std::string NameEntry(const std::string& name) {
    std::string text;
    AppendJsonString(text, name);
    return text;
}

std::uint64_t SizeInManifest(const std::string& entry) {
    return entry.size() + Separator.size();
}

// Hands `size` bytes of the file, from its start, to `take`, which returns true to end that.
// Returns errno, or 0; a file that has fewer bytes is no error.
int ReadFile(int file, std::uint64_t size, const ByteSink& take) {
    std::array<char, ChunkSize> chunk;
    for (std::uint64_t done = 0; done < size;) {
        const auto wanted =
            static_cast<std::size_t>(std::min<std::uint64_t>(size - done, ChunkSize));
        const ssize_t count = pread(file, chunk.data(), wanted, static_cast<off_t>(done));
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return errno;
        if (count == 0) return 0;
        done += static_cast<std::uint64_t>(count);
        if (take({chunk.data(), static_cast<std::size_t>(count)})) return 0;
    }
    return 0;
}

// Compresses the file's first `size` bytes into `sink`. Returns errno, or 0; `isCut` is true if the
// sink or the encoder ended it.
int CompressFile(int file, std::uint64_t size, bool& isCut, const ByteSink& sink) {
    XzEncoder encoder(sink);
    isCut = false;
    const int error =
        ReadFile(file, size, [&](std::string_view text) { return isCut = encoder.Write(text); });
    if (error == 0 && !isCut) isCut = encoder.Finish();
    return error;
}

// The files that are asked for, and their order.
class Selection {
public:
    explicit Selection(const PackOptions& options) : options(options) {}

    [[nodiscard]] bool Takes(const PackMember& member) {
        const std::optional<BootRange>& range = options.boots;
        if (range && (member.boot < range->first || member.boot > range->last)) return false;
        if (member.isWaiting) return options.which == PackOptions::Which::All;
        const bool isNewBoot = !boots.contains(member.boot);
        if (files >= options.maxFiles || (isNewBoot && boots.size() >= options.maxBoots)) {
            return false;
        }
        ++files;
        boots.insert(member.boot);
        return true;
    }

private:
    const PackOptions& options;
    std::uint64_t files = 0;
    std::set<std::uint32_t> boots;
};

}  // namespace

Packer::Packer(const Log& log, const PackOptions& options, PackOrigin origin, Report report)
    : log(log), options(options), origin(std::move(origin)), report(std::move(report)) {
    for (std::size_t i = 0; i < log.NumSources(); ++i) {
        namesSize += SizeInManifest(NameEntry(MemberOf(i).name));
    }
    Plan();
}

PackMember Packer::MemberOf(std::size_t index) const {
    const Source source = log.GetSource(index);
    PackMember member;
    member.source = index;
    member.name = source.name;
    member.boot = source.boot;
    member.isWaiting = source.kind != Kind::Archive;
    if (member.isWaiting) member.name += ".xz";
    return member;
}

void Packer::Plan() {
    const std::size_t count = log.NumSources();
    const bool isOldestFirst = options.which == PackOptions::Which::Oldest;
    Selection selection(options);
    bool isFull = false;
    for (std::size_t i = 0; i < count; ++i) {
        PackMember member = MemberOf(isOldestFirst ? i : count - 1 - i);
        if (!isFull && selection.Takes(member)) {
            const Fit fit = Measure(member);
            if (fit == Fit::Fits) {
                namesSize -= SizeInManifest(NameEntry(member.name));
                entriesSize += SizeInManifest(MemberEntry(member));
                membersSize += TarWriter::SizeInStream(member.name, member.size);
                members.push_back(std::move(member));
                continue;
            }
            isFull = fit == Fit::TooLarge;
        }
        leftOut.push_back(std::move(member.name));
    }
}

Packer::Fit Packer::Measure(PackMember& member) {
    Descriptor file;
    struct stat status {};
    if (Open(member, file, status)) return Fit::Unreadable;
    // Of a waiting log, what the snapshot has of it.
    member.fileSize =
        member.isWaiting ? log.GetSize(member.source) : static_cast<std::uint64_t>(status.st_size);
    member.mtime = status.st_mtime;
    member.mode = status.st_mode & 0777U;
    if (member.isWaiting) return Compress(member, file.Get());
    member.size = member.fileSize;
    return Exceeds(member) ? Fit::TooLarge : Fit::Fits;
}

// Returns true if the file cannot be opened, which has been reported unless the daemon has deleted
// it.
bool Packer::Open(const PackMember& member, Descriptor& file, struct stat& status) {
    std::string error;
    file = Descriptor(log.OpenSource(member.source, error));
    if (file.IsOpen() && fstat(file.Get(), &status) == 0) return false;
    if (file.IsOpen()) error = std::strerror(errno);
    if (!error.empty()) CannotRead(member, error.c_str());
    return true;
}

Packer::Fit Packer::Compress(PackMember& member, int file) {
    bool isKept = true;
    bool isCut = false;
    int error = CompressFile(file, member.fileSize, isCut, [&](std::string_view bytes) {
        member.size += bytes.size();
        isKept = isKept && member.size <= KeptAtMost;
        if (isKept) {
            member.compressed.append(bytes);
        } else {
            member.compressed = {};
        }
        return Exceeds(member);
    });
    if (isCut && !Exceeds(member)) error = ENOMEM;  // the encoder's
    if (error != 0) {
        CannotRead(member, std::strerror(error));
        return Fit::Unreadable;
    }
    return Exceeds(member) ? Fit::TooLarge : Fit::Fits;
}

// Counts the manifest with a full list of names, as far as the budget goes: rather a few bytes too
// many than one member that makes the stream too large.
bool Packer::Exceeds(const PackMember& member) const {
    const std::uint64_t names =
        std::min(namesSize - SizeInManifest(NameEntry(member.name)), NamesBudget());
    const std::uint64_t manifest = ManifestHead().size() + entriesSize +
                                   SizeInManifest(MemberEntry(member)) + MembersEnd.size() + names +
                                   MaxTailSize;
    return membersSize + TarWriter::SizeInStream(member.name, member.size) +
               TarWriter::SizeInStream(ManifestName, manifest) + TarWriter::TrailerSize >
           options.limit;
}

// How much of the manifest the list of names may take: a small limit leaves room for members beside
// the names of a large archive.
std::uint64_t Packer::NamesBudget() const {
    return options.limit == PackOptions::NoLimit ? options.limit : options.limit / 4;
}

std::string Packer::ManifestHead() const {
    std::string text = "{\"host\":";
    AppendJsonString(text, origin.host);
    text += ",\"time\":\"" + Rfc3339(origin.time) + "\",\"version\":";
    AppendJsonString(text, origin.version);
    return text + ",\"boot\":" + std::to_string(origin.boot) + ",\"members\":[\n";
}

std::string Packer::Manifest() const {
    std::string text = ManifestHead();
    for (const PackMember& member : members) {
        text += MemberEntry(member);
        text += &member == &members.back() ? "\n" : Separator;
    }
    text += MembersEnd;
    const std::uint64_t budget = NamesBudget();
    std::uint64_t size = 0;
    for (const std::string& name : leftOut) {
        const std::string entry = NameEntry(name);
        if ((size += SizeInManifest(entry)) > budget) break;
        if (&name != &leftOut.front()) text += Separator;
        text += entry;
    }
    return text + "],\"left_out_count\":" + std::to_string(leftOut.size()) + "}\n";
}

std::uint64_t Packer::StreamSize() const {
    return membersSize + TarWriter::SizeInStream(ManifestName, Manifest().size()) +
           TarWriter::TrailerSize;
}

bool Packer::Write(const ByteSink& sink, const TakeProgress& progress) {
    std::uint64_t written = 0;
    TarWriter tar([&](std::string_view bytes) {
        if (sink(bytes)) return true;
        progress(written += bytes.size());
        return false;
    });
    std::vector<PackMember> planned;
    planned.swap(members);
    for (PackMember& member : planned) {
        const Outcome outcome = WriteMember(tar, member);
        if (outcome == Outcome::SinkFailed) return true;
        if (outcome == Outcome::LeftOut) {
            membersSize -= TarWriter::SizeInStream(member.name, member.size);
            leftOut.push_back(std::move(member.name));
        } else {
            member.compressed = {};
            members.push_back(std::move(member));
        }
    }
    const std::string manifest = Manifest();
    const TarEntry entry{.name = ManifestName, .size = manifest.size(), .mtime = origin.time};
    return tar.Begin(entry) || tar.Write(manifest) || tar.End() || tar.Finish();
}

Packer::Outcome Packer::WriteMember(TarWriter& tar, PackMember& member) {
    Descriptor file;
    struct stat status {};
    if (Open(member, file, status)) return Outcome::LeftOut;
    if (!member.isWaiting && static_cast<std::uint64_t>(status.st_size) != member.size) {
        CannotRead(member, "it has changed meanwhile");
        return Outcome::LeftOut;
    }
    return WriteContent(tar, member, file.Get());
}

// The header is written by then: what cannot be read of the member is filled up with zeros.
Packer::Outcome Packer::WriteContent(TarWriter& tar, PackMember& member, int file) {
    const TarEntry entry{
        .name = member.name, .size = member.size, .mtime = member.mtime, .mode = member.mode};
    Sha256 digest;
    std::uint64_t rest = member.size;
    bool sinkFailed = tar.Begin(entry);
    const ByteSink content = [&](std::string_view bytes) {
        bytes = bytes.substr(0, rest);
        rest -= bytes.size();
        digest.Update(bytes);
        return sinkFailed = sinkFailed || tar.Write(bytes);
    };
    int error = 0;
    bool isCut = false;
    if (!member.isWaiting) {
        error = ReadFile(file, member.size, content);
    } else if (!member.compressed.empty()) {
        (void)content(member.compressed);  // a failure is noted
    } else {
        error = CompressFile(file, member.fileSize, isCut, content);
    }
    if (!sinkFailed && rest > 0) {
        CannotRead(member, error != 0 ? std::strerror(error) : "it has become shorter");
        static constexpr std::array<char, ChunkSize> Zeros{};
        while (!sinkFailed && rest > 0) (void)content({Zeros.data(), Zeros.size()});
    }
    member.sha256 = digest.HexDigest();
    return sinkFailed || tar.End() ? Outcome::SinkFailed : Outcome::Packed;
}

void Packer::CannotRead(const PackMember& member, const char* reason) {
    hasUnreadable = true;
    report(std::string(log.GetSource(member.source).name), reason);
}

}  // namespace Reader
