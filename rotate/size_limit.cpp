// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The archive's size limit, with hysteresis: deletion starts at 1 GiB and goes on to 90 % of it, so
// that a full archive is not pruned at each new file. Between measurements the size is kept up by
// arithmetic. It is compared as a signed number: below zero means that the arithmetic went wrong.
#include <exception>

#include "daemon/moraine.h"
#include "futils/futils.h"
#include "logging/logging.h"
#include "rotate/rotate.h"

namespace fs = std::filesystem;

namespace {

constexpr auto SizeLimit = static_cast<long>(Moraine::MaxArchiveSize);
constexpr long LowerMark = SizeLimit / 10 * 9 + SizeLimit % 10 * 9 / 10;
constexpr unsigned long RequiredCapacity = SizeLimit / 10 * 12 + SizeLimit % 10 * 12 / 10;
static_assert(LowerMark == 966367641 && RequiredCapacity == 1288490188);

long Signed(unsigned long size) {
    return static_cast<long>(size);
}

}  // namespace

bool Rotate::ResetArchDirSize() {
    unsigned long size = 0;
    if (GetArchDirSize(size)) return true;
    if (Signed(size) < 0) {
        Log::Error("Archive directory size is beyond the int64_t maximum.  Cannot continue.");
        return true;
    }
    archDirSize = size;
    Log::Info("Archive directory size is %s.", Futils::FormatFileSize(size).c_str());
    return false;
}

bool Rotate::CheckArchSize() {
    static const std::string LogDirLimStr = Futils::FormatFileSize(SizeLimit);
    static const std::string LogDirMarginStr = Futils::FormatFileSize(LowerMark);

    if (Signed(archDirSize) < SizeLimit) return false;
    Log::Info("Log archive size %s exceeds %s. Old log files will be deleted until %s is reached.",
              Futils::FormatFileSize(archDirSize).c_str(), LogDirLimStr.c_str(),
              LogDirMarginStr.c_str());
    try {
        if (DeleteOldestUntilLowerMark()) return true;
    } catch (const std::exception& e) {
        Log::Error("Unable to delete archived log files.  Reason: %s", e.what());
        return true;
    }
    if (Signed(archDirSize) >= 0) return false;
    Log::Warn("Archive directory size (%zd) went negative while deleting files.",
              Signed(archDirSize));
    return ResetArchDirSize();
}

// Throws filesystem_error if a file's size cannot be read.
bool Rotate::DeleteOldestUntilLowerMark() {
    for (const std::string& name : GetArchiveFileList()) {  // guard: oldest-first
        if (Signed(archDirSize) <= LowerMark) return false;
        const fs::path pfn = Moraine::ArchPathAbs / name;
        const unsigned long size = fs::file_size(pfn);
        if (Futils::Remove(pfn)) continue;
        archDirSize -= size;
        Log::Debug("Deleted archived log file '%s'.", name.c_str());
    }
    if (Signed(archDirSize) <= LowerMark) return false;
    Log::Error("The archive directory (%s) contains files that do not belong.",
               Moraine::ArchPathAbs.c_str());
    return true;
}

bool Rotate::CheckPermCapacity() const {
    try {
        const unsigned long capacity = fs::space(Moraine::SyslogPathAbs).capacity;
        const std::string required = Futils::FormatFileSize(RequiredCapacity);
        const std::string actual = Futils::FormatFileSize(capacity);
        if (capacity < RequiredCapacity) {
            Log::Error("Required archive capacity is %s. File system (%s) is too small: %s.",
                       required.c_str(), Moraine::SyslogPathAbs.c_str(), actual.c_str());
            return true;
        }
        Log::Debug("Required archive capacity is %s.  %s capacity is %s, which is sufficient.",
                   required.c_str(), Moraine::SyslogPathAbs.c_str(), actual.c_str());
    } catch (const std::exception& e) {
        Log::Error("Unable to get %s capacity, reason: %s", Moraine::SyslogPathAbs.c_str(),
                   e.what());
        return true;
    }
    return false;
}
