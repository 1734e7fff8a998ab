// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Boot numbers stay within the three digits of an archive name: the oldest boots go when all
// numbers are in use, and the rest are renumbered from 1. Both happen only at start-up, before the
// current boot gets its number.
//
// Power may go away in the middle of renumbering. Then the boots up to some number have their new
// numbers and the rest their old ones, with a gap between: numbers from 1 to 999, as if all were in
// use. Deleting the oldest boots would lose what the last start meant to keep; the renumbering is
// finished instead.
#include "daemon/moraine.h"
#include "futils/rename.h"
#include "logfileutils/boot_numbers.h"
#include "logfileutils/names.h"
#include "logging/logging.h"
#include "rotate/rotate.h"

namespace {

constexpr unsigned short BootsDeletedAtOnce = 100;  // guard: boots-at-once
constexpr unsigned short AnyNumberOfFiles = 65535;

// Boot numbers that no file has, between numbers that files have.
struct Gap {
    unsigned short size = 0;  // 0: there is none
    unsigned short numberBehind = 0;
};

// The gap that an interrupted renumbering leaves in the numbers from 1 to 999: the only one, since
// each boot takes the number behind the last, and no larger than what is deleted at a time. (Within
// one boot that was half renumbered, the files come apart into two boots. They stay in order.)
Gap FindGap(const Catalogue::BootNumbers& numbers) {
    const auto& used = numbers.used;
    unsigned short number = 1;
    while (number <= Moraine::MaxBootNum && used[number]) ++number;
    const unsigned short first = number;
    while (number <= Moraine::MaxBootNum && !used[number]) ++number;
    const auto size = static_cast<unsigned short>(number - first);

    const bool isOnly = used.count() + size == Moraine::MaxBootNum;
    return isOnly && size <= BootsDeletedAtOnce ? Gap{size, number} : Gap{};
}

}  // namespace

bool Rotate::CheckReboots() {
    const Catalogue::BootNumbers numbers = Catalogue::ReadBootNumbers();
    if (numbers.min == 0 && numbers.max == 0) return false;

    if (numbers.min == 1) {
        if (numbers.max < Moraine::MaxBootNum) return false;  // Nothing to delete or to renumber.
        const Gap gap = FindGap(numbers);
        if (gap.size != 0) return LowerBootNumbers(gap.numberBehind, gap.size);  // guard: gap
        Log::Info("Log archive contains too many reboots.  Oldest %u will be deleted.",
                  BootsDeletedAtOnce);
        if (DeleteArchiveFiles(true, AnyNumberOfFiles, BootsDeletedAtOnce)) return true;
    }
    return RenumberArchivedFiles();
}

bool Rotate::RenumberArchivedFiles() {
    unsigned short minBoot = Moraine::MaxBootNum;
    unsigned short maxBoot = 0;
    if (GetBootNumRange(minBoot, maxBoot)) return true;
    return minBoot > 1 && LowerBootNumbers(minBoot, static_cast<unsigned short>(minBoot - 1));
}

// Names are renamed in ascending order to smaller numbers, so a new name never meets one that is
// still to be renamed. Names that this system did not write may break that rule: one whose new name
// is taken is left alone.
bool Rotate::LowerBootNumbers(unsigned short first, unsigned short distance) {
    const bool isResumed = first > distance + 1;
    Log::Info("Renumbering boot numbers on archived files.");
    for (const std::string& name : GetArchiveFileList()) {
        unsigned short bootNumber = 0;
        if (GetFnBootNum(name, bootNumber)) continue;
        if (bootNumber < first) {
            if (isResumed) continue;
            Log::Warn(
                "Boot number %u in file %s is less than the smallest boot number %u, which does "
                "not make sense.",
                bootNumber, name.c_str(), first);
            continue;
        }
        const std::string newName =
            Catalogue::WithBootNum(name, static_cast<unsigned>(bootNumber - distance));
        switch (
            Futils::RenameNoReplace(Moraine::ArchPathAbs / name, Moraine::ArchPathAbs / newName)) {
            case Futils::RenameResult::Failed:
                return true;
            case Futils::RenameResult::TargetExists:
                Log::Warn("'%s' keeps its boot number, because '%s' exists.", name.c_str(),
                          newName.c_str());
                continue;
            case Futils::RenameResult::Renamed:
                break;
        }
        Log::Debug("Renamed '%s' to '%s'", name.c_str(), newName.c_str());
    }
    return false;
}
