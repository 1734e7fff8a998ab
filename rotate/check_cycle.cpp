// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// One check cycle: at most one file goes into the archive, so that a backlog costs a small device
// one `xz` every 10 seconds and no more.
#include <algorithm>

#include "daemon/moraine.h"
#include "futils/futils.h"
#include "futils/rename.h"
#include "logging/logging.h"
#include "rotate/rotate.h"

namespace {

constexpr unsigned long MaxLiveLogSize = 10UL * 1024 * 1024;

}  // namespace

bool Rotate::CheckLogs() {
    static const std::string MaxPfe = Moraine::SyslogPfe.native() + Moraine::MaxSyslogExt.native();
    if (Futils::FileExists(MaxPfe)) return ArchiveMaxSyslogdPfn(MaxPfe);

    // A failed listing or size skips the cycle; the next one tries again.
    std::set<std::string> files;
    if (Futils::GetFilesInDir(files, Moraine::SyslogPathAbs)) return false;
    const std::string rotation = GetLastSyslogdRotation(files);
    if (!rotation.empty()) return ArchiveHighest(Moraine::SyslogPathAbs / rotation);
    possibleTwins.emplace();

    unsigned long size = 0;
    if (Futils::GetFileSize(size, Moraine::SyslogPfe)) return false;
    return size > MaxLiveLogSize && Archive(Moraine::SyslogPfe);
}

std::string Rotate::GetLastSyslogdRotation(std::set<std::string>& files) const {
    const auto last = std::find_if(files.crbegin(), files.crend(), IsSyslogRotFn);
    return last == files.crend() ? std::string() : *last;
}

// Files only move upward: looked for in this order, none can slip through.
bool Rotate::HasHigherRotation(const std::string& pfn) const {
    const std::size_t stem = Moraine::SyslogPfe.native().size() + 1;
    const bool hasDigit = pfn.size() == stem + 1 && pfn[stem] >= '0' && pfn[stem] <= '9';
    if (!hasDigit) return false;
    for (std::string higher = pfn; higher[stem] < Moraine::MaxSyslogExt.native()[1];) {
        ++higher[stem];
        if (Futils::FileExists(higher)) return true;
    }
    return false;
}

bool Rotate::ArchiveMaxSyslogdPfn(const std::filesystem::path& pfn) {
    (void)Futils::System(Moraine::SyslogStopCmd);  // Archived even if syslogd would not stop.
    if (ArchiveIfThere(pfn)) return true;
    // Left to a later cycle, it needs a name that syslogd does not overwrite.
    if (Futils::FileExists(pfn)) (void)Futils::TryRenameNoReplace(pfn, Moraine::SyslogTakenPfe);
    if (Futils::System(Moraine::SyslogStartCmd)) return true;  // guard: start-syslogd
    Log::Error(
        "Syslog had to be stopped to deal with its last possible rotation.  Messages were lost.");
    return false;
}
