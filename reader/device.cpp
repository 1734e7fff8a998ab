// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// A consistent view of the device's own folders, while syslogd and the daemon work in them.
//
// Text moves in one direction only:
//
//     messages.txt -> messages.txt.0 -> messages.txt.1 -> ... -> archive
//     messages.txt -> messages.txt.tmp                        -> archive
//
// syslogd renames, and the daemon makes the archive file before it removes the source. So whoever
// looks at the places in this order, and holds open what it found, misses nothing: a file that was
// not found at a place yet is found at a later one. What remains is to find nothing twice, and
// nothing newer than what was found before it.
//
// 1. The files that wait are listed and opened, and then listed again until both listings name the
//    same files: this is the state of the folder at one moment. Renaming and removal do not matter
//    any more, because the files are open. The live log counts up to its length at that moment.
// 2. The archive is listed. A file that waited may be in it now. xz gives the compressed file the
//    time of its source, to the nanosecond, so the newest archive files are compared with the files
//    that are held: those of the same time, length and beginning of text are left out.
// 3. If the live log has been rotated in the meantime, files that are newer than the snapshot may
//    be in the archive, too: all of it is done again. Where it is rotated each time, the archive is
//    cut before the first file that was left out in step 2, since all behind it is newer.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <ctime>
#include <map>

#include "daemon/moraine.h"
#include "reader/catalogue.h"
#include "reader/device.h"
#include "reader/folder_walk.h"

namespace Reader {

namespace {

constexpr const char* BootPfe = "/var/run/vandis-moraine.boot";
constexpr const char* LockPfe = "/var/run/vandis-moraine.lock";

// As many as may be archived while the folders are looked at, and many more.
constexpr std::size_t MaxCompared = 64;

bool IsSameTime(const timespec& a, const timespec& b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

struct Identity {
    dev_t device = 0;
    ino_t inode = 0;
    bool operator==(const Identity&) const = default;
};

struct Waiting {
    Identity identity;
    Descriptor file;
    std::string problem;
};

using WaitingFiles = std::map<std::string, Waiting>;

// The names of what waits. Compressed files are half made here. Returns true on failure, with the
// names so far.
bool ListWaiting(int folder, std::vector<std::string>& names, std::string& error) {
    names.clear();
    FolderWalk walk(folder);
    while (const dirent* const entry = walk.Next()) {
        const Name name = ParseName(entry->d_name);
        if (name.form == Name::Form::Log && !name.isCompressed) names.emplace_back(entry->d_name);
    }
    std::sort(names.begin(), names.end());
    if (walk.Error() != 0) error = strerror(walk.Error());
    return walk.Error() != 0;
}

bool GetIdentity(int folder, const std::string& name, Identity& identity) {
    struct stat status {};
    if (fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return true;
    identity = {status.st_dev, status.st_ino};
    return false;
}

void OpenWaiting(int folder, const std::string& name, WaitingFiles& files) {
    OpenFile file;
    Waiting waiting;
    if (OpenRegular(folder, name.c_str(), file, waiting.problem) == OpenResult::Gone) return;
    if (waiting.problem.empty()) {
        struct stat status {};
        if (fstat(file.owned.Get(), &status) != 0) return;
        waiting.identity = {status.st_dev, status.st_ino};
        waiting.file = std::move(file.owned);
    } else if (GetIdentity(folder, name, waiting.identity)) {
        return;
    }
    files.emplace(name, std::move(waiting));
}

bool IsUnchanged(int folder, const std::vector<std::string>& names, const WaitingFiles& files) {
    if (names.size() != files.size()) return false;
    return std::all_of(names.begin(), names.end(), [&](const std::string& name) {
        const auto found = files.find(name);
        Identity now;
        return found != files.end() && !GetIdentity(folder, name, now) &&
               now == found->second.identity;
    });
}

// The daemon moves the rotation that it has archived aside, to the name of an interrupted log,
// and makes sure that it is the right one. Its number is free then. If syslogd was faster, the file
// stays aside, and is archived next.
bool IsMovedAside(const WaitingFiles& files) {
    const std::string live = Moraine::SyslogPfe.filename().native();
    if (!files.contains(live + Moraine::TmpExt.native())) return false;
    constexpr int LastRotation = 9;
    bool isHole = false;
    for (int number = 0; number <= LastRotation; ++number) {
        const bool isThere = files.contains(live + "." + std::to_string(number));
        if (isThere && isHole) return true;
        isHole = !isThere;
    }
    return false;
}

void WaitAMoment() {
    constexpr timespec Moment{0, 1'000'000};
    (void)nanosleep(&Moment, nullptr);  // A signal may cut it short.
}

// Step 1. Between two rotations there is time for this many times over; where there is not, the
// last attempt has to do.
bool CollectWaiting(int folder, WaitingFiles& files, std::string& error) {
    constexpr int MaxAttempts = 1000;
    constexpr int MaxWaits = 50;
    std::vector<std::string> names;
    int waits = 0;
    for (int i = 0; i < MaxAttempts; ++i) {
        files.clear();
        const bool hasFailed = ListWaiting(folder, names, error);
        for (const std::string& name : names) OpenWaiting(folder, name, files);
        if (hasFailed || ListWaiting(folder, names, error)) return true;
        if (!IsUnchanged(folder, names, files)) continue;
        if (!IsMovedAside(files) || ++waits > MaxWaits) return false;
        WaitAMoment();
    }
    return false;
}

// The length of a compressed file's text, from the index at its end; 0 if it cannot be had.
std::uint64_t GetTextSize(const OpenFile& file) {
    constexpr std::size_t IndexLimit = 64UL << 10;
    std::array<std::uint8_t, LZMA_STREAM_HEADER_SIZE> footer{};
    if (file.size < 2 * footer.size()) return 0;
    const auto footerAt = static_cast<off_t>(file.size - footer.size());
    lzma_stream_flags flags{};
    if (pread(file.place.fd, footer.data(), footer.size(), footerAt) !=
            static_cast<ssize_t>(footer.size()) ||
        lzma_stream_footer_decode(&flags, footer.data()) != LZMA_OK ||
        flags.backward_size > IndexLimit ||
        flags.backward_size > static_cast<std::uint64_t>(footerAt)) {
        return 0;
    }
    std::vector<std::uint8_t> bytes(static_cast<std::size_t>(flags.backward_size));
    const ssize_t count = pread(file.place.fd, bytes.data(), bytes.size(),
                                footerAt - static_cast<off_t>(bytes.size()));
    if (count != static_cast<ssize_t>(bytes.size())) return 0;
    lzma_index* index = nullptr;
    std::uint64_t memory = 16 * IndexLimit;
    std::size_t position = 0;
    if (lzma_index_buffer_decode(&index, &memory, nullptr, bytes.data(), &position, bytes.size()) !=
        LZMA_OK) {
        return 0;
    }
    const std::uint64_t size = lzma_index_uncompressed_size(index);
    lzma_index_end(index, nullptr);
    return size;
}

// The beginnings of both texts, as far as the first blocks go, or that both are empty.
bool BeginsAlike(const OpenFile& archived, int source) {
    TextReader a;
    TextReader b;
    a.Open(archived.place, true);
    Place place;
    place.fd = source;
    b.Open(place, false);
    std::string_view left;
    std::string_view right;
    const bool hasLeft = a.Next(left);
    const bool hasRight = b.Next(right);
    if (!hasLeft || !hasRight) return hasLeft == hasRight && a.Damage().empty();
    const std::size_t length = std::min(left.size(), right.size());
    return left.substr(0, length) == right.substr(0, length);
}

// The status of a log at a moment when its last line is complete. syslogd writes a line by one
// call, but the kernel shows one that crosses a page when the first half is in. A line whose end
// was lost with the power stays without it.
bool GetStatusBetweenLines(int fd, struct stat& status) {
    constexpr int MaxWaits = 100;
    for (int waits = 0;; ++waits) {
        if (fstat(fd, &status) != 0) return true;
        char last = '\n';
        if (status.st_size != 0 && pread(fd, &last, 1, status.st_size - 1) != 1) return false;
        if (last == '\n' || waits == MaxWaits) return false;
        WaitAMoment();
    }
}

// Steps 2 and 3.
class DeviceSnapshot {
public:
    explicit DeviceSnapshot(Catalogue& catalogue) : catalogue(catalogue) {}
    void Take();

private:
    void AddProblem(const std::filesystem::path& path, const std::string& reason) {
        catalogue.problems.push_back({path.native(), reason});
    }
    bool IsLiveLogStill() const;
    void LeaveOutHeld(bool cutsBehind);
    void AddHeld();

    Catalogue& catalogue;
    Descriptor folder;
    WaitingFiles waiting;
};

void DeviceSnapshot::Take() {
    constexpr int MaxAttempts = 20;
    folder = Descriptor(open(Moraine::SyslogPathAbs.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder.IsOpen()) {
        AddProblem(Moraine::SyslogPathAbs, strerror(errno));
        return;
    }
    catalogue.folder =
        Descriptor(open(Moraine::ArchPathAbs.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const int archiveError = catalogue.folder.IsOpen() ? 0 : errno;
    bool isConsistent = false;
    for (int i = 0; i < MaxAttempts && !isConsistent; ++i) {
        catalogue.Clear();
        std::string error;
        if (CollectWaiting(folder.Get(), waiting, error)) AddProblem(Moraine::SyslogPathAbs, error);
        if (archiveError != 0) {
            AddProblem(Moraine::ArchPathAbs, strerror(archiveError));
        } else {
            ListArchive(catalogue.folder.Get(), Moraine::ArchPathAbs.native(), catalogue);
        }
        isConsistent = IsLiveLogStill();
    }
    const std::uint32_t current = ReadCurrentBoot();
    catalogue.Finish(current);
    LeaveOutHeld(!isConsistent);
    AddHeld();
    catalogue.Finish(current);
}

bool DeviceSnapshot::IsLiveLogStill() const {
    const std::string name = Moraine::SyslogPfe.filename().native();
    const auto live = waiting.find(name);
    Identity now;
    const bool isGone = GetIdentity(folder.Get(), name, now);
    if (live == waiting.end()) return isGone;
    return !isGone && now == live->second.identity;
}

void DeviceSnapshot::LeaveOutHeld(bool cutsBehind) {
    std::size_t compared = 0;
    bool hasFound = false;
    for (std::size_t i = catalogue.entries.size(); i-- != 0 && compared != MaxCompared;) {
        // Any number of newer files may stand before the first one that is known.
        if (!cutsBehind || hasFound) ++compared;
        struct stat status {};
        if (fstatat(catalogue.folder.Get(), catalogue.entries[i].name, &status,
                    AT_SYMLINK_NOFOLLOW) != 0) {
            continue;
        }
        const auto isCandidate = [&](const auto& file) {
            struct stat held {};
            return file.second.file.IsOpen() && fstat(file.second.file.Get(), &held) == 0 &&
                   IsSameTime(held.st_mtim, status.st_mtim);
        };
        const auto candidate = std::find_if(waiting.begin(), waiting.end(), isCandidate);
        OpenFile file;
        std::string error;
        if (candidate == waiting.end() || catalogue.Open(i, file, error) != OpenResult::Opened ||
            !std::any_of(candidate, waiting.end(), [&](const auto& held) {
                return held.second.file.IsOpen() && IsFormOf(file, held.second.file.Get());
            })) {
            continue;
        }
        compared = 0;
        hasFound = true;
        if (cutsBehind) {
            catalogue.entries.resize(i);
        } else {
            catalogue.Remove(i);
        }
    }
}

void DeviceSnapshot::AddHeld() {
    for (auto& [name, file] : waiting) {
        struct stat status {};
        if (!file.problem.empty() || GetStatusBetweenLines(file.file.Get(), status)) {
            AddProblem(Moraine::SyslogPathAbs / name,
                       file.problem.empty() ? strerror(errno) : file.problem);
            catalogue.unreadable.push_back(name);
            continue;
        }
        Placed placed;
        placed.place.fd = file.file.Get();
        placed.place.size = static_cast<std::uint64_t>(status.st_size);
        placed.mtime = status.st_mtim.tv_sec;
        catalogue.AddPlaced(name, ParseName(name), placed);
        catalogue.held.push_back(std::move(file.file));
    }
}

// The daemon holds a lock for its life. /proc shows it without taking it, which would keep a daemon
// from starting.
bool IsLockHeld(const struct stat& lock) {
    FILE* const locks = std::fopen("/proc/locks", "re");
    if (locks == nullptr) return true;
    const std::string inode = ":" + std::to_string(lock.st_ino) + " ";
    std::array<char, 256> line;
    bool isHeld = false;
    while (!isHeld && std::fgets(line.data(), static_cast<int>(line.size()), locks) != nullptr) {
        isHeld = std::string_view(line.data()).find(inode) != std::string_view::npos;
    }
    (void)std::fclose(locks);  // Only read from.
    return isHeld;
}

}  // namespace

std::uint32_t ReadCurrentBoot() {
    const Descriptor file(open(BootPfe, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    std::array<char, 16> text{};
    if (!file.IsOpen()) return 0;
    const ssize_t length = read(file.Get(), text.data(), text.size());
    std::uint32_t number = 0;
    if (length <= 0 ||
        std::from_chars(text.data(), text.data() + length, number).ec != std::errc()) {
        return 0;
    }
    // A daemon that was killed leaves its number behind.
    struct stat lock {};
    const bool isStale = stat(LockPfe, &lock) == 0 && !IsLockHeld(lock);
    return isStale ? 0 : number;
}

bool IsFormOf(const OpenFile& archived, int source) {
    struct stat of {};
    struct stat status {};
    if (fstat(archived.place.fd, &of) != 0 || fstat(source, &status) != 0) return false;
    return IsSameTime(status.st_mtim, of.st_mtim) &&
           GetTextSize(archived) == static_cast<std::uint64_t>(status.st_size) &&
           BeginsAlike(archived, source);
}

void OpenDeviceFolders(Catalogue& catalogue) {
    DeviceSnapshot(catalogue).Take();
}

}  // namespace Reader
