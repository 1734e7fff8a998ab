// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "reader/scan.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <utility>

#include "reader/hash.h"

namespace Reader {

namespace {

// Lines that are kept to be given out in reverse. A file with more is read once more for the rest.
constexpr std::size_t MaxKeptBytes = 3UL << 19;

std::size_t LineEnd(std::string_view block, std::size_t start) {
    const void* const end = memchr(block.data() + start, '\n', block.size() - start);
    return static_cast<std::size_t>(static_cast<const char*>(end) - block.data()) + 1;
}

// The last lines of a pass over a file, in chunks, because a short line kept alone takes more room
// than its text.
class KeptLines {
public:
    struct Chunk {
        std::string text;
        std::uint64_t firstNumber;
        std::uint64_t lines;
        bool isMatch;
        std::size_t Size() const { return text.capacity() + sizeof(Chunk); }
    };

    explicit KeptLines(std::uint64_t maxLines) : maxLines(maxLines) {}

    void Add(const Run& run) {
        lines += run.lines;
        if (Continues(run)) {
            bytes -= chunks.back().Size();
            chunks.back().text += run.text;
            chunks.back().lines += run.lines;
        } else {
            chunks.push_back({std::string(run.text), run.firstNumber, run.lines, run.isMatch});
        }
        bytes += chunks.back().Size();
        while (chunks.size() > 1 &&
               (bytes > MaxKeptBytes || lines - chunks.front().lines >= maxLines)) {
            bytes -= chunks.front().Size();
            lines -= chunks.front().lines;
            chunks.pop_front();
            isAll = false;
        }
    }

    // Newest first. Returns false if no more is wanted.
    bool Deliver(const SharedInfo& info, const TakeRun& take) const {
        for (auto chunk = chunks.rbegin(); chunk != chunks.rend(); ++chunk) {
            std::string_view rest = chunk->text;
            for (std::uint64_t number = chunk->firstNumber + chunk->lines; !rest.empty();) {
                const std::size_t start = rest.substr(0, rest.size() - 1).rfind('\n') + 1;
                if (!take(info, {rest.substr(start), --number, 1, chunk->isMatch})) return false;
                rest = rest.substr(0, start);
            }
        }
        return true;
    }

    std::uint64_t FirstNumber() const { return chunks.front().firstNumber; }
    bool IsAll() const { return isAll; }

private:
    bool Continues(const Run& run) const {
        constexpr std::size_t ChunkBytes = 30UL << 10;
        if (chunks.empty()) return false;
        const Chunk& last = chunks.back();
        return last.isMatch == run.isMatch && last.firstNumber + last.lines == run.firstNumber &&
               last.text.size() + run.text.size() <= ChunkBytes;
    }

    std::deque<Chunk> chunks;
    std::uint64_t maxLines;
    std::uint64_t lines = 0;
    std::size_t bytes = 0;
    bool isAll = true;
};

}  // namespace

Scanner::Scanner(ScanOptions newOptions) : options(std::move(newOptions)), filter(*options.filter) {
    if (filter.pattern.IsSet()) matcher.emplace(filter.pattern);
}

bool Scanner::HashFirstLine(const Entry& entry, const OpenFile& file, std::uint64_t& hash) {
    TextReader reader;
    reader.Open(file.place, entry.isCompressed);
    std::string_view block;
    if (!reader.Next(block)) return false;
    hash = Hash(block.substr(0, LineEnd(block, 0) - 1));
    return true;
}

FileResult Scanner::Scan(const Entry& newEntry, OpenFile newFile, const LineBounds& bounds,
                         const TakeRun& take) {
    entry = &newEntry;
    file = std::move(newFile);
    result = {};
    isCounting = true;
    info = std::make_shared<FileInfo>(*entry, file.mtime, 0);
    // No line of the file is late enough.
    if (filter.since && info->years.Latest() < *filter.since) return result;

    (void)(options.newestFirst ? ScanReversed(bounds, take) : ScanText(bounds, take));
    if (result.problem.empty()) result.problem = reader.Damage();
    file.owned = Descriptor();
    return std::move(result);
}

void Scanner::Begin(const Entry& newEntry, std::int64_t mtime, std::uint64_t hash,
                    std::uint64_t firstNumber) {
    entry = &newEntry;
    info = std::make_shared<FileInfo>(*entry, mtime, hash);
    number = firstNumber;
}

// All three return false if no more is wanted.
bool Scanner::ScanText(const LineBounds& bounds, const TakeRun& take) {
    reader.Open(file.place, entry->isCompressed);
    if (options.leavesUnfinished && entry->kind == Kind::Live) reader.Follow();
    number = 1;
    std::string_view block;
    bool goesOn = true;
    while (goesOn && number < bounds.end && reader.Next(block)) {
        if (number == 1) info->hash = Hash(block.substr(0, LineEnd(block, 0) - 1));
        const std::uint64_t lines = number < bounds.first ? CountLines(block) : 0;
        if (number + lines < bounds.first) {
            number += lines;  // All of it stands before them.
        } else {
            goesOn = ScanBlock(block, bounds, take);
        }
        goesOn = goesOn && (!options.progress || options.progress(block.size()));
    }
    result.fileBytes = reader.FileBytes();
    result.textBytes = reader.TextBytes();
    return goesOn;
}

// A pass keeps the lines at the end of its window. The first window is all of the file; a later one
// reaches about as far back as a pass can keep.
bool Scanner::ScanReversed(const LineBounds& bounds, const TakeRun& take) {
    LineBounds window = bounds;
    for (;;) {
        KeptLines kept(options.maxLines);
        if (!ScanText(window, [&](const SharedInfo&, const Run& run) {
                kept.Add(run);
                return true;
            })) {
            return false;
        }
        isCounting = false;
        const std::uint64_t begin = kept.IsAll() ? window.first : kept.FirstNumber();
        if (!kept.Deliver(info, take)) return false;
        if (begin <= bounds.first) return true;
        if (!reader.Damage().empty()) result.problem = reader.Damage();
        const std::uint64_t end = window.end == bounds.end ? number : window.end;
        const std::uint64_t span = (end - begin) * (kept.IsAll() ? 4 : 2);
        window = {begin - std::min(begin - bounds.first, span), begin};
    }
}

bool Scanner::ScanBlock(std::string_view block, const LineBounds& bounds, const TakeRun& take) {
    const bool isSimple = bounds.IsAll() && !filter.LooksAtFields();
    if (isSimple && !matcher) {
        const std::uint64_t lines = CountLines(block);
        const std::uint64_t first = std::exchange(number, number + lines);
        return Emit({block, first, lines, true}, take);
    }
    if (matcher) matcher->SetText(block);
    if (isSimple && !options.wantsCandidates) return ScanMatches(block, take);
    return ScanLines(block, bounds, take);
}

// Only the matches are looked at, or what lies between them.
bool Scanner::ScanMatches(std::string_view block, const TakeRun& take) {
    std::size_t at = 0;
    while (at < block.size()) {
        const std::size_t found = std::min(matcher->FindLine(at), block.size());
        const std::string_view between = block.substr(at, found - at);
        const std::uint64_t lines = CountLines(between);
        if (filter.isInverted && lines != 0 && !Emit({between, number, lines, true}, take)) {
            return false;
        }
        number += lines;
        if (found == block.size()) return true;
        at = LineEnd(block, found);
        const std::string_view line = block.substr(found, at - found);
        if (!filter.isInverted && !Emit({line, number, 1, true}, take)) return false;
        ++number;
    }
    return true;
}

bool Scanner::ScanLines(std::string_view block, const LineBounds& bounds, const TakeRun& take) {
    std::size_t nextMatch = matcher ? matcher->FindLine(0) : 0;
    std::size_t end = 0;
    for (std::size_t start = 0; start < block.size(); start = end, ++number) {
        end = LineEnd(block, start);
        bool isMatch = true;
        if (matcher) {
            isMatch = (start == nextMatch) != filter.isInverted;
            if (start == nextMatch) nextMatch = matcher->FindLine(end);
        }
        if ((!isMatch && !options.wantsCandidates) || !bounds.Contains(number)) continue;
        const std::string_view line = block.substr(start, end - start);
        if (!PassesFields(line.substr(0, line.size() - 1))) continue;
        if (!Emit({line, number, 1, isMatch}, take)) return false;
    }
    return true;
}

bool Scanner::Emit(const Run& run, const TakeRun& take) {
    if (isCounting) {
        result.candidates += run.lines;
        if (run.isMatch) result.matches += run.lines;
    }
    return take(info, run);
}

bool Scanner::PassesFields(std::string_view line) const {
    if (!filter.LooksAtFields()) return true;
    const Fields fields = ParseLine(line);
    if (!fields.hasForm) return false;
    if (filter.severity &&
        (fields.severity > *filter.severity || fields.severity < filter.lowestSeverity)) {
        return false;
    }
    if (!filter.tags.empty() &&
        std::find(filter.tags.begin(), filter.tags.end(), fields.tag) == filter.tags.end()) {
        return false;
    }
    if (!filter.since && !filter.until) return true;
    const CivilTime time = info->years.TimeOf(fields);
    return (!filter.since || time >= *filter.since) && (!filter.until || time <= *filter.until);
}

}  // namespace Reader
