// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Log::Read and Log::Count: which files are read, in which order, and what becomes of what was
// wrong with them.
#include <algorithm>
#include <utility>

#include "reader/hash.h"
#include "reader/log_files.h"
#include "reader/selection.h"

namespace Reader {

namespace {

using Jobs = std::vector<Job>;

bool IsInRange(const Filter& filter, std::uint32_t boot) {
    return !filter.boots || (boot >= filter.boots->first && boot <= filter.boots->last);
}

bool IsSet(const std::atomic<bool>* cancel) {
    return cancel != nullptr && *cancel;
}

// One call of Read or Count.
class Reading {
public:
    // Called with the index of each file that was read and its result.
    using FileDone = std::function<void(std::size_t index, const FileResult& result)>;

    Reading(const Query& query, const Catalogue& catalogue, FileDone fileDone)
        : query(query), catalogue(catalogue), fileDone(std::move(fileDone)) {}

    // All files that may have lines, oldest first. Returns true, and has reported it, if a cursor
    // is not in the log.
    bool Plan(const Report& report);

    void Deliver(const Take& take);
    void DeliverThrough(Selection& selection);
    std::uint64_t CountMatches();

private:
    void RunThrough(const Jobs& order, Selection& selection);
    Jobs FindLast(std::uint64_t& skip);
    bool DeliverCollected(const Take& take);
    void RunFromNewest(Jobs order, PipelineOptions options, const Consumer& consumer,
                       const std::function<bool()>& wantsMore);
    bool AddBounds(const std::optional<Cursor>& cursor, bool isAfter);
    PipelineOptions Options() const;
    bool ShowProgress(std::size_t textBytes);
    void Count(const Job& job, const FileResult& result);
    bool WantsContext() const {
        return query.marksBlocks || query.contextBefore != 0 || query.contextAfter != 0;
    }

    const Query& query;
    const Catalogue& catalogue;
    const FileDone fileDone;
    Jobs jobs;
    Progress progress;
};

bool Reading::Plan(const Report& report) {
    for (std::size_t i = 0; i < catalogue.entries.size(); ++i) {
        if (query.source && i != *query.source) continue;
        if (IsInRange(query.filter, catalogue.entries[i].boot)) jobs.push_back({i, {}});
    }
    progress.allFiles = jobs.size();
    const bool isLost = AddBounds(query.after, true) || AddBounds(query.before, false);
    if (isLost) report("cursor", "its line is not in the log any more");
    return isLost;
}

bool Reading::AddBounds(const std::optional<Cursor>& cursor, bool isAfter) {
    std::size_t index = 0;
    if (!cursor) return false;
    if (!FindCursor(catalogue, *cursor, query.cancel, index)) {
        jobs.clear();
        return !IsSet(query.cancel);
    }
    std::erase_if(jobs,
                  [&](const Job& job) { return isAfter ? job.index < index : job.index > index; });
    for (Job& job : jobs) {
        if (job.index != index) continue;
        if (isAfter) job.bounds.first = cursor->number + 1;
        if (!isAfter) job.bounds.end = cursor->number;
    }
    progress.allFiles = jobs.size();
    return false;
}

PipelineOptions Reading::Options() const {
    PipelineOptions options;
    options.filter = &query.filter;
    options.wantsCandidates = WantsContext();
    options.jobs = query.jobs;
    options.cancel = query.cancel;
    options.leavesUnfinished = query.leavesUnfinished;
    return options;
}

bool Reading::ShowProgress(std::size_t textBytes) {
    if (IsSet(query.cancel)) return false;
    if (!query.progress) return true;
    progress.textBytes = textBytes;
    query.progress(progress);
    return true;
}

void Reading::Count(const Job& job, const FileResult& result) {
    ++progress.files;
    progress.bytes += result.fileBytes;
    progress.matches += result.matches;
    fileDone(job.index, result);
}

void Reading::RunThrough(const Jobs& order, Selection& selection) {
    PipelineOptions options = Options();
    options.newestFirst = query.newestFirst;
    RunPipeline(catalogue, order, options,
                {[&](const SharedInfo& info, const Run& run) { return selection.Add(info, run); },
                 [&](const Job& job, const FileResult& result) {
                     Count(job, result);
                     return true;
                 },
                 [&](std::size_t textBytes) { return ShowProgress(textBytes); }});
}

void Reading::Deliver(const Take& take) {
    Selection::Limits limits;
    limits.marksBlocks = query.marksBlocks;
    limits.before = query.newestFirst ? query.contextAfter : query.contextBefore;
    limits.after = query.newestFirst ? query.contextBefore : query.contextAfter;
    const bool countsFromHere = query.newestFirst || query.fromOldest;
    if (query.lines && countsFromHere) limits.matches = *query.lines;
    if (query.newestFirst) std::reverse(jobs.begin(), jobs.end());
    Selection selection(limits, take);
    if (!query.lines || countsFromHere) {
        RunThrough(jobs, selection);
    } else if (*query.lines != 0 && DeliverCollected(take)) {
        DeliverThrough(selection);
    }
}

void Reading::DeliverThrough(Selection& selection) {
    if (!query.lines) return RunThrough(jobs, selection);
    if (*query.lines == 0) return;
    std::uint64_t skip = 0;
    const Jobs order = FindLast(skip);
    selection.Skip(skip);
    RunThrough(order, selection);
}

// The last matches, if they are few: collected newest first, and turned round. Returns true if they
// are too many for that, with nothing delivered.
bool Reading::DeliverCollected(const Take& take) {
    constexpr std::uint64_t MaxLines = 2000;
    constexpr std::size_t MaxBytes = 1UL << 20;
    if (WantsContext() || *query.lines > MaxLines) return true;
    struct Collected {
        SharedInfo info;
        std::string text;
        std::uint64_t number;
    };
    std::vector<Collected> lines;
    std::size_t bytes = 0;
    const Consumer consumer{[&](const SharedInfo& info, const Run& run) {
                                lines.push_back({info, std::string(run.text), run.firstNumber});
                                bytes += run.text.size();
                                return lines.size() < *query.lines && bytes <= MaxBytes;
                            },
                            [&](const Job& job, const FileResult& result) {
                                Count(job, result);
                                return true;
                            },
                            [&](std::size_t textBytes) { return ShowProgress(textBytes); }};
    PipelineOptions options = Options();
    options.newestFirst = true;
    options.maxLines = *query.lines;
    RunFromNewest({jobs.rbegin(), jobs.rend()}, options, consumer,
                  [&] { return lines.size() < *query.lines && bytes <= MaxBytes; });
    if (bytes > MaxBytes && lines.size() < *query.lines) return true;
    Selection selection({}, take);
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
        if (!selection.Add(line->info, {line->text, line->number, 1, true})) break;
    }
    return false;
}

// The newest files often have enough; threads would decompress more than those.
void Reading::RunFromNewest(Jobs order, PipelineOptions options, const Consumer& consumer,
                            const std::function<bool()>& wantsMore) {
    constexpr std::size_t FirstFiles = 3;
    const auto rest = order.begin() + static_cast<long>(std::min(order.size(), FirstFiles));
    const Jobs newest(order.begin(), rest);
    order.erase(order.begin(), rest);
    const unsigned threads = std::exchange(options.jobs, 1);
    RunPipeline(catalogue, newest, options, consumer);
    if (!wantsMore() || IsSet(query.cancel)) return;
    options.jobs = threads;
    RunPipeline(catalogue, order, options, consumer);
}

// The last matches, oldest first: the matches are counted from the newest file back until there are
// enough; then the files that have any are read again. Sets how many to skip.
Jobs Reading::FindLast(std::uint64_t& skip) {
    Jobs order;
    std::uint64_t matches = 0;
    std::uint64_t context = 0;  // lines before the file with the first match
    PipelineOptions options = Options();
    options.wantsLines = false;
    options.newestFirst = false;
    const Consumer consumer{{},
                            [&](const Job& job, const FileResult& result) {
                                Count(job, result);
                                if (matches >= *query.lines) context += result.candidates;
                                matches += result.matches;
                                if (result.matches != 0 || WantsContext()) order.push_back(job);
                                return matches < *query.lines || context < query.contextBefore;
                            },
                            [&](std::size_t textBytes) { return ShowProgress(textBytes); }};

    RunFromNewest({jobs.rbegin(), jobs.rend()}, options, consumer,
                  [&] { return matches < *query.lines || context < query.contextBefore; });
    skip = matches > *query.lines ? matches - *query.lines : 0;
    std::reverse(order.begin(), order.end());
    progress.files = 0;
    progress.matches = 0;
    progress.allFiles = order.size();
    return order;
}

std::uint64_t Reading::CountMatches() {
    std::uint64_t matches = 0;
    PipelineOptions options = Options();
    options.wantsCandidates = false;
    options.wantsLines = false;
    RunPipeline(catalogue, jobs, options,
                {{},
                 [&](const Job& job, const FileResult& result) {
                     Count(job, result);
                     matches += result.matches;
                     return !query.lines || matches < *query.lines;
                 },
                 [&](std::size_t textBytes) { return ShowProgress(textBytes); }});
    return query.lines ? std::min(matches, *query.lines) : matches;
}

bool HasLineOf(const Catalogue& catalogue, std::size_t index, const Cursor& cursor,
               const std::atomic<bool>* cancel) {
    if (IsSet(cancel)) return false;
    const Entry& entry = catalogue.entries[index];
    OpenFile file;
    std::string error;
    std::uint64_t hash = 0;
    if (catalogue.Open(index, file, error) != OpenResult::Opened ||
        !Scanner::HashFirstLine(entry, file, hash) || hash != cursor.file) {
        return false;
    }
    const Filter all;
    Scanner scanner(
        {&all, true, false, UINT64_MAX, [cancel](std::size_t) { return !IsSet(cancel); }});
    bool isFound = false;
    const LineBounds bounds{cursor.number, cursor.number + 1};
    (void)scanner.Scan(entry, std::move(file), bounds, [&](const SharedInfo&, const Run& run) {
        isFound = ShortHash(run.text.substr(0, run.text.size() - 1)) == cursor.line;
        return false;
    });
    return isFound;
}

}  // namespace

// Where it stood, first. Where that archive file has been deleted, the oldest one that fits: to
// print lines again is better than to leave lines out.
bool FindCursor(const Catalogue& catalogue, const Cursor& cursor, const std::atomic<bool>* cancel,
                std::size_t& index) {
    const std::vector<Entry>& entries = catalogue.entries;
    const Anchor& anchor = cursor.anchor;
    const auto isAt = [&](std::size_t place) {
        index = place;
        return index < entries.size() && HasLineOf(catalogue, index, cursor, cancel);
    };
    if (anchor.name == 0 && isAt(std::size_t{anchor.distance} - 1)) return true;
    for (const bool isByName : {true, false}) {
        for (std::size_t i = entries.size(); i-- != 0;) {
            const Entry& entry = entries[i];
            if (entry.kind != Kind::Archive) continue;
            const bool isAnchor = isByName ? ShortHash(entry.Name()) == anchor.name
                                           : ShortHash(entry.Rest()) == anchor.rest;
            if (isAnchor && isAt(i + anchor.distance)) return true;
        }
    }
    for (index = 0; index < entries.size(); ++index) {
        if (HasLineOf(catalogue, index, cursor, cancel)) return true;
    }
    return false;
}

bool ProblemReports::Add(const std::string& path, const FileResult& result) {
    if (result.open == OpenResult::Gone) {
        // The daemon deletes at the old end. Elsewhere, the text has a gap.
        if (newestFirst) gone.push_back(path);
        if (newestFirst || !hasRead) return false;
        report(path, "deleted while the log was read");
        return true;
    }
    hasRead = true;
    const bool hasGap = !gone.empty();
    for (const std::string& name : gone) report(name, "deleted while the log was read");
    gone.clear();
    if (!result.problem.empty()) report(path, result.problem);
    return hasGap || !result.problem.empty();
}

bool Log::Files::Note(std::size_t index, const FileResult& result, ProblemReports& reports) {
    if (isReported[index] || !reports.Add(PathOf(index), result)) return false;
    isReported[index] = true;
    return true;
}

bool Log::Files::Read(const Query& query, const Take& take, const Report& report,
                      Selection* selection) {
    const bool countsFromNewest = query.lines && !query.fromOldest;
    ProblemReports reports(report, query.newestFirst || countsFromNewest);
    bool hasFailed = false;
    Reading reading(query, catalogue, [&](std::size_t index, const FileResult& result) {
        hasFailed = Note(index, result, reports) || hasFailed;
    });
    if (reading.Plan(report)) return true;
    selection != nullptr ? reading.DeliverThrough(*selection) : reading.Deliver(take);
    return hasFailed;
}

bool Log::Read(const Query& query, const Take& take) {
    return files->Read(query, take, report, nullptr);
}

bool Log::Count(const Query& query, std::uint64_t& count) {
    count = 0;
    ProblemReports reports(report, false);
    bool hasFailed = false;
    Reading reading(query, files->catalogue, [&](std::size_t index, const FileResult& result) {
        hasFailed = files->Note(index, result, reports) || hasFailed;
    });
    if (reading.Plan(report)) return true;
    count = reading.CountMatches();
    return hasFailed;
}

bool Log::HasLine(const Cursor& cursor, const std::atomic<bool>* cancel) {
    std::size_t index = 0;
    return FindCursor(files->catalogue, cursor, cancel, index);
}

}  // namespace Reader
