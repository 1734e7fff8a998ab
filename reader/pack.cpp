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
#include <utility>

#include "reader/catalogue.h"
#include "reader/format.h"
#include "reader/xz_encoder.h"

namespace Reader {

namespace {

// The manifest: a head, the members, the names left out, and their number.
constexpr std::string_view ManifestName = "manifest.json";
constexpr std::string_view MembersEnd = "],\"left_out\":[";
constexpr std::string_view Separator = ",\n";  // between the entries of a list

constexpr std::size_t KeptAtMost = 1U << 20;  // of the compressed texts of waiting logs
constexpr std::size_t ChunkSize = 64UL << 10;
static_assert(sizeof(PackMember) <= 48);  // times the number of files

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

std::string MemberEntry(const PackMember& member, const std::string& name) {
    std::string text = "{\"name\":";
    AppendJsonString(text, name);
    text += ",\"boot\":" + std::to_string(member.boot);
    text += ",\"size\":" + std::to_string(member.size);
    text += ",\"sha256\":\"";
    return text + ToHex(member.digest) + "\"}";
}

std::string NameEntry(const std::string& name) {
    std::string text;
    AppendJsonString(text, name);
    return text;
}

std::string ManifestEnd(std::size_t leftOut) {
    return "],\"left_out_count\":" + std::to_string(leftOut) + "}\n";
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

// The files that are asked for. They come in the order of their boots, or in the reverse.
class Selection {
public:
    explicit Selection(const PackOptions& options) : options(options) {}

    [[nodiscard]] bool Takes(const Source& source) {
        const std::optional<BootRange>& range = options.boots;
        if (range && (source.boot < range->first || source.boot > range->last)) return false;
        if (source.kind != Kind::Archive) return options.which == PackOptions::Which::All;
        const bool isNewBoot = lastBoot != source.boot;
        if (files >= options.maxFiles || (isNewBoot && boots >= options.maxBoots)) return false;
        ++files;
        if (isNewBoot) ++boots;
        lastBoot = source.boot;
        return true;
    }

private:
    const PackOptions& options;
    std::uint64_t files = 0;
    std::uint64_t boots = 0;
    std::int64_t lastBoot = -1;  // none yet
};

}  // namespace

Packer::Packer(const Log& log, const PackOptions& options, PackOrigin origin, Report report)
    : log(log), options(options), origin(std::move(origin)), report(std::move(report)) {
    const std::size_t count = log.NumSources() + log.Unreadable().size();
    for (std::uint32_t i = 0; i < count; ++i) {
        namesSize += SizeInManifest(NameEntry(NameOf(i)));
        if (i >= log.NumSources()) leftOut.push_back(i);
    }
    Plan();
}

std::string Packer::NameOf(std::uint32_t index) const {
    if (index >= log.NumSources()) return log.Unreadable()[index - log.NumSources()] + ".xz";
    const Source source = log.GetSource(index);
    std::string name(source.name);
    if (source.kind != Kind::Archive) name += ".xz";
    return name;
}

bool Packer::IsWaiting(const PackMember& member) const {
    return log.GetSource(member.source).kind != Kind::Archive;
}

void Packer::Plan() {
    const auto count = static_cast<std::uint32_t>(log.NumSources());
    const bool isOldestFirst = options.which == PackOptions::Which::Oldest;
    Selection selection(options);
    bool isFull = false;
    for (std::uint32_t i = 0; i < count; ++i) {
        PackMember member{.source = isOldestFirst ? i : count - 1 - i};
        const Source source = log.GetSource(member.source);
        member.boot = source.boot;
        if (!isFull && selection.Takes(source)) {
            const std::string name = NameOf(member.source);
            const Fit fit = Measure(member, name);
            if (fit == Fit::Fits) {
                namesSize -= SizeInManifest(NameEntry(name));
                entriesSize += SizeInManifest(MemberEntry(member, name));
                membersSize += TarWriter::SizeInStream(name, member.size);
                members.push_back(member);
                continue;
            }
            isFull = fit == Fit::TooLarge;
        }
        leftOut.push_back(member.source);
    }
}

Packer::Fit Packer::Measure(PackMember& member, const std::string& name) {
    Descriptor file;
    struct stat status {};
    if (Open(member, file, status)) return Fit::Unreadable;
    if (IsWaiting(member)) return Compress(member, name, file.Get());
    member.size = static_cast<std::uint64_t>(status.st_size);
    return Exceeds(member, name) ? Fit::TooLarge : Fit::Fits;
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

// Of a waiting log, what the snapshot has of it.
Packer::Fit Packer::Compress(PackMember& member, const std::string& name, int file) {
    std::string kept;
    bool isKept = true;
    bool isCut = false;
    int error = CompressFile(file, log.GetSize(member.source), isCut, [&](std::string_view bytes) {
        member.size += bytes.size();
        isKept = isKept && keptSize + member.size <= KeptAtMost;
        if (isKept) {
            kept.append(bytes);
        } else {
            kept = {};
        }
        return Exceeds(member, name);
    });
    if (isCut && !Exceeds(member, name)) error = ENOMEM;  // the encoder's
    if (error != 0) {
        CannotRead(member, std::strerror(error));
        return Fit::Unreadable;
    }
    if (Exceeds(member, name)) return Fit::TooLarge;
    keptSize += kept.size();
    if (isKept) compressed.emplace(member.source, std::move(kept));
    return Fit::Fits;
}

// Whether the stream would exceed the limit if this member were its last one.
bool Packer::Exceeds(const PackMember& member, const std::string& name) const {
    const std::size_t count = log.NumSources() + log.Unreadable().size() - members.size() - 1;
    const auto exceedsWith = [&](std::uint64_t names) {
        const std::uint64_t manifest = ManifestHead().size() + entriesSize +
                                       MemberEntry(member, name).size() + 1 + MembersEnd.size() +
                                       names - std::min<std::uint64_t>(names, Separator.size()) +
                                       ManifestEnd(count).size();
        return membersSize + TarWriter::SizeInStream(name, member.size) +
                   TarWriter::SizeInStream(ManifestName, manifest) + TarWriter::TrailerSize >
               options.limit;
    };
    // Rarely does it depend on how many whole names go into their part of the manifest, which takes
    // long to count.
    const std::uint64_t names = namesSize - SizeInManifest(NameEntry(name));
    return exceedsWith(std::min(names, NamesBudget())) && exceedsWith(ListedNames(member.source));
}

// How much of the manifest the names would take if packing ended with this source.
std::uint64_t Packer::ListedNames(std::uint32_t last) const {
    const auto count = static_cast<std::uint32_t>(log.NumSources());
    const std::uint64_t budget = NamesBudget();
    std::uint64_t size = 0;
    const auto isFull = [&](std::uint32_t source) {
        const std::uint64_t more = SizeInManifest(NameEntry(NameOf(source)));
        if (size + more > budget) return true;
        size += more;
        return false;
    };
    if (std::any_of(leftOut.begin(), leftOut.end(), isFull)) return size;
    const bool isOldestFirst = options.which == PackOptions::Which::Oldest;
    for (std::uint32_t source = last; source != (isOldestFirst ? count - 1 : 0);) {
        source = isOldestFirst ? source + 1 : source - 1;
        if (isFull(source)) break;
    }
    return size;
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

// Returns true if the sink has failed.
bool Packer::WriteManifest(const ByteSink& sink) const {
    if (sink(ManifestHead())) return true;
    for (const PackMember& member : members) {
        std::string entry = MemberEntry(member, NameOf(member.source));
        entry += &member == &members.back() ? "\n" : Separator;
        if (sink(entry)) return true;
    }
    if (sink(MembersEnd)) return true;
    const std::uint64_t budget = NamesBudget();
    std::uint64_t size = 0;
    for (const std::uint32_t& source : leftOut) {
        std::string entry = NameEntry(NameOf(source));
        if ((size += SizeInManifest(entry)) > budget) break;
        if (&source != &leftOut.front()) entry.insert(0, Separator);
        if (sink(entry)) return true;
    }
    return sink(ManifestEnd(leftOut.size()));
}

std::uint64_t Packer::ManifestSize() const {
    std::uint64_t size = 0;
    (void)WriteManifest([&](std::string_view bytes) {  // This sink cannot fail.
        size += bytes.size();
        return false;
    });
    return size;
}

std::uint64_t Packer::StreamSize() const {
    return membersSize + TarWriter::SizeInStream(ManifestName, ManifestSize()) +
           TarWriter::TrailerSize;
}

bool Packer::Write(const ByteSink& sink, const TakeProgress& progress) {
    std::uint64_t written = 0;
    TarWriter tar([&](std::string_view bytes) {
        if (sink(bytes)) return true;
        progress(written += bytes.size());
        return false;
    });
    if (WriteMembers(tar)) return true;
    const TarEntry entry{.name = ManifestName, .size = ManifestSize(), .mtime = origin.time};
    return tar.Begin(entry) ||
           WriteManifest([&](std::string_view bytes) { return tar.Write(bytes); }) || tar.End() ||
           tar.Finish();
}

// Those that cannot be written are no members any more. Returns true if the sink has failed.
bool Packer::WriteMembers(TarWriter& tar) {
    auto next = members.begin();
    for (PackMember& member : members) {
        const Outcome outcome = WriteMember(tar, member);
        if (outcome == Outcome::SinkFailed) return true;
        if (outcome == Outcome::LeftOut) {
            membersSize -= TarWriter::SizeInStream(NameOf(member.source), member.size);
            leftOut.push_back(member.source);
        } else {
            compressed.erase(member.source);
            *next++ = member;
        }
    }
    members.erase(next, members.end());
    return false;
}

// Once the header is written, what cannot be read of the member is filled up with zeros.
Packer::Outcome Packer::WriteMember(TarWriter& tar, PackMember& member) {
    Descriptor file;
    struct stat status {};
    if (Open(member, file, status)) return Outcome::LeftOut;
    if (!IsWaiting(member) && static_cast<std::uint64_t>(status.st_size) != member.size) {
        CannotRead(member, "it has changed meanwhile");
        return Outcome::LeftOut;
    }
    const std::string name = NameOf(member.source);
    Sha256 digest;
    std::uint64_t rest = member.size;
    bool sinkFailed = tar.Begin({.name = name,
                                 .size = member.size,
                                 .mtime = status.st_mtime,
                                 .mode = status.st_mode & 0777U});
    const ByteSink content = [&](std::string_view bytes) {
        bytes = bytes.substr(0, rest);
        rest -= bytes.size();
        digest.Update(bytes);
        return sinkFailed = sinkFailed || tar.Write(bytes);
    };
    const int error = WriteContent(member, file.Get(), content);
    if (!sinkFailed && rest > 0) {
        CannotRead(member, error != 0 ? std::strerror(error) : "it has become shorter");
        static constexpr std::array<char, ChunkSize> Zeros{};
        while (!sinkFailed && rest > 0) (void)content({Zeros.data(), Zeros.size()});
    }
    member.digest = digest.Finish();
    return sinkFailed || tar.End() ? Outcome::SinkFailed : Outcome::Packed;
}

// Returns errno, or 0.
int Packer::WriteContent(PackMember& member, int file, const ByteSink& content) {
    if (!IsWaiting(member)) return ReadFile(file, member.size, content);
    if (const auto kept = compressed.find(member.source); kept != compressed.end()) {
        (void)content(kept->second);  // It takes note of a failure.
        return 0;
    }
    bool isCut = false;
    return CompressFile(file, log.GetSize(member.source), isCut, content);
}

void Packer::CannotRead(const PackMember& member, const char* reason) {
    hasUnreadable = true;
    report(std::string(log.GetSource(member.source).name), reason);
}

}  // namespace Reader
