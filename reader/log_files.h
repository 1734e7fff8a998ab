// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// What a Log holds.
#pragma once

#include <string>
#include <vector>

#include "reader/catalogue.h"
#include "reader/log.h"
#include "reader/pipeline.h"
#include "reader/selection.h"

namespace Reader {

// Reports what was wrong with a file, once. Returns true if anything was.
class ProblemReports {
public:
    ProblemReports(const Report& report, bool newestFirst)
        : report(report), newestFirst(newestFirst) {}
    bool Add(const std::string& path, const FileResult& result);

private:
    const Report& report;
    bool newestFirst;
    bool hasRead = false;
    std::vector<std::string> gone;
};

struct Log::Files {
    Catalogue catalogue;
    std::vector<bool> isReported;  // files whose problem has been reported

    // To be called with each file that was read. Returns true if anything was reported.
    bool Note(std::size_t index, const FileResult& result, ProblemReports& reports);

    // As Log::Read. With `selection`, which has no limit but `before` and `after` and the same
    // `take`, the lines go through it, oldest first, to the end of the log: for who has more lines
    // to add.
    [[nodiscard]] bool Read(const Query& query, const Take& take, const Report& report,
                            Selection* selection);

    // The path of a file, for messages.
    std::string PathOf(std::size_t index) const;
    std::string folderPath;  // of the archive
    std::string waitingPath;
};

// Where the line of a cursor is; returns false if it is not in the log, or if `cancel` was set.
bool FindCursor(const Catalogue& catalogue, const Cursor& cursor, const std::atomic<bool>* cancel,
                std::size_t& index);

}  // namespace Reader
