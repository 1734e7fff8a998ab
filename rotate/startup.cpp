// Start-up: directories, capacity, boot number, and the work that an earlier run left half done.
#include <vector>

#include "daemon/moraine.h"
#include "futils/directory_walk.h"
#include "futils/futils.h"
#include "logging/logging.h"
#include "rotate/rotate.h"
#include "rotate/source_file.h"

namespace fs = std::filesystem;

namespace {

// True for a compressed file that nobody is making any more.
bool IsLeftover(const fs::path& pfn) {
    if (pfn.extension() != Moraine::XzExt) return false;
    const SourceFile source(fs::path(pfn).replace_extension());
    return !source.IsTaken();
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
    if (CleanUpTempFiles()) return true;
    if (ResetArchDirSize()) return true;
    return CheckArchSize();
}

bool Rotate::SetBootNum() {
    unsigned short minBoot = 999;
    unsigned short maxBoot = 0;
    if (GetBootNumRange(minBoot, maxBoot)) return true;
    bootNum = maxBoot + 1U;
    return false;
}

bool Rotate::CleanUpTempFiles() {
    // Listed first: archiving makes and removes files in the directory that is walked.
    std::vector<fs::path> entries;
    DirectoryWalk walk(Moraine::SyslogPathAbs.c_str());
    while (walk.Next()) entries.push_back(Moraine::SyslogPathAbs / walk.Name());
    for (const fs::path& pfn : entries) {
        if (IsLeftover(pfn) && Futils::Remove(pfn)) return true;
        if (pfn.extension() == Moraine::TmpExt && Archive(pfn)) return true;
    }
    return false;
}
