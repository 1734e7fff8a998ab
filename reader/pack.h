// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Packs the log into a tar stream: the waiting logs compressed, the archive's files as they are,
// and a manifest as the last member. Nothing is written but the stream, and no program is run.
//
// Members follow each other without gaps: packing ends before the first one that would exceed the
// limit, and never skips it for a smaller one behind. The limit holds for the whole stream. A
// header comes before its member and a stream cannot be rewound, so all sizes are settled by a plan
// before the first byte: a waiting log is compressed then, and the result kept if it is small, else
// made again when it is written. There may be tens of thousands of members, so each is a few bytes,
// and the manifest is written entry by entry.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "reader/log.h"
#include "reader/sha256.h"
#include "reader/tar_writer.h"

struct stat;

namespace Reader {

class Descriptor;

struct PackOptions {
    static constexpr std::uint64_t NoLimit = std::numeric_limits<std::uint64_t>::max();
    static constexpr std::uint64_t DefaultLimit = 15U << 20;

    enum class Which { All, Newest, Oldest };  // the latter two take archive files only

    std::uint64_t limit = DefaultLimit;  // bytes of the stream
    Which which = Which::All;
    std::uint64_t maxFiles = NoLimit;  // of the archive
    std::uint64_t maxBoots = NoLimit;  // that the archive files are of
    std::optional<BootRange> boots;
};

// What the manifest says besides the members.
struct PackOrigin {
    std::string host;
    std::string version;
    std::uint32_t boot = 0;  // the current one
    std::int64_t time = 0;   // seconds since 1970
};

// The limit that a text asks for: bytes, with K, M or G (or k, m, g) for a power of 1024, or
// "none". Nothing if it is none of these.
std::optional<std::uint64_t> ParsePackLimit(std::string_view text);

// This machine's name, or "device" if it has none.
std::string HostName();

// What a file of the log is called: "HOST-what-20261121-174808.extension", of local time.
// Characters of the host name but letters, digits, '-' and '.' become '_'.
std::string DownloadName(std::string_view host, std::string_view what, std::int64_t time,
                         std::string_view extension);

struct PackMember {
    std::uint32_t source = 0;  // in the log
    std::uint32_t boot = 0;
    Sha256::Digest digest{};  // once it is written
    std::uint64_t size = 0;   // in the stream
};

class Packer {
public:
    // Gets the number of bytes written so far.
    using TakeProgress = std::function<void(std::uint64_t)>;

    // `log` is open, and outlives the packer. What cannot be read is reported, and the packing goes
    // on without it.
    Packer(const Log& log, const PackOptions& options, PackOrigin origin, Report report);

    // Known from the start. What is left out is named as sources of the log; behind its last one
    // follow the waiting logs that could not be opened.
    [[nodiscard]] const std::vector<PackMember>& Members() const { return members; }
    [[nodiscard]] const std::vector<std::uint32_t>& LeftOut() const { return leftOut; }
    [[nodiscard]] std::uint64_t StreamSize() const;

    // What a source is called in the stream.
    [[nodiscard]] std::string NameOf(std::uint32_t source) const;

    // True if a file could not be read.
    [[nodiscard]] bool HasUnreadable() const { return hasUnreadable; }

    // Writes the stream. Returns true if the sink has failed. A file that the daemon has deleted
    // meanwhile is left out, without a message.
    [[nodiscard]] bool Write(const ByteSink& sink, const TakeProgress& progress);

private:
    enum class Fit { Fits, TooLarge, Unreadable };
    enum class Outcome { Packed, LeftOut, SinkFailed };

    void Plan();
    [[nodiscard]] bool IsWaiting(const PackMember& member) const;
    [[nodiscard]] Fit Measure(PackMember& member, const std::string& name);
    [[nodiscard]] bool Open(const PackMember& member, Descriptor& file, struct stat& status);
    [[nodiscard]] Fit Compress(PackMember& member, const std::string& name, int file);
    [[nodiscard]] bool Exceeds(const PackMember& member, const std::string& name) const;
    [[nodiscard]] std::uint64_t ListedNames(std::uint32_t last) const;
    [[nodiscard]] std::uint64_t NamesBudget() const;

    [[nodiscard]] bool WriteMembers(TarWriter& tar);
    [[nodiscard]] Outcome WriteMember(TarWriter& tar, PackMember& member);
    [[nodiscard]] int WriteContent(PackMember& member, int file, const ByteSink& content);
    [[nodiscard]] std::string ManifestHead() const;
    [[nodiscard]] bool WriteManifest(const ByteSink& sink) const;
    [[nodiscard]] std::uint64_t ManifestSize() const;
    void CannotRead(const PackMember& member, const char* reason);

    const Log& log;
    const PackOptions options;
    const PackOrigin origin;
    const Report report;

    std::vector<PackMember> members;
    std::vector<std::uint32_t> leftOut;               // sources
    std::map<std::uint32_t, std::string> compressed;  // what is kept of waiting logs, by source
    std::size_t keptSize = 0;
    std::uint64_t namesSize = 0;    // in the manifest, of all sources that are no members
    std::uint64_t entriesSize = 0;  // in the manifest, of the members
    std::uint64_t membersSize = 0;  // in the stream
    bool hasUnreadable = false;
};

}  // namespace Reader
