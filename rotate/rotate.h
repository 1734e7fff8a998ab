// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The rotation and archiving engine. One object lives as long as the daemon; the main loop calls
// Init once and then CheckLogs every 10 seconds.
//
// Unless a declaration says otherwise, an operation returns true on failure and has logged why,
// once. std::filesystem::filesystem_error is thrown where a declaration says so; std::bad_alloc,
// when memory runs out, everywhere.
#pragma once

#include <filesystem>
#include <optional>
#include <set>
#include <string>

#include "logfileutils/log_file_utils.h"

class Rotate : public LogFileUtils {
public:
    // -- Start-up (startup.cpp).

    // Makes the directories, checks the file system's capacity, applies the reboot limit, settles
    // the boot number, finishes what an interrupted run left and applies the size limit. The first
    // failure ends it; nothing is undone, and the next start repeats all steps. Throws
    // filesystem_error if the archive or the syslog directory cannot be read.
    [[nodiscard]] bool Init();

    // Sets the boot number to one above the highest in the archive. Throws as GetBootNumRange does.
    [[nodiscard]] bool SetBootNum();

    // Deletes compressed leftovers (.xz) from the syslog directory and archives interrupted ones
    // (.tmp). Throws filesystem_error if the directory cannot be read.
    [[nodiscard]] bool CleanUpTempFiles();

    // The number of this run in the names of its archive files. 0 before SetBootNum.
    [[nodiscard]] unsigned int GetBootNum() const { return bootNum; }

    // -- The check cycle (check_cycle.cpp).

    // One cycle: archives the highest rotation, or else a live log of more than 10 MiB, or nothing.
    [[nodiscard]] bool CheckLogs();

    // The greatest name in `files` that is a rotation's; empty if none is.
    [[nodiscard]] std::string GetLastSyslogdRotation(std::set<std::string>& files) const;

    // Archives the rotation behind which syslogd has no further name, with syslogd stopped. On
    // failure syslogd stays stopped.
    [[nodiscard]] bool ArchiveMaxSyslogdPfn(const std::filesystem::path& pfn);

    // -- Archiving one file (archive.cpp).

    // Compresses a file with xz, moves the result into the archive, removes the file and applies
    // the size limit. The live log is first renamed to its ".tmp" name, and syslogd asked to
    // reopen.
    //
    // The file is removed only after the archive file and its name are safe on disk, and only if it
    // is the very file that was compressed, unchanged, with no writer. If syslogd moved it
    // meanwhile, if somebody deleted it, if it does not stop changing, or if somebody has it open
    // for writing, that is logged at Info and is no failure; a file that is still there is left to
    // a later cycle. On failure the file stays, where it is or under its ".tmp" name, and what xz
    // made may lie beside it.
    [[nodiscard]] bool Archive(const std::string& pfn);

    // The bare name that an archive file made now gets; empty if the clock cannot be read.
    [[nodiscard]] std::string GetArchFn() const;

    // -- Limits (size_limit.cpp, reboot_limit.cpp).

    // Deletes the oldest archive files once they have 1 GiB, until they have 90 % of it. A file
    // that cannot be removed is passed over. Fails if the archive files are gone and the size is
    // not reached.
    [[nodiscard]] bool CheckArchSize();

    // Measures the archive directory afresh. On failure the old measure stays.
    [[nodiscard]] bool ResetArchDirSize();

    // Fails if the file system of the syslog directory has less than 120 % of 1 GiB in all.
    [[nodiscard]] bool CheckPermCapacity() const;

    // Deletes the 100 oldest boots if boot numbers 1 to 999 are all in use, then renumbers;
    // finishes a renumbering that was interrupted. Throws as GetBootNumRange does.
    [[nodiscard]] bool CheckReboots();

    // Renames the archive files so that the lowest boot number is 1. A failed rename ends it; the
    // next start goes on from there. Throws as GetBootNumRange does.
    [[nodiscard]] bool RenumberArchivedFiles();

protected:
    class Archiving;  // of one file (archive.cpp)

    // Archives a file that was seen under this name. One that is gone since is no failure: a later
    // cycle finds it under its new name.
    [[nodiscard]] bool ArchiveIfThere(const std::string& pfn);
    // The same for the highest rotation of a listing, if it still is: after a rotation by syslogd,
    // the oldest file has a higher name, and goes first, in a later cycle.
    [[nodiscard]] bool ArchiveHighest(const std::string& pfn);
    [[nodiscard]] bool HasHigherRotation(const std::string& pfn) const;
    // Removes a rotation or interrupted archiving that is in the archive already. One that is not
    // is no failure.
    [[nodiscard]] bool RemoveIfArchived(const std::string& pfn);
    // The same for all that there are (startup.cpp). Throws filesystem_error if the syslog
    // directory cannot be read.
    [[nodiscard]] bool RemoveArchivedFiles();
    // Lists them when it is first called. Returns true on failure, with an Error line: archived
    // without having looked, a file could be there twice.
    [[nodiscard]] bool ListPossibleTwins();
    [[nodiscard]] std::filesystem::path GetFreeArchPfe() const;
    [[nodiscard]] bool DeleteOldestUntilLowerMark();
    // Takes `distance` off the boot numbers from `first` on.
    [[nodiscard]] bool LowerBootNumbers(unsigned short first, unsigned short distance);

    unsigned int bootNum = 0;       // of this run; in the name of each new archive file
    unsigned long archDirSize = 0;  // bytes in the archive directory; kept up by arithmetic
    // What a file of the syslog directory may be archived as already: archive files that a start
    // finds, and the copy of a file that syslogd moved at the moment of its removal. A start leaves
    // it to the first file to list them; a cycle without rotations drops them.
    std::optional<std::set<std::string>> possibleTwins = std::set<std::string>{};
};

// The time since the device started, as a date and time counted from 1970-01-01:
// "1970-01-01.00:14:07". Returns an empty text on failure and logs a Warning then.
[[nodiscard]] std::string GetMonotonicClockString();
