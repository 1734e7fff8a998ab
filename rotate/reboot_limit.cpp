// Boot numbers stay within the three digits of an archive name: the oldest boots go when all
// numbers are in use, and the rest are renumbered from 1. Both happen only at start-up, before the
// current boot gets its number.
#include "daemon/moraine.h"
#include "futils/futils.h"
#include "logging/logging.h"
#include "rotate/rotate.h"
#include "util/format.h"

namespace {

constexpr unsigned short MaxBootNum = 999;
constexpr unsigned short BootsDeletedAtOnce = 100;
constexpr unsigned short AnyNumberOfFiles = 65535;

// What follows the boot number. That has four digits after a foreign file in the archive kept the
// numbers from being brought down.
std::string RestOfName(const std::string& name) {
    const std::size_t bootNumber = Moraine::SyslogFn.native().size() + 1;
    return name.substr(name.find('.', bootNumber));
}

}  // namespace

bool Rotate::CheckReboots() {
    unsigned short minBoot = MaxBootNum;
    unsigned short maxBoot = 0;
    if (GetBootNumRange(minBoot, maxBoot)) return true;
    if (minBoot == 0 && maxBoot == 0) return false;

    if (minBoot == 1 && maxBoot >= MaxBootNum) {
        Log::Info("Log archive contains too many reboots.  Oldest %u will be deleted.",
                  BootsDeletedAtOnce);
        if (DeleteArchiveFiles(true, AnyNumberOfFiles, BootsDeletedAtOnce)) return true;
    }
    return RenumberArchivedFiles();
}

// Names are renamed in ascending order to smaller numbers, so a new name never meets one that is
// still to be renamed. Names that this system did not write may break that rule: one whose new name
// is taken is left alone.
bool Rotate::RenumberArchivedFiles() {
    unsigned short minBoot = MaxBootNum;
    unsigned short maxBoot = 0;
    if (GetBootNumRange(minBoot, maxBoot)) return true;
    if (minBoot <= 1) return false;

    Log::Info("Renumbering boot numbers on archived files.");
    for (const std::string& name : GetArchiveFileList()) {
        unsigned short bootNumber = 0;
        if (GetFnBootNum(name, bootNumber)) continue;
        if (bootNumber < minBoot) {
            Log::Warn(
                "Boot number %u in file %s is less than the smallest boot number %u, which does "
                "not make sense.",
                bootNumber, name.c_str(), minBoot);
            continue;
        }
        const auto newNumber = static_cast<unsigned>(bootNumber - minBoot + 1);
        const std::string newName =
            Moraine::SyslogFn.native() + Util::Format(".%03u", newNumber) + RestOfName(name);
        const std::filesystem::path newPfe = Moraine::ArchPathAbs / newName;
        if (Futils::FileExists(newPfe)) {
            Log::Warn("'%s' keeps its boot number, because '%s' exists.", name.c_str(),
                      newName.c_str());
            continue;
        }
        if (Futils::Rename(Moraine::ArchPathAbs / name, newPfe)) return true;
        Log::Debug("Renamed '%s' to '%s'", name.c_str(), newName.c_str());
    }
    return false;
}
