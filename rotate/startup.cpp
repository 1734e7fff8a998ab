// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Start-up: directories, capacity, boot number, and the work that an earlier run left half done.
#include <cstddef>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "daemon/moraine.h"
#include "futils/directory_walk.h"
#include "futils/futils.h"
#include "logging/logging.h"
#include "rotate/rotate.h"

namespace fs = std::filesystem;

namespace {

// Listed before anything is done: archiving makes and removes files in this directory. Throws
// filesystem_error if it cannot be read.
std::vector<fs::path> ListSyslogDirectory() {
    std::vector<fs::path> entries;
    Futils::DirectoryWalk walk(Moraine::SyslogPathAbs);
    while (walk.Next()) entries.push_back(Moraine::SyslogPathAbs / walk.Name());
    return entries;
}

}  // namespace

bool Rotate::Init() {
    if (!Futils::PathExists(Moraine::SyslogPathAbs)) {
        Log::Warn(
            "Path '%s' does not exist.  There is a problem with syslog, or a mismatch in "
            "configurations.",
            Moraine::SyslogPathAbs.c_str());
        if (Futils::CreateDir(Moraine::SyslogPathAbs)) return true;
    }
    if (CheckPermCapacity()) return true;
    if (Futils::CreateDir(Moraine::ArchPathAbs)) return true;
    if (CheckReboots()) return true;  // It renumbers the boots that SetBootNum reads.
    if (SetBootNum()) return true;
    possibleTwins.reset();
    if (CleanUpTempFiles()) return true;
    // After the clean-up: removing a file needs the ".tmp" name.
    if (RemoveArchivedFiles()) return true;
    if (ResetArchDirSize()) return true;
    return CheckArchSize();
}

bool Rotate::SetBootNum() {
    unsigned short minBoot = Moraine::MaxBootNum;
    unsigned short maxBoot = 0;
    if (GetBootNumRange(minBoot, maxBoot)) return true;
    bootNum = maxBoot + 1U;
    return false;
}

// Each removal is synced before the next archiving: what comes back is among the newest files.
bool Rotate::ListPossibleTwins() {
    constexpr std::size_t MaxTwins = 1000;
    if (possibleTwins) return false;
    std::set<std::string> files;
    if (Futils::GetFilesInDir(files, Moraine::ArchPathAbs)) return true;
    // Not by IsArchiveFileName, to which a failed allocation is a foreign name.
    const std::string prefix = Moraine::SyslogFn.native() + '.';
    std::erase_if(files, [&](const std::string& name) {
        return !name.starts_with(prefix) || !name.ends_with(Moraine::XzExt.native());
    });
    while (files.size() > MaxTwins) files.erase(files.begin());
    possibleTwins = std::move(files);
    return false;
}

bool Rotate::RemoveArchivedFiles() {
    for (const fs::path& pfn : ListSyslogDirectory()) {
        if (IsSyslogRotFn(pfn.filename()) && RemoveIfArchived(pfn)) return true;
    }
    return false;
}

bool Rotate::CleanUpTempFiles() {
    for (const fs::path& pfn : ListSyslogDirectory()) {
        if (pfn.extension() == Moraine::XzExt && Futils::Remove(pfn)) return true;  // guard: copies
        if (pfn.extension() == Moraine::TmpExt && Archive(pfn)) return true;  // guard: leftovers
    }
    return false;
}
