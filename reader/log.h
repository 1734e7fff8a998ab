// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The log as text, oldest line first or newest first: from the device's own folders, while syslogd
// and the daemon work in them, from a copied folder, or from a download.
//
//     Reader::Log log(report);
//     if (log.OpenDevice()) ...
//     Reader::Query query;
//     query.filter.severity = 3;
//     query.lines = 10;
//     const bool failed = log.Read(query, [](const Reader::Line& line) { ...; return true; });
//
// Open takes a snapshot: the files of the log in the order of their text. Lines that are written
// later are not part of it. Nothing below /perm is written, and nothing is written to the system
// log: what cannot be read is reported, once, to the function given at construction.
//
// Unless a declaration says otherwise, an operation returns true on failure and has reported why.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "reader/cursor.h"
#include "reader/expression.h"
#include "reader/line.h"
#include "reader/names.h"

namespace Reader {

// Gets the path or the name of a file and what is wrong with it. Called by the thread that reads.
using Report = std::function<void(const std::string& file, const std::string& reason)>;

// A file of the log.
struct Source {
    std::string_view name;  // bare; valid as long as the log, of a line during the call only
    Kind kind = Kind::Archive;
    bool isCompressed = false;
    std::uint32_t boot = 0;
    Anchor anchor{};  // where it stands, unless it is archived
};

struct Line {
    const Source* source = nullptr;
    const YearGuess* years = nullptr;  // of its file
    std::uint64_t number = 0;          // from 1 in its file
    std::string_view text;             // without the line feed; valid during the call only
    bool isMatch = true;               // false: context
    bool startsBlock = false;          // lines are left out before it, and context was asked for
    std::uint64_t fileHash = 0;        // of the first line of its file

    Fields GetFields() const { return ParseLine(text); }
    Cursor GetCursor() const;
};

struct BootRange {
    std::int64_t first = 0;
    std::int64_t last = 0;
    bool IsEmpty() const { return first > last; }
};

// What a line must pass, all of it.
struct Filter {
    std::optional<BootRange> boots;
    int lowestSeverity = 0;                 // as a number, 0 to 7: the most serious one that passes
    std::optional<int> severity;            // the least serious one that passes
    std::vector<std::string> tags;          // any of them
    std::optional<CivilTime> since, until;  // both included
    Pattern pattern;
    bool isInverted = false;  // only lines that `pattern` does not match

    // True if there is more to ask of a line than which file it is in.
    bool LooksAtFields() const { return severity || !tags.empty() || since || until; }
};

struct Progress {
    std::size_t files = 0;  // done
    std::size_t allFiles = 0;
    std::uint64_t textBytes = 0;
    std::uint64_t matches = 0;
    std::uint64_t bytes = 0;  // of the files that are done, on disk
};

struct Query {
    Filter filter;
    bool newestFirst = false;
    std::optional<std::uint64_t> lines;  // only so many matches, the last ones
    bool fromOldest = false;             // `lines` means the first ones instead
    std::uint64_t contextBefore = 0;     // lines that pass all of the filter but the pattern
    std::uint64_t contextAfter = 0;
    bool marksBlocks = false;                   // sets Line::startsBlock also without any context
    std::optional<Cursor> after, before;        // only lines behind, before that one
    std::optional<std::size_t> source;          // only that one's lines
    unsigned jobs = 1;                          // files that are decompressed at the same time
    const std::atomic<bool>* cancel = nullptr;  // set by a signal or another thread
    // Not the last line of the live log if it has no line feed: once it is completed, its cursor is
    // that of no line.
    bool leavesUnfinished = false;
    // Called about ten times a second.
    std::function<void(const Progress&)> progress;
};

// Gets one line. Returns false to stop.
using Take = std::function<bool(const Line&)>;

// A boot that has a log.
struct BootFiles {
    std::uint32_t boot = 0;
    std::int64_t offset = 0;  // 0 is the current boot
    bool isCurrent = false;
    std::vector<std::size_t> sources;  // in the order of the text
};

class Log {
public:
    explicit Log(Report report);
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;
    ~Log();

    // The device's own folders. What cannot be read is left out.
    [[nodiscard]] bool OpenDevice();

    // A copied folder, a folder with an unpacked download, an archive folder, or a tar file; "-" is
    // a tar file on standard input.
    [[nodiscard]] bool OpenCopy(const std::string& path);

    // The files in the order of their text, oldest first.
    std::size_t NumSources() const;
    Source GetSource(std::size_t index) const;
    // Size on disk; 0 if it is gone.
    std::uint64_t GetSize(std::size_t index) const;
    // Opens a file of a folder for pread; the caller closes the descriptor. A log that waits is the
    // one that Open found, whatever its name is now. Returns -1 on failure, with the reason in
    // `error`, which stays empty if the daemon has deleted the file.
    int OpenSource(std::size_t index, std::string& error) const;

    // The names of the device's waiting logs that could not be opened.
    const std::vector<std::string>& Unreadable() const;

    // The current boot's number, and the boots that have a log, oldest first.
    std::uint32_t CurrentBoot() const;
    std::vector<BootFiles> Boots() const;
    // The number of the boot with this offset: 0 is the current one, -1 the one before it that has
    // a log. None if there is no such boot.
    std::optional<std::uint32_t> BootAt(std::int64_t offset) const;

    // Delivers the lines that pass. Returns true if something could not be read; the rest has been
    // delivered. A position that was not found before `cancel` was set is not reported.
    [[nodiscard]] bool Read(const Query& query, const Take& take);

    // Counts the matches.
    [[nodiscard]] bool Count(const Query& query, std::uint64_t& count);

    // Delivers the last lines as Read does, then new ones as they arrive, across rotations and
    // restarts of syslogd, each once. `idle` is called when there is none at the moment, at least
    // once a second; it returns false to stop. The device's own folders only.
    [[nodiscard]] bool Follow(const Query& query, const Take& take,
                              const std::function<bool()>& idle);

    // The first and the last time stamp of a boot, in the order of the text.
    struct Times {
        std::optional<CivilTime> first, last;
    };
    [[nodiscard]] bool GetTimes(const BootFiles& boot, Times& times);

    // Reads one file whole and checks its checksums. Reports nothing.
    struct Check {
        std::uint64_t bytes = 0, textBytes = 0, lines = 0;
        std::string damage;         // empty: it is intact
        bool isUnreadable = false;  // it could not be opened or read
        bool isGone = false;        // it has been deleted since the log was opened
    };
    Check Verify(std::size_t index);

    // Returns false if the line is not in the log (any more), or was not found before `cancel` was
    // set.
    bool HasLine(const Cursor& cursor, const std::atomic<bool>* cancel = nullptr);

    // Before it is opened: archive files whose names have no boot number go, with their bare names,
    // to this function, and are no failure.
    void CollectMisnamed(Report collect) { misnamed = std::move(collect); }

private:
    struct Files;
    [[nodiscard]] bool FinishOpening();

    std::unique_ptr<Files> files;
    Report report;
    Report misnamed;
};

}  // namespace Reader
