// Read-only questions about the archive and the syslog directory.
#include "daemon/moraine.h"
#include "futils/directory_walk.h"
#include "futils/futils.h"
#include "logfileutils/boot_numbers.h"
#include "logfileutils/log_file_utils.h"
#include "util/elapsed_time.h"

namespace fs = std::filesystem;

namespace {

// The name without its last extension, as std::filesystem's stem tells it in many times the time.
std::string Stem(const std::string& name) {
    const std::size_t dot = name.rfind('.');
    return dot == 0 ? name : name.substr(0, dot);
}

// Counts the files of `dir` whose names `accepts`. Returns true on failure, with `count` 0.
bool CountFiles(unsigned short& count, const fs::path& dir, bool (*accepts)(const std::string&)) {
    count = 0;
    unsigned short accepted = 0;
    if (Futils::VisitFilesInDir(dir, [&](const char* name) { accepted += accepts(name); })) {
        return true;
    }
    count = accepted;
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

BootNumbers ReadBootNumbers() {
    BootNumbers found;
    DirectoryWalk walk(Moraine::ArchPathAbs.c_str());
    while (walk.Next()) {
        unsigned short number = 0;
        (void)LogFileUtils::GetFnBootNum(Stem(walk.Name()), number);  // 0: foreign
        if (number > found.max) found.max = number;
        if (number < found.min) found.min = number;
        if (number <= BootNumbers::Max) found.used.set(number);
    }
    if (found.min == BootNumbers::Max && found.max == 0) found.min = 0;
    return found;
}

bool LogFileUtils::GetBootNumRange(unsigned short& min, unsigned short& max) const {
    const BootNumbers found = ReadBootNumbers();
    min = found.min;
    max = found.max;
    return false;
}

bool LogFileUtils::GetNumReboots(unsigned short& count) const {
    count = 0;
    unsigned short min = 999;
    unsigned short max = 0;
    if (GetBootNumRange(min, max)) return true;
    if (min != 0 || max != 0) count = static_cast<unsigned short>(max + 1 - min);
    return false;
}

bool LogFileUtils::GetArchiveStats(ArchiveStats_s& stats, bool refresh) {
    stats = {};
    const bool isKnown = numReboots <= 999;
    if (refresh || !isKnown) {
        unsigned short count = 0;
        if (GetNumReboots(count)) return true;
        numReboots = count;
    }
    stats.numReboots = numReboots;
    return GetNumArchFiles(stats.numFiles) ||
           Futils::GetDirSize(Moraine::ArchPathAbs, stats.dirSize);
}

std::set<std::string> LogFileUtils::GetArchiveFileList() const {
    std::set<std::string> names;
    if (Futils::GetFilesInDir(names, Moraine::ArchPathAbs)) return {};
    std::erase_if(names, [](const std::string& name) { return !IsArchiveFileName(name); });
    return names;
}
