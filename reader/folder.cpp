// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Listing folders: the archive, and a copy of the log.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>

#include "daemon/moraine.h"
#include "reader/catalogue.h"
#include "reader/folder_walk.h"

namespace Reader {

namespace {

// Whether the entry is something else than a regular file. Most file systems say so in the listing.
bool IsIrregular(int folder, const dirent& entry) {
    if (entry.d_type != DT_UNKNOWN) return entry.d_type != DT_REG;
    struct stat status {};
    return fstatat(folder, entry.d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           !S_ISREG(status.st_mode);
}

timespec ChangeTime(int folder) {
    struct stat status {};
    (void)fstat(folder, &status);
    return status.st_ctim;
}

std::string Join(const std::string& folder, std::string_view name) {
    return folder + "/" + std::string(name);
}

// An entry that may be an archive file, judged by its name.
void AddArchiveFile(int folder, const std::string& path, const dirent& entry,
                    Catalogue& catalogue) {
    const Name name = ParseArchiveName(entry.d_name);
    if (name.form == Name::Form::Foreign) return;
    if (IsIrregular(folder, entry)) {
        catalogue.problems.push_back({Join(path, entry.d_name), "not a regular file, skipped"});
    } else if (name.form == Name::Form::Misnamed) {
        catalogue.problems.push_back(
            {Join(path, entry.d_name), "no boot number in its name, skipped", true});
    } else {
        catalogue.Add(entry.d_name, name, entry.d_ino);
    }
}

// What waits in a copied folder. A compressed file beside its source is half made.
void AddWaiting(int folder, const std::string& path, const std::set<std::string>& names,
                Catalogue& catalogue) {
    for (const std::string& name : names) {
        const Name parsed = ParseName(name);
        if (parsed.isCompressed && names.contains(name.substr(0, name.size() - 3))) continue;
        OpenFile file;
        std::string error;
        const OpenResult result = OpenRegular(folder, name.c_str(), file, error);
        if (result == OpenResult::Failed) catalogue.problems.push_back({Join(path, name), error});
        if (result != OpenResult::Opened) continue;
        file.place.size = file.size;
        catalogue.AddPlaced(name, parsed, {file.place, file.mtime});
        catalogue.held.push_back(std::move(file.owned));
    }
}

}  // namespace

// A renumbering in the middle of the listing would show a file under two names or under none, so a
// folder that changed is listed again. That it changes all the time does no harm: then files come
// and go, and names stay.
void ListArchive(int folder, const std::string& path, Catalogue& catalogue) {
    constexpr int MaxListings = 3;
    const std::size_t entries = catalogue.entries.size();
    const std::size_t problems = catalogue.problems.size();
    for (int i = 0; i < MaxListings; ++i) {
        const timespec before = ChangeTime(folder);
        catalogue.entries.resize(entries);
        catalogue.problems.resize(problems);
        FolderWalk walk(folder);
        while (const dirent* const entry = walk.Next()) {
            AddArchiveFile(folder, path, *entry, catalogue);
        }
        if (walk.Error() != 0) catalogue.problems.push_back({path, strerror(walk.Error())});
        const timespec after = ChangeTime(folder);
        if (before.tv_sec == after.tv_sec && before.tv_nsec == after.tv_nsec) return;
    }
}

void OpenFolder(const std::string& path, Catalogue& catalogue) {
    const Descriptor folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder.IsOpen()) {
        catalogue.problems.push_back({path, strerror(errno)});
        return;
    }
    const std::string archivePath = Join(path, Moraine::ArchPathRel.native());
    catalogue.folder = Descriptor(
        openat(folder.Get(), Moraine::ArchPathRel.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const int error = catalogue.folder.IsOpen() ? 0 : errno;
    if (error != 0 && error != ENOENT && error != ENOTDIR) {
        catalogue.problems.push_back({archivePath, strerror(error)});
    }

    // Without a folder for it, the archive is here: this is an archive folder or a download.
    const bool isFlat = error != 0;
    std::set<std::string> waiting;
    FolderWalk walk(folder.Get());
    while (const dirent* const entry = walk.Next()) {
        const Name name = ParseName(entry->d_name);
        if (name.form == Name::Form::Log && name.kind != Kind::Archive) {
            waiting.insert(entry->d_name);
        } else if (isFlat) {
            AddArchiveFile(folder.Get(), path, *entry, catalogue);
        }
    }
    if (walk.Error() != 0) catalogue.problems.push_back({path, strerror(walk.Error())});
    AddWaiting(folder.Get(), path, waiting, catalogue);
    if (isFlat) {
        catalogue.folder =
            Descriptor(openat(folder.Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    } else {
        ListArchive(catalogue.folder.Get(), archivePath, catalogue);
    }
    catalogue.Finish(0);
}

}  // namespace Reader
