// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Read-only questions about the archive and the syslog directory.
#include <algorithm>

#include "daemon/moraine.h"
#include "futils/futils.h"
#include "logfileutils/boot_numbers.h"
#include "logfileutils/log_file_utils.h"
#include "util/elapsed_time.h"

namespace fs = std::filesystem;

namespace {

// Counts the files of `dir` whose names `accepts`. Returns true on failure, with `count` 0.
bool CountFiles(unsigned short& count, const fs::path& dir, bool (*accepts)(const std::string&)) {
    count = 0;
    std::set<std::string> names;
    if (Futils::GetFilesInDir(names, dir)) return true;
    count = static_cast<unsigned short>(std::count_if(names.begin(), names.end(), accepts));
    return false;
}

}  // namespace

bool LogFileUtils::GetArchDirSize(unsigned long& size) const {
    return Futils::GetDirSize(Moraine::ArchPathAbs, size);
}

bool LogFileUtils::GetNumArchFiles(unsigned short& count) const {
    return CountFiles(count, Moraine::ArchPathAbs, IsArchiveFileName);
}

bool LogFileUtils::GetNumSyslogRots(unsigned short& count) const {
    return CountFiles(count, Moraine::SyslogPathAbs, IsSyslogRotFn);
}

bool LogFileUtils::GetSyslogStats(SyslogStats_s& stats) const {
    stats = {.size = 0, .timeStamp = Util::MonotonicNow(), .numRots = 0};
    if (GetNumSyslogRots(stats.numRots)) return true;
    if (Futils::FileExists(Moraine::SyslogPfe) &&
        Futils::GetFileSize(stats.size, Moraine::SyslogPfe)) {
        return true;
    }
    stats.timeStamp = Util::MonotonicNow();
    return false;
}

bool LogFileUtils::GetBootNumRange(unsigned short& min, unsigned short& max) const {
    const Catalogue::BootNumbers found = Catalogue::ReadBootNumbers();
    min = found.min;
    max = found.max;
    return false;
}

bool LogFileUtils::GetNumReboots(unsigned short& count) const {
    count = 0;
    unsigned short min = Moraine::MaxBootNum;
    unsigned short max = 0;
    if (GetBootNumRange(min, max)) return true;
    if (min != 0 || max != 0) count = static_cast<unsigned short>(max + 1 - min);
    return false;
}

bool LogFileUtils::GetArchiveStats(ArchiveStats_s& stats, bool refresh) {
    stats = {};
    const bool isKnown = numReboots <= Moraine::MaxBootNum;
    if (refresh || !isKnown) {
        unsigned short count = 0;
        if (GetNumReboots(count)) return true;
        numReboots = count;
    }
    stats.numReboots = numReboots;
    return GetNumArchFiles(stats.numFiles) || GetArchDirSize(stats.dirSize);
}

std::set<std::string> LogFileUtils::GetArchiveFileList() const {
    std::set<std::string> names;
    if (Futils::GetFilesInDir(names, Moraine::ArchPathAbs)) return {};
    std::erase_if(names, [](const std::string& name) { return !IsArchiveFileName(name); });
    return names;
}
