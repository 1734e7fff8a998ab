// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Files through scanners, several at a time, and their lines out again in the order of the files.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <vector>

#include "reader/scan.h"

namespace Reader {

struct Job {
    std::size_t index = 0;  // in the catalogue
    LineBounds bounds;
};

// What comes out, called by one thread, in the order of the jobs. Each returns false to stop.
struct Consumer {
    TakeRun run;
    std::function<bool(const Job& job, const FileResult& result)> fileDone;
    std::function<bool(std::size_t textBytes)> progress;  // about ten times a second
};

struct PipelineOptions {
    const Filter* filter = nullptr;
    bool wantsCandidates = false;
    bool wantsLines = true;  // false: only the results of the files
    bool newestFirst = false;
    std::uint64_t maxLines = UINT64_MAX;  // of a file, newest first
    unsigned jobs = 1;
    const std::atomic<bool>* cancel = nullptr;
    bool leavesUnfinished = false;
};

// Returns when all is done or the consumer has stopped it. Throws TooComplex.
void RunPipeline(const Catalogue& catalogue, const std::vector<Job>& jobs,
                 const PipelineOptions& options, const Consumer& consumer);

}  // namespace Reader
