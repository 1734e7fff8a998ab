// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Deleting archive files boot by boot.
#include "daemon/moraine.h"
#include "futils/futils.h"
#include "logfileutils/log_file_utils.h"
#include "logging/logging.h"

namespace {

// One walk over the archive: what it may delete, and what it has deleted.
class PruningWalk {
public:
    PruningWalk(unsigned short maxFiles, unsigned short maxReboots)
        : maxFiles(maxFiles), maxReboots(maxReboots) {}

    // Handles the next name. Returns true when the walk is over.
    bool Visit(const std::string& name) {
        return LogFileUtils::IsArchiveFileName(name) ? VisitArchiveFile(name) : VisitForeign(name);
    }

private:
    static bool VisitForeign(const std::string& name) {
        const bool failed = Futils::Remove(Moraine::ArchPathAbs / name);
        Log::Debug("Deleted non-archival file: %s", name.c_str());
        return failed;
    }

    bool VisitArchiveFile(const std::string& name) {
        unsigned short bootNum = 0;
        if (LogFileUtils::GetFnBootNum(name, bootNum)) return true;
        if (prevBoot != 0 && bootNum != prevBoot) ++rebootCount;
        prevBoot = bootNum;
        if (rebootCount >= maxReboots) return true;

        const bool failed = Futils::Remove(Moraine::ArchPathAbs / name);
        ++filesDeleted;
        Log::Debug("Deleted %u file%c, %u reboot%c: %s", filesDeleted, PluralLetter(filesDeleted),
                   rebootCount, PluralLetter(rebootCount), name.c_str());
        return failed || filesDeleted >= maxFiles;
    }

    static char PluralLetter(unsigned count) { return count == 1 ? ' ' : 's'; }

    const unsigned short maxFiles;
    const unsigned short maxReboots;
    unsigned short filesDeleted = 0;
    unsigned short rebootCount = 0;  // changes of the boot number passed so far
    unsigned short prevBoot = 0;     // 0: none; so a change from boot 0 is not counted
};

template <typename Iterator>
void Walk(PruningWalk& walk, Iterator name, Iterator end) {
    while (name != end && !walk.Visit(*name)) ++name;
}

}  // namespace

bool LogFileUtils::DeleteArchiveFiles(bool oldestFirst, unsigned short maxFiles,
                                      unsigned short maxReboots) const {
    std::set<std::string> names;
    if (Futils::GetFilesInDir(names, Moraine::ArchPathAbs)) return true;
    if (maxFiles == 0 || maxReboots == 0) return false;

    PruningWalk walk(maxFiles, maxReboots);
    if (oldestFirst) {
        Walk(walk, names.cbegin(), names.cend());
    } else {
        Walk(walk, names.crbegin(), names.crend());
    }
    return false;  // A failed removal has been logged; the next start prunes again.
}
