// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "reader/log.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>

#include "daemon/moraine.h"
#include "reader/hash.h"
#include "reader/log_files.h"

namespace Reader {

Cursor Line::GetCursor() const {
    Cursor cursor;
    cursor.anchor = source->anchor;
    if (source->kind == Kind::Archive) {
        cursor.anchor = {ShortHash(source->name), ShortHash(ParseArchiveName(source->name).rest),
                         0};
    }
    cursor.file = fileHash;
    cursor.number = number;
    cursor.line = ShortHash(text);
    return cursor;
}

std::string Log::Files::PathOf(std::size_t index) const {
    const Entry& entry = catalogue.entries[index];
    const std::string& folder = entry.isPlaced ? waitingPath : folderPath;
    return folder.empty() ? std::string(entry.Name()) : folder + "/" + std::string(entry.Name());
}

Log::Log(Report report) : files(std::make_unique<Files>()), report(std::move(report)) {}
Log::~Log() = default;

bool Log::OpenDevice() {
    OpenDeviceFolders(files->catalogue);
    files->folderPath = Moraine::ArchPathAbs.native();
    files->waitingPath = Moraine::SyslogPathAbs.native();
    return FinishOpening();
}

bool Log::OpenCopy(const std::string& path) {
    struct stat status {};
    if (path != "-" && stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode)) {
        OpenFolder(path, files->catalogue);
        const std::string archivePath = path + "/" + Moraine::ArchPathRel.native();
        const bool hasFolder = stat(archivePath.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
        files->waitingPath = path;
        files->folderPath = hasFolder ? archivePath : path;
        return FinishOpening();
    }
    const bool isStandardInput = path == "-";
    const std::string shown = isStandardInput ? "standard input" : path;
    Descriptor file(isStandardInput ? dup(STDIN_FILENO)
                                    : open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
    if (file.IsOpen()) {
        OpenTar(shown, std::move(file), files->catalogue);
    } else {
        files->catalogue.problems.push_back({shown, strerror(errno)});
    }
    return FinishOpening();
}

bool Log::FinishOpening() {
    files->isReported.assign(NumSources(), false);
    std::vector<Problem>& problems = files->catalogue.problems;
    std::sort(problems.begin(), problems.end(),
              [](const Problem& a, const Problem& b) { return a.file < b.file; });
    bool hasFailed = false;
    for (const Problem& problem : problems) {
        if (problem.isMisnamed && misnamed) {
            misnamed(std::string(BareName(problem.file)), problem.reason);
        } else {
            report(problem.file, problem.reason);
            hasFailed = true;
        }
    }
    problems.clear();
    return hasFailed;
}

std::size_t Log::NumSources() const {
    return files->catalogue.entries.size();
}

Source Log::GetSource(std::size_t index) const {
    const Entry& entry = files->catalogue.entries[index];
    return entry.GetSource();
}

std::uint64_t Log::GetSize(std::size_t index) const {
    const Catalogue& catalogue = files->catalogue;
    const Entry& entry = catalogue.entries[index];
    if (entry.isPlaced) return catalogue.placed[entry.id].place.size;
    struct stat status {};
    if (fstatat(catalogue.folder.Get(), entry.name, &status, AT_SYMLINK_NOFOLLOW) != 0) return 0;
    return static_cast<std::uint64_t>(status.st_size);
}

int Log::OpenSource(std::size_t index, std::string& error) const {
    const Catalogue& catalogue = files->catalogue;
    const Entry& entry = catalogue.entries[index];
    if (entry.isPlaced) {
        const int copy = fcntl(catalogue.placed[entry.id].place.fd, F_DUPFD_CLOEXEC, 0);
        if (copy < 0) error = strerror(errno);
        return copy;
    }
    OpenFile file;
    return catalogue.Open(index, file, error) == OpenResult::Opened ? file.owned.Release() : -1;
}

const std::vector<std::string>& Log::Unreadable() const {
    return files->catalogue.unreadable;
}

std::uint32_t Log::CurrentBoot() const {
    return files->catalogue.currentBoot;
}

std::vector<BootFiles> Log::Boots() const {
    std::map<std::uint32_t, BootFiles> byNumber;
    for (std::size_t i = 0; i < NumSources(); ++i) {
        byNumber[files->catalogue.entries[i].boot].sources.push_back(i);
    }
    const auto current = byNumber.lower_bound(CurrentBoot());
    auto offset = -std::distance(byNumber.begin(), current);
    std::vector<BootFiles> boots;
    for (auto& [number, row] : byNumber) {
        row.boot = number;
        row.isCurrent = number == CurrentBoot();
        // 0 is the current boot, whether it has a log or not.
        if (offset == 0 && !row.isCurrent) ++offset;
        row.offset = offset++;
        boots.push_back(std::move(row));
    }
    return boots;
}

std::optional<std::uint32_t> Log::BootAt(std::int64_t offset) const {
    if (offset == 0) return CurrentBoot();
    for (const BootFiles& row : Boots()) {
        if (row.offset == offset) return row.boot;
    }
    return std::nullopt;
}

}  // namespace Reader
