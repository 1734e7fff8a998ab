// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// One file's lines through the filter, a block at a time. This is the part that several threads do
// at once, each with a scanner of its own.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "reader/catalogue.h"
#include "reader/log.h"
#include "reader/text.h"

namespace Reader {

// What lines need to know of their file.
struct FileInfo {
    FileInfo(const Entry& entry, std::int64_t mtime, std::uint64_t hash)
        : name(entry.Name()), source(entry.GetSource()), years(mtime), hash(hash) {
        source.name = name;
    }
    FileInfo(const FileInfo&) = delete;
    FileInfo& operator=(const FileInfo&) = delete;

    std::string name;  // of its own: lines that are held back may outlast the catalogue
    Source source;
    YearGuess years;
    std::uint64_t hash;  // of the first line
};
using SharedInfo = std::shared_ptr<const FileInfo>;

// Neighbouring lines, each with a line feed.
struct Run {
    std::string_view text;
    std::uint64_t firstNumber = 1;
    std::uint64_t lines = 0;
    bool isMatch = true;  // false: they pass all but the pattern
};

// Returns false to stop.
using TakeRun = std::function<bool(const SharedInfo& info, const Run& run)>;

// Only lines of a file with `first` <= number < `end`.
struct LineBounds {
    std::uint64_t first = 1;
    std::uint64_t end = UINT64_MAX;
    bool IsAll() const { return first <= 1 && end == UINT64_MAX; }
    bool Contains(std::uint64_t number) const { return number >= first && number < end; }
};

struct FileResult {
    OpenResult open = OpenResult::Opened;
    std::string problem;  // what was wrong; empty if nothing was
    std::uint64_t fileBytes = 0;
    std::uint64_t textBytes = 0;
    std::uint64_t matches = 0;
    std::uint64_t candidates = 0;  // lines that pass all but the pattern; only if they are wanted
};

struct ScanOptions {
    const Filter* filter = nullptr;
    bool wantsCandidates = false;  // for context
    bool newestFirst = false;
    std::uint64_t maxLines = UINT64_MAX;  // no more than that are wanted, newest first
    // Called for each block with its length; returns false to stop.
    std::function<bool(std::size_t)> progress;
    bool leavesUnfinished = false;  // as in Query
};

std::uint64_t CountLines(std::string_view text);

class Scanner {
public:
    explicit Scanner(ScanOptions options);

    FileResult Scan(const Entry& entry, OpenFile file, const LineBounds& bounds,
                    const TakeRun& take);

    // For a file whose text somebody else reads: takes note of the file, and scans its next block.
    void Begin(const Entry& entry, std::int64_t mtime, std::uint64_t hash, std::uint64_t number);
    bool ScanBlock(std::string_view block, const TakeRun& take) {
        return ScanBlock(block, LineBounds(), take);
    }

    // The line that makes a file recognisable; returns false if there is none.
    static bool HashFirstLine(const Entry& entry, const OpenFile& file, std::uint64_t& hash);

private:
    bool ScanText(const LineBounds& bounds, const TakeRun& take);
    bool ScanReversed(const LineBounds& bounds, const TakeRun& take);
    bool ScanBlock(std::string_view block, const LineBounds& bounds, const TakeRun& take);
    bool ScanMatches(std::string_view block, const TakeRun& take);
    bool ScanLines(std::string_view block, const LineBounds& bounds, const TakeRun& take);
    bool Emit(const Run& run, const TakeRun& take);
    bool PassesFields(std::string_view line) const;

    ScanOptions options;
    const Filter& filter;
    std::optional<Matcher> matcher;
    TextReader reader;

    // Of the present file.
    const Entry* entry = nullptr;
    OpenFile file;
    std::shared_ptr<FileInfo> info;
    FileResult result;
    std::uint64_t number = 1;  // of the first line of the present block
    bool isCounting = true;    // matches are counted in the first of several passes only
};

}  // namespace Reader
