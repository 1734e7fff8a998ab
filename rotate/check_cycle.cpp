// One check cycle: at most one file goes into the archive, so that a backlog costs a small device
// one `xz` every 10 seconds and no more.
#include <algorithm>

#include "daemon/moraine.h"
#include "futils/futils.h"
#include "logging/logging.h"
#include "rotate/rotate.h"

namespace {

constexpr unsigned long MaxLiveLogSize = 10UL * 1024 * 1024;

}  // namespace

bool Rotate::CheckLogs() {
    static const std::string MaxPfe = Moraine::SyslogPfe.native() + Moraine::MaxSyslogExt.native();
    if (Futils::FileExists(MaxPfe)) return ArchiveMaxSyslogdPfn(MaxPfe);

    // A listing or a size that cannot be had skips the cycle; the next one tries again.
    if (Futils::GetFilesInDir(syslogFiles, Moraine::SyslogPathAbs.native())) return false;
    const std::string rotation = GetLastSyslogdRotation(syslogFiles);
    if (!rotation.empty()) return ArchiveListed(Moraine::SyslogPathAbs / rotation);

    unsigned long size = 0;
    if (Futils::GetFileSize(size, Moraine::SyslogPfe.native())) return false;
    return size > MaxLiveLogSize && Archive(Moraine::SyslogPfe);
}

std::string Rotate::GetLastSyslogdRotation(std::set<std::string>& files) const {
    const auto last = std::find_if(files.crbegin(), files.crend(), IsSyslogRotFn);
    return last == files.crend() ? std::string() : *last;
}

bool Rotate::ArchiveMaxSyslogdPfn(const std::filesystem::path& pfn) {
    (void)Futils::System(Moraine::SyslogStopCmd);  // Archived even if syslogd would not stop.
    if (Archive(pfn)) return true;
    if (Futils::System(Moraine::SyslogStartCmd)) return true;
    Log::Error(
        "Syslog had to be stopped to deal with its last possible rotation.  Messages were lost.");
    return false;
}
