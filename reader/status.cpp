// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "reader/status.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>
#include <set>
#include <string_view>

#include "daemon/moraine.h"
#include "reader/format.h"
#include "reader/names.h"
#include "reader/service.h"

namespace Reader {

namespace {

constexpr const char* DaemonPidFile = "/var/run/vandis-moraine.pid";
constexpr std::uint64_t MaxRotations = 10;            // that syslogd keeps
constexpr std::uint64_t DefaultRotation = 1UL << 20;  // the size at which syslogd rotates

// Gets each entry's name and what it is; an entry that has vanished since is left out.
using TakeEntry = std::function<void(const char* name, const struct stat& status)>;

// Returns errno, or 0.
int ForEachEntry(const std::string& folder, const TakeEntry& take) {
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(folder.c_str()), closedir);
    if (!entries) return errno;
    while (true) {
        errno = 0;
        const dirent* entry = readdir(entries.get());
        if (entry == nullptr) return errno;
        const std::string_view name = entry->d_name;
        struct stat status {};
        if (name == "." || name == ".." ||
            fstatat(dirfd(entries.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
            continue;
        }
        take(entry->d_name, status);
    }
}

std::uint64_t Size(const struct stat& status) {
    return static_cast<std::uint64_t>(status.st_size);
}

std::string Counted(std::uint64_t count, const char* one, const char* many) {
    return std::to_string(count) + ' ' + (count == 1 ? one : many);
}

class Inspection {
public:
    Status Run() {
        LookAtDaemon();
        LookAtSyslogd();
        LookAtArchive();
        LookAtWaitingLogs();
        LookAtRoom();
        return std::move(status);
    }

private:
    void LookAtDaemon() {
        const std::optional<int> pid = ReadPidFile(DaemonPidFile);
        const bool isInFile = pid && IsProgram(*pid, Moraine::Name);
        status.daemon = isInFile ? pid : FindProgram(Moraine::Name);
        if (!status.daemon) {
            AddReason("the daemon is not running: start it with " + Moraine::ArchStartCmd +
                      "; the log says why it ended");
        }
    }

    void LookAtSyslogd() {
        const std::optional<int> pid = ReadPidFile(Moraine::SyslogPidPfe.c_str());
        const std::optional<std::string> name = pid ? ProcessName(*pid) : std::nullopt;
        if (!name) {
            AddReason("syslogd is not running: start it with " + Moraine::SyslogStartCmd);
        } else if (!IsProgram(*pid, "syslogd")) {
            AddReason(Moraine::SyslogPidPfe.native() + " names another process, " + *name + " (" +
                      std::to_string(*pid) + "): remove the file and run " +
                      Moraine::SyslogInit.native() + " restart");
        } else {
            status.syslogd = pid;
        }
    }

    void LookAtArchive() {
        std::set<std::uint32_t> boots;
        std::uint64_t foreign = 0;
        std::string example;
        const auto take = [&](const char* entry, const struct stat& entryStatus) {
            const Name name = ParseArchiveName(entry);
            if (name.form != Name::Form::Log || !S_ISREG(entryStatus.st_mode)) {
                if (foreign++ == 0 || entry < example) example = entry;
                return;
            }
            ++status.archiveFiles;
            status.archiveBytes += Size(entryStatus);
            boots.insert(name.boot);
        };
        const int error = ForEachEntry(Moraine::ArchPathAbs, take);
        if (error == ENOENT || error == ENOTDIR) {
            AddReason("the archive folder " + Moraine::ArchPathAbs.native() +
                      " is missing: mount /perm and run " + Moraine::ArchInit.native() +
                      " restart");
        } else if (error != 0) {
            CannotRead(Moraine::ArchPathAbs, error);
        }
        status.boots = boots.size();
        if (!boots.empty()) {
            status.oldestBoot = *boots.begin();
            status.newestBoot = *boots.rbegin();
        }
        if (foreign > 0) {
            AddReason(Counted(foreign, "foreign file", "foreign files") + " in " +
                      Moraine::ArchPathAbs.native() + " (" + example + "): move it elsewhere");
        }
    }

    void LookAtWaitingLogs() {
        const auto take = [&](const char* entry, const struct stat& entryStatus) {
            const Name name = ParseName(entry);
            if (name.form != Name::Form::Log || name.isCompressed ||
                !S_ISREG(entryStatus.st_mode)) {
                return;
            }
            largest = std::max(largest, Size(entryStatus));
            if (name.kind == Kind::Live) {
                status.liveLogBytes = Size(entryStatus);
            } else if (name.kind == Kind::Rotation) {
                ++status.rotations;
                status.rotationBytes += Size(entryStatus);
            }
        };
        const int error = ForEachEntry(Moraine::SyslogPathAbs, take);
        // Without this folder there is no archive in it, which is reason enough.
        if (error != 0 && error != ENOENT && error != ENOTDIR) {
            CannotRead(Moraine::SyslogPathAbs, error);
        }
        if (status.rotations >= MaxRotations) {
            AddReason(
                Counted(status.rotations, "rotation is", "rotations are") +
                " waiting, and syslogd has no further name: log less, or raise ROTATION_KB in "
                "/etc/default/syslogd-moraine");
        }
    }

    void LookAtRoom() {
        struct statvfs room {};
        if (statvfs(Moraine::SyslogPathAbs.c_str(), &room) != 0 && statvfs("/perm", &room) != 0) {
            return;
        }
        status.freeBytes = std::uint64_t{room.f_bavail} * room.f_frsize;
        // Room that is kept for root is there for syslogd and the daemon.
        if (std::uint64_t{room.f_bfree} * room.f_frsize < largest) {
            AddReason(
                "the file system has no room for the next rotation: delete other files from "
                "/perm, or archive files with moraine delete --oldest");
        }
    }

    void AddReason(std::string reason) { status.reasons.push_back(std::move(reason)); }

    void CannotRead(const std::filesystem::path& path, int error) {
        status.unreadable.push_back("cannot read " + path.native() + ": " + std::strerror(error));
    }

    Status status;
    std::uint64_t largest = DefaultRotation;  // of the files that wait, or the usual size
};

std::string JsonPid(const std::optional<int>& pid) {
    return pid ? "{\"pid\":" + std::to_string(*pid) + "}" : "null";
}

std::string JsonNumber(const std::optional<unsigned>& number) {
    return number ? std::to_string(*number) : "null";
}

}  // namespace

Status ReadStatus() {
    return Inspection().Run();
}

std::string ToJson(const Status& status) {
    std::string text = "{\"healthy\":";
    text += status.reasons.empty() ? "true" : "false";
    text += ",\"reasons\":[";
    for (const std::string& reason : status.reasons) {
        if (&reason != &status.reasons.front()) text += ',';
        AppendJsonString(text, reason);
    }
    text += "],\"daemon\":" + JsonPid(status.daemon) + ",\"syslogd\":" + JsonPid(status.syslogd);
    text += ",\"archive\":{\"files\":" + std::to_string(status.archiveFiles) +
            ",\"bytes\":" + std::to_string(status.archiveBytes) +
            ",\"limit_bytes\":" + std::to_string(Status::ArchiveLimit) +
            ",\"boots\":" + std::to_string(status.boots) +
            ",\"oldest_boot\":" + JsonNumber(status.oldestBoot) +
            ",\"newest_boot\":" + JsonNumber(status.newestBoot) + "}";
    text += ",\"waiting\":{\"rotations\":" + std::to_string(status.rotations) +
            ",\"bytes\":" + std::to_string(status.rotationBytes) + "}";
    text += ",\"live_log_bytes\":" + std::to_string(status.liveLogBytes) +
            ",\"free_bytes\":" + std::to_string(status.freeBytes);
    return text + "}";
}

}  // namespace Reader
