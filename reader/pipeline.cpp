// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// With one job, a scanner hands its lines over directly. With several, each thread takes the next
// file, and collects what passes in batches. The batches of the file whose turn it is go out; the
// threads of later files wait when they have collected too much, so that memory does not depend on
// how large files are or how many. The thread whose turn it is never waits: nothing can lock up.
#include "reader/pipeline.h"

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <exception>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

namespace Reader {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds ProgressInterval(100);
constexpr std::size_t BatchSize = 128UL << 10;
constexpr std::size_t MaxWaitingBytes = 512UL << 10;  // of all threads whose turn it is not
constexpr std::size_t MaxAhead = 256;                 // files

// The daemon deletes the oldest files at any time. What is read next is open already, so that the
// text has no gap where it does so during the read.
class FilesAhead {
public:
    FilesAhead(const Catalogue& catalogue, const std::vector<Job>& jobs, bool newestFirst)
        : catalogue(catalogue), jobs(jobs), ahead(newestFirst ? 0 : OpenAhead) {}

    // Call with rising numbers.
    void Take(std::size_t number, OpenFile& file, FileResult& result) {
        for (; opened < jobs.size() && opened <= number + ahead; ++opened) {
            files.emplace_back();
            Opened& next = files.back();
            next.result = catalogue.Open(jobs[opened].index, next.file, next.error);
        }
        Opened& mine = files.front();
        result.open = mine.result;
        result.problem = mine.error;
        file = std::move(mine.file);
        // There may have been too many open files then.
        if (mine.result == OpenResult::Failed) {
            result.problem.clear();
            result.open = catalogue.Open(jobs[number].index, file, result.problem);
        }
        files.pop_front();
    }

private:
    static constexpr std::size_t OpenAhead = 64;
    struct Opened {
        OpenFile file;
        OpenResult result = OpenResult::Gone;
        std::string error;
    };
    const Catalogue& catalogue;
    const std::vector<Job>& jobs;
    std::size_t ahead;
    std::size_t opened = 0;
    std::deque<Opened> files;
};

// Runs with copies of their texts.
struct Batch {
    struct Part {
        std::size_t length;
        std::uint64_t firstNumber;
        std::uint64_t lines;
        bool isMatch;
    };
    SharedInfo info;
    std::vector<Part> parts;
    std::string text;

    void Add(const Run& run) {
        parts.push_back({run.text.size(), run.firstNumber, run.lines, run.isMatch});
        text += run.text;
    }
    std::size_t Size() const { return text.size() + parts.size() * sizeof(Part); }
    bool Deliver(const TakeRun& take) const {
        std::size_t at = 0;
        for (const Part& part : parts) {
            const std::string_view partText = std::string_view(text).substr(at, part.length);
            if (!take(info, {partText, part.firstNumber, part.lines, part.isMatch})) return false;
            at += part.length;
        }
        return true;
    }
};

class Threads {
public:
    Threads(const Catalogue& catalogue, const std::vector<Job>& jobs,
            const PipelineOptions& options, const Consumer& consumer)
        : catalogue(catalogue),
          jobs(jobs),
          options(options),
          consumer(consumer),
          filesAhead(catalogue, jobs, options.newestFirst) {}

    // Returns false, with nothing done, if no thread can be started.
    bool Run();

private:
    struct Slot {
        std::deque<Batch> batches;
        bool isDone = false;
        FileResult result;
        std::exception_ptr error;
    };

    void Work();
    void ScanFiles();
    void ScanOne(Scanner& scanner, std::size_t number, Slot& slot, OpenFile file,
                 FileResult opened);
    bool Push(std::size_t number, Slot& slot, Batch&& batch);
    void Consume();
    bool ConsumeSlot(Slot& slot, const Job& job);
    void Stop();

    const Catalogue& catalogue;
    const std::vector<Job>& jobs;
    const PipelineOptions& options;
    const Consumer& consumer;

    std::mutex mutex;  // guards all below
    std::condition_variable workersWait;
    std::condition_variable consumerWaits;
    FilesAhead filesAhead;
    std::deque<Slot> slots;  // of the files from `turn` on that were taken
    std::size_t turn = 0;    // the file whose lines go out
    std::size_t nextJob = 0;
    std::size_t waitingBytes = 0;
    bool isStopped = false;
    std::exception_ptr failure;  // of a thread, outside of a file

    std::atomic<std::size_t> textBytes{0};
    std::atomic<bool> isCancelled{false};
};

bool Threads::Run() {
    std::vector<std::thread> workers;
    const std::size_t count = std::min<std::size_t>(options.jobs, jobs.size());
    try {
        try {
            for (std::size_t i = 0; i < count; ++i) workers.emplace_back([this] { Work(); });
        } catch (const std::system_error&) {  // a limit on processes: those that run do it all
            if (workers.empty()) return false;
        }
        Consume();
    } catch (...) {
        Stop();
        for (std::thread& worker : workers) worker.join();
        throw;
    }
    Stop();
    for (std::thread& worker : workers) worker.join();
    return true;
}

void Threads::Stop() {
    const std::lock_guard lock(mutex);
    isStopped = true;
    isCancelled = true;
    workersWait.notify_all();
}

void Threads::Work() {
    try {
        ScanFiles();
    } catch (...) {
        const std::lock_guard lock(mutex);
        failure = std::current_exception();
    }
}

void Threads::ScanFiles() {
    ScanOptions scanOptions{
        options.filter, options.wantsCandidates, options.newestFirst, options.maxLines, {}};
    scanOptions.leavesUnfinished = options.leavesUnfinished;
    scanOptions.progress = [this](std::size_t bytes) {
        textBytes += bytes;
        return !isCancelled;
    };
    Scanner scanner(scanOptions);
    for (;;) {
        std::unique_lock lock(mutex);
        workersWait.wait(lock, [&] { return isStopped || nextJob < turn + MaxAhead; });
        if (isStopped || nextJob == jobs.size()) return;
        const std::size_t number = nextJob++;
        Slot& slot = slots.emplace_back();
        OpenFile file;
        FileResult opened;
        filesAhead.Take(number, file, opened);
        lock.unlock();
        ScanOne(scanner, number, slot, std::move(file), std::move(opened));
        lock.lock();
        slot.isDone = true;
        consumerWaits.notify_one();
    }
}

void Threads::ScanOne(Scanner& scanner, std::size_t number, Slot& slot, OpenFile file,
                      FileResult opened) {
    if (opened.open != OpenResult::Opened) {
        slot.result = std::move(opened);
        return;
    }
    Batch batch;
    const TakeRun take = [&](const SharedInfo& info, const Reader::Run& run) {
        if (!options.wantsLines) return true;
        batch.info = info;
        batch.Add(run);
        return batch.Size() < BatchSize || Push(number, slot, std::exchange(batch, {}));
    };
    try {
        slot.result = scanner.Scan(catalogue.entries[jobs[number].index], std::move(file),
                                   jobs[number].bounds, take);
        if (batch.info) (void)Push(number, slot, std::move(batch));
    } catch (...) {
        slot.error = std::current_exception();
    }
}

// Returns false if no more is wanted.
bool Threads::Push(std::size_t number, Slot& slot, Batch&& batch) {
    std::unique_lock lock(mutex);
    workersWait.wait(lock,
                     [&] { return isStopped || number == turn || waitingBytes < MaxWaitingBytes; });
    // The consumer may be slower than its turn's thread, too.
    workersWait.wait(lock, [&] { return isStopped || slot.batches.size() < 4; });
    if (isStopped) return false;
    waitingBytes += batch.Size();
    slot.batches.push_back(std::move(batch));
    consumerWaits.notify_one();
    return true;
}

void Threads::Consume() {
    for (;;) {
        {
            std::unique_lock lock(mutex);
            if (turn == jobs.size()) return;
            while (slots.empty() && !failure) consumerWaits.wait_for(lock, ProgressInterval);
            if (slots.empty()) std::rethrow_exception(failure);
        }
        if (!ConsumeSlot(slots.front(), jobs[turn])) return;
        const std::lock_guard lock(mutex);
        slots.pop_front();
        ++turn;
        workersWait.notify_all();
    }
}

bool Threads::ConsumeSlot(Slot& slot, const Job& job) {
    auto lastProgress = Clock::now();
    for (;;) {
        std::unique_lock lock(mutex);
        consumerWaits.wait_for(lock, ProgressInterval,
                               [&] { return slot.isDone || !slot.batches.empty(); });
        std::optional<Batch> batch;
        if (!slot.batches.empty()) {
            batch = std::move(slot.batches.front());
            slot.batches.pop_front();
            waitingBytes -= batch->Size();
            workersWait.notify_all();
        }
        const bool isDone = slot.isDone && !batch;
        if (failure) std::rethrow_exception(failure);
        lock.unlock();

        if (options.cancel != nullptr && *options.cancel) return false;
        if (batch && !batch->Deliver(consumer.run)) {
            Stop();
            lock.lock();
            consumerWaits.wait(lock, [&] { return slot.isDone; });
            if (!slot.result.problem.empty()) (void)consumer.fileDone(job, slot.result);
            return false;
        }
        if (Clock::now() - lastProgress >= ProgressInterval) {
            lastProgress = Clock::now();
            if (!consumer.progress(textBytes)) return false;
        }
        if (!isDone) continue;
        if (slot.error) std::rethrow_exception(slot.error);
        return consumer.fileDone(job, slot.result);
    }
}

void RunOneByOne(const Catalogue& catalogue, const std::vector<Job>& jobs,
                 const PipelineOptions& options, const Consumer& consumer) {
    FilesAhead filesAhead(catalogue, jobs, options.newestFirst);
    ScanOptions scanOptions{
        options.filter, options.wantsCandidates, options.newestFirst, options.maxLines, {}};
    scanOptions.leavesUnfinished = options.leavesUnfinished;
    std::size_t textBytes = 0;
    bool isStopped = false;
    auto lastProgress = Clock::now();
    scanOptions.progress = [&](std::size_t bytes) {
        textBytes += bytes;
        isStopped = isStopped || (options.cancel != nullptr && *options.cancel);
        if (!isStopped && Clock::now() - lastProgress >= ProgressInterval) {
            lastProgress = Clock::now();
            isStopped = !consumer.progress(textBytes);
        }
        return !isStopped;
    };
    const TakeRun take = [&](const SharedInfo& info, const Run& run) {
        isStopped = isStopped || (options.wantsLines && !consumer.run(info, run));
        return !isStopped;
    };
    Scanner scanner(scanOptions);
    for (std::size_t i = 0; i < jobs.size() && !isStopped; ++i) {
        OpenFile file;
        FileResult result;
        filesAhead.Take(i, file, result);
        if (result.open == OpenResult::Opened) {
            result = scanner.Scan(catalogue.entries[jobs[i].index], std::move(file), jobs[i].bounds,
                                  take);
        }
        // What was wrong with a file is known before its last lines go out.
        if (isStopped && result.problem.empty()) return;
        if (!consumer.fileDone(jobs[i], result)) return;
    }
}

}  // namespace

void RunPipeline(const Catalogue& catalogue, const std::vector<Job>& jobs,
                 const PipelineOptions& options, const Consumer& consumer) {
    const bool useThreads = options.jobs > 1 && jobs.size() > 1;
    if (useThreads && Threads(catalogue, jobs, options, consumer).Run()) return;
    RunOneByOne(catalogue, jobs, options, consumer);
}

}  // namespace Reader
