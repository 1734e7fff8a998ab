// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// What can be asked of files as a whole: the times of a boot, and whether a file is intact.
#include "reader/log_files.h"

namespace Reader {

namespace {

// The first or the last time stamp in a file. Returns false if it has none.
bool FindTime(const Catalogue& catalogue, std::size_t index, bool isLast, FileResult& result,
              std::optional<CivilTime>& time) {
    OpenFile file;
    result.open = catalogue.Open(index, file, result.problem);
    if (result.open != OpenResult::Opened) return false;
    const YearGuess years(file.mtime);
    TextReader reader;
    reader.Open(file.place, catalogue.entries[index].isCompressed);
    std::string_view block;
    while (reader.Next(block)) {
        while (!block.empty()) {
            // The last line of a block that has the form is the last so far.
            const std::size_t end = !isLast            ? block.find('\n')
                                    : block.size() < 2 ? std::string_view::npos
                                                       : block.rfind('\n', block.size() - 2);
            const bool isOnly = isLast && end == std::string_view::npos;
            const std::string_view line =
                isLast ? block.substr(isOnly ? 0 : end + 1) : block.substr(0, end + 1);
            const Fields fields = ParseLine(line.substr(0, line.size() - 1));
            if (fields.hasForm) {
                time = years.TimeOf(fields);
                if (!isLast) return true;
                break;
            }
            if (isLast) block.remove_suffix(line.size());
            if (!isLast) block.remove_prefix(line.size());
        }
    }
    result.problem = reader.Damage();
    return time.has_value();
}

}  // namespace

bool Log::GetTimes(const BootFiles& boot, Times& times) {
    bool hasFailed = false;
    ProblemReports reports(report, true);
    const auto look = [&](std::size_t index, bool isLast, std::optional<CivilTime>& time) {
        FileResult result;
        const bool isFound = FindTime(files->catalogue, index, isLast, result, time);
        hasFailed = files->Note(index, result, reports) || hasFailed;
        return isFound;
    };
    for (auto index = boot.sources.begin(); index != boot.sources.end(); ++index) {
        if (look(*index, false, times.first)) break;
    }
    if (!times.first) return hasFailed;
    for (auto index = boot.sources.rbegin(); index != boot.sources.rend(); ++index) {
        if (look(*index, true, times.last)) break;
    }
    return hasFailed;
}

Log::Check Log::Verify(std::size_t index) {
    Check check;
    const Entry& entry = files->catalogue.entries[index];
    OpenFile file;
    const OpenResult result = files->catalogue.Open(index, file, check.damage);
    check.isUnreadable = result == OpenResult::Failed;
    check.isGone = result == OpenResult::Gone;
    if (result != OpenResult::Opened) return check;
    TextReader reader;
    reader.Open(file.place, entry.isCompressed);
    std::string_view block;
    while (reader.Next(block)) check.lines += CountLines(block);
    check.bytes = file.size;
    check.textBytes = reader.TextBytes();
    check.damage = reader.Damage();
    check.isUnreadable = reader.HasReadError();
    if (check.damage.empty() && entry.kind == Kind::Archive && !IsFullArchiveName(entry.Name())) {
        check.damage = "not named as an archive file: no time stamp";
    }
    return check;
}

}  // namespace Reader
