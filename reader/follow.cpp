// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Log::Follow: the live log as it grows, and what comes after it.
//
// The live log is read to its end, through a descriptor that stays with the file wherever it moves.
// When messages.txt names another file, syslogd writes to this one no more. Then a new snapshot of
// the folders shows what has come since: all files behind the last one that is known, which may be
// several, waiting or archived already.
#include <fcntl.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>

#include "daemon/moraine.h"
#include "reader/device.h"
#include "reader/hash.h"
#include "reader/log_files.h"
#include "reader/selection.h"

namespace Reader {

namespace {

constexpr std::size_t KnownArchiveFiles = 64;

// Wakes when something happens in a folder, or after a second.
class FolderEvents {
public:
    FolderEvents() : events(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {}

    void Wait() {
        if (events.IsOpen() && !isWatching) {
            constexpr std::uint32_t Changes = IN_MODIFY | IN_CREATE | IN_MOVED_TO | IN_MOVED_FROM;
            isWatching = inotify_add_watch(events.Get(), Moraine::SyslogPathAbs.c_str(),
                                           Changes | IN_ONLYDIR) >= 0;
        }
        if (!isWatching) {
            constexpr timespec Pause{0, 200'000'000};
            (void)nanosleep(&Pause, nullptr);  // A signal may cut it short.
            return;
        }
        pollfd waiting{events.Get(), POLLIN, 0};
        constexpr int OneSecond = 1000;
        if (poll(&waiting, 1, OneSecond) <= 0) return;
        char drained[4096];
        while (read(events.Get(), drained, sizeof drained) > 0) {
        }
    }

private:
    Descriptor events;
    bool isWatching = false;
};

// The length up to the last line feed.
std::uint64_t WholeLines(int fd, std::uint64_t size) {
    char piece[4096];
    while (size != 0) {
        const std::uint64_t from = size > sizeof piece ? size - sizeof piece : 0;
        const ssize_t count = pread(fd, piece, size - from, static_cast<off_t>(from));
        if (count <= 0) return 0;
        const void* const last = memrchr(piece, '\n', static_cast<std::size_t>(count));
        if (last != nullptr) {
            return from + static_cast<std::uint64_t>(static_cast<const char*>(last) - piece) + 1;
        }
        size = from;
    }
    return 0;
}

class Following {
public:
    // `selection` may have had the lines before, for their context.
    Following(const Query& query, Catalogue& catalogue, const Report& report, Selection& selection)
        : query(query),
          catalogue(catalogue),
          report(report),
          firstBoot(catalogue.currentBoot),
          scanner({&query.filter, selection.HasContext(), false, UINT64_MAX, {}}),
          selection(selection) {}

    // Leaves an unfinished line of the live log for later.
    void HoldBackUnfinished();

    // Returns when `idle` or the receiver of the lines says so.
    void Run(const std::function<bool()>& idle);

private:
    void BeginLive(bool isFromStart);
    bool ReadLive();
    bool ReadWhole(std::size_t index);
    bool GoOn();
    enum class Change { None, Gone, Replaced, Truncated };
    Change LookAtLive() const;
    bool IsWanted(const Entry& entry) const;
    std::vector<std::size_t> FindNew(const Catalogue& now) const;
    bool IsKnown(const Catalogue& now, const Entry& entry, std::size_t index) const;

    const Query& query;
    Catalogue& catalogue;
    const Report& report;
    std::uint32_t firstBoot;
    Scanner scanner;
    Selection& selection;

    // The live log, or what was.
    std::size_t liveIndex = SIZE_MAX;  // in the catalogue
    TextReader live;
    int liveFd = -1;
    std::uint64_t liveOffset = 0;  // where it was begun
    std::uint64_t liveHash = 0;
    std::uint64_t liveNumber = 1;  // of the next line
    bool isStopped = false;
};

void Following::HoldBackUnfinished() {
    for (const Entry& entry : catalogue.entries) {
        if (entry.kind != Kind::Live || !entry.isPlaced) continue;
        Place& place = catalogue.placed[entry.id].place;
        place.size = WholeLines(place.fd, place.size);
    }
}

bool Following::IsWanted(const Entry& entry) const {
    if (!query.filter.boots) return true;
    const auto isInRange = [&range = *query.filter.boots](std::uint32_t boot) {
        return boot >= range.first && boot <= range.last;
    };
    // The daemon may have been started again meanwhile, and may have given the boots lower numbers:
    // all that is new is of what was the current boot, or of a later one.
    return isInRange(firstBoot) || isInRange(entry.boot);
}

void Following::BeginLive(bool isFromStart) {
    liveIndex = SIZE_MAX;
    liveFd = -1;
    if (catalogue.entries.empty() || catalogue.entries.back().kind != Kind::Live) return;
    liveIndex = catalogue.entries.size() - 1;
    const Place shown = catalogue.placed[catalogue.entries[liveIndex].id].place;
    liveFd = shown.fd;
    liveNumber = 1;
    liveHash = 0;
    if (!isFromStart && shown.size != 0) {
        live.Open(shown, false);
        std::string_view block;
        while (live.Next(block)) {
            if (liveNumber == 1) liveHash = Hash(block.substr(0, block.find('\n')));
            liveNumber += CountLines(block);
        }
    }
    Place rest;
    rest.fd = liveFd;
    rest.offset = liveOffset = isFromStart ? 0 : shown.size;
    live.Open(rest, false);
    live.Follow();
}

// Returns true if there was anything.
bool Following::ReadLive() {
    if (liveIndex == SIZE_MAX) return false;
    bool hasAny = false;
    std::string_view block;
    while (!isStopped && live.Next(block)) {
        hasAny = true;
        if (liveNumber == 1) liveHash = Hash(block.substr(0, block.find('\n')));
        struct stat status {};
        (void)fstat(liveFd, &status);
        const Entry& entry = catalogue.entries[liveIndex];
        scanner.Begin(entry, status.st_mtim.tv_sec, liveHash, liveNumber);
        if (IsWanted(entry)) {
            isStopped =
                !scanner.ScanBlock(block, [&](const SharedInfo& info, const Reader::Run& run) {
                    return selection.Add(info, run);
                });
        }
        liveNumber += CountLines(block);
    }
    return hasAny;
}

bool Following::ReadWhole(std::size_t index) {
    const Entry& entry = catalogue.entries[index];
    if (!IsWanted(entry)) return true;
    OpenFile file;
    FileResult result;
    result.open = catalogue.Open(index, file, result.problem);
    if (result.open == OpenResult::Opened) {
        result = scanner.Scan(entry, std::move(file), {},
                              [&](const SharedInfo& info, const Reader::Run& run) {
                                  isStopped = !selection.Add(info, run);
                                  return !isStopped;
                              });
    }
    if (!result.problem.empty()) report(std::string(entry.Name()), result.problem);
    return !isStopped;
}

Following::Change Following::LookAtLive() const {
    struct stat named {};
    struct stat mine {};
    if (stat(Moraine::SyslogPfe.c_str(), &named) != 0) return Change::Gone;
    if (liveIndex == SIZE_MAX || fstat(liveFd, &mine) != 0 || mine.st_ino != named.st_ino ||
        mine.st_dev != named.st_dev) {
        return Change::Replaced;
    }
    const std::uint64_t position = liveOffset + live.FileBytes();
    return static_cast<std::uint64_t>(mine.st_size) < position ? Change::Truncated : Change::None;
}

bool Following::IsKnown(const Catalogue& now, const Entry& entry, std::size_t index) const {
    struct stat status {};
    OpenFile file;
    if (entry.isPlaced) {
        if (fstat(now.placed[entry.id].place.fd, &status) != 0) return true;
    } else {
        std::string error;
        const auto& old = catalogue.entries;
        const std::size_t first =
            old.size() > KnownArchiveFiles ? old.size() - KnownArchiveFiles : 0;
        for (std::size_t i = first; i < old.size(); ++i) {
            // Its name behind the boot number, too: an inode is used again after a deletion.
            const bool isSame = old[i].id == entry.id && old[i].Rest() == entry.Rest();
            if (!old[i].isPlaced && isSame) return true;
        }
        if (now.Open(index, file, error) != OpenResult::Opened) return false;
    }
    return std::any_of(catalogue.held.begin(), catalogue.held.end(), [&](const Descriptor& held) {
        if (!entry.isPlaced) return IsFormOf(file, held.Get());
        struct stat mine {};
        return fstat(held.Get(), &mine) == 0 && mine.st_ino == status.st_ino &&
               mine.st_dev == status.st_dev;
    });
}

// The files behind the last one that was in the snapshot before, whose waiting files are still
// open: so no new file has the inode of one of them.
std::vector<std::size_t> Following::FindNew(const Catalogue& now) const {
    std::vector<std::size_t> found;
    for (std::size_t i = now.entries.size(); i-- != 0;) {
        if (IsKnown(now, now.entries[i], i)) break;
        found.push_back(i);
    }
    std::reverse(found.begin(), found.end());
    return found;
}

// From the live log that was to the one that is. Returns false if no more is wanted.
bool Following::GoOn() {
    live.FinishFollowing();
    (void)ReadLive();
    Catalogue now;
    OpenDeviceFolders(now);  // Its problems were reported at the beginning.
    const std::vector<std::size_t> found = FindNew(now);
    std::swap(catalogue, now);
    if (found.empty()) {
        // The live log is a known file again: it has been put back. Nothing is printed twice.
        HoldBackUnfinished();
        BeginLive(false);
        return !isStopped;
    }
    for (const std::size_t index : found) {
        if (catalogue.entries[index].kind == Kind::Live) break;
        if (!ReadWhole(index)) return false;
    }
    BeginLive(true);
    return !isStopped;
}

void Following::Run(const std::function<bool()>& idle) {
    FolderEvents events;
    BeginLive(false);
    while (!isStopped) {
        if (ReadLive()) continue;
        const Change change = LookAtLive();
        if (change == Change::Replaced && !GoOn()) return;
        // Where the new one cannot be opened, it is waited for as if there were none.
        if (change == Change::Replaced && liveIndex != SIZE_MAX) continue;
        if (change == Change::Truncated) BeginLive(true);
        if (!idle()) return;
        events.Wait();
    }
}

}  // namespace

bool Log::Follow(const Query& query, const Take& take, const std::function<bool()>& idle) {
    bool isStopped = false;
    const Take takeAndNote = [&](const Line& line) {
        isStopped = !take(line);
        return !isStopped;
    };
    Selection selection({query.contextBefore, query.contextAfter, 0, UINT64_MAX, query.marksBlocks},
                        takeAndNote);
    Following following(query, files->catalogue, report, selection);
    following.HoldBackUnfinished();
    const bool hasFailed =
        files->Read(query, takeAndNote, report, selection.HasContext() ? &selection : nullptr);
    // A reading that was cancelled has not reached the place where following begins.
    const bool isCancelled = query.cancel != nullptr && *query.cancel;
    if (!isStopped && !isCancelled) following.Run(idle);
    return hasFailed;
}

}  // namespace Reader
