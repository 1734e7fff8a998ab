// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Packs the log into a tar stream: the waiting logs compressed, the archive's files as they are,
// and a manifest as the last member. Nothing is written but the stream, and no program is run.
//
// Members follow each other without gaps: packing ends before the first one that would exceed the
// limit, and never skips it for a smaller one behind. The limit holds for the whole stream. A
// header comes before its member and a stream cannot be rewound, so all sizes are settled by a plan
// before the first byte: a waiting log is compressed then, and the result kept if it is small, else
// made again when it is written.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "reader/log.h"
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

struct PackMember {
    std::size_t source = 0;  // in the log
    std::string name;        // in the stream
    std::uint32_t boot = 0;
    bool isWaiting = false;      // not archived yet
    std::uint64_t fileSize = 0;  // how much of the file is taken
    std::uint64_t size = 0;      // in the stream
    std::int64_t mtime = 0;
    unsigned mode = 0600;
    std::string compressed;  // what is kept of a waiting log: all or nothing
    std::string sha256;      // once it is written
};

class Packer {
public:
    // Gets the number of bytes written so far.
    using TakeProgress = std::function<void(std::uint64_t)>;

    // `log` is open, and outlives the packer. What cannot be read is reported, and the packing goes
    // on without it.
    Packer(const Log& log, const PackOptions& options, PackOrigin origin, Report report);

    // Known from the start.
    [[nodiscard]] const std::vector<PackMember>& Members() const { return members; }
    [[nodiscard]] const std::vector<std::string>& LeftOut() const { return leftOut; }
    [[nodiscard]] std::uint64_t StreamSize() const;

    // True if a file could not be read.
    [[nodiscard]] bool HasUnreadable() const { return hasUnreadable; }

    // Writes the stream. Returns true if the sink has failed. A file that the daemon has deleted
    // meanwhile is left out, without a message.
    [[nodiscard]] bool Write(const ByteSink& sink, const TakeProgress& progress);

private:
    enum class Fit { Fits, TooLarge, Unreadable };
    enum class Outcome { Packed, LeftOut, SinkFailed };

    void Plan();
    [[nodiscard]] PackMember MemberOf(std::size_t source) const;
    [[nodiscard]] Fit Measure(PackMember& member);
    [[nodiscard]] bool Open(const PackMember& member, Descriptor& file, struct stat& status);
    [[nodiscard]] Fit Compress(PackMember& member, int file);
    [[nodiscard]] bool Exceeds(const PackMember& member) const;
    [[nodiscard]] std::uint64_t NamesBudget() const;

    [[nodiscard]] Outcome WriteMember(TarWriter& tar, PackMember& member);
    [[nodiscard]] Outcome WriteContent(TarWriter& tar, PackMember& member, int file);
    [[nodiscard]] std::string ManifestHead() const;
    [[nodiscard]] std::string Manifest() const;
    void CannotRead(const PackMember& member, const char* reason);

    const Log& log;
    const PackOptions options;
    const PackOrigin origin;
    const Report report;

    std::vector<PackMember> members;
    std::vector<std::string> leftOut;
    std::uint64_t namesSize = 0;    // in the manifest, of all sources that are no members
    std::uint64_t entriesSize = 0;  // in the manifest, of the members
    std::uint64_t membersSize = 0;  // in the stream
    bool hasUnreadable = false;
};

}  // namespace Reader
