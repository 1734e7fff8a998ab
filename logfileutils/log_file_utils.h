// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The archive catalogue: what the files of the archive and of the syslog directory are, judged by
// their names alone; questions about them; pruning; control of syslogd; and packing a download.
//
// Unless a declaration says otherwise, an operation returns true on failure and has logged why,
// once. Directories are those of daemon/moraine.h. Sizes are bytes.
#pragma once

#include <ctime>
#include <filesystem>
#include <set>
#include <string>

struct SyslogStats_s {
    unsigned long size;      // of the live log; 0 if there is none
    timespec timeStamp;      // monotonic clock, when the record was filled
    unsigned short numRots;  // rotations that wait to be archived
};

struct ArchiveStats_s {
    unsigned short numReboots;  // boot numbers that the archive spans: highest - lowest + 1
    unsigned short numFiles;    // archive files
    unsigned long dirSize;      // of the archive directory
};

class LogFileUtils {
public:
    // -- Names (names.cpp, where the grammar stands). They look at a bare file name only.

    // True if the name is an archive file's.
    [[nodiscard]] static bool IsArchiveFileName(const std::string& name);

    // Reads the boot number of an archive file's name. Returns true if its field is no number from
    // 0 to 65535, with `bootNum` 0 and an Error line. A name without fields is not a failure: it
    // counts as boot number 0, after an Error line.
    [[nodiscard]] static bool GetFnBootNum(const std::string& name, unsigned short& bootNum);

    // True if the name is that of a rotation that syslogd made.
    [[nodiscard]] static bool IsSyslogRotFn(const std::string& name);

    // -- Queries (queries.cpp). Outputs are cleared first.

    // The size of the archive directory; 0 on failure.
    [[nodiscard]] bool GetArchDirSize(unsigned long& size) const;

    // The number of archive files, and of rotations in the syslog directory.
    [[nodiscard]] bool GetNumArchFiles(unsigned short& count) const;
    [[nodiscard]] bool GetNumSyslogRots(unsigned short& count) const;

    [[nodiscard]] bool GetSyslogStats(SyslogStats_s& stats) const;

    // The lowest and the highest boot number in the archive directory; 0 and 0 if it is empty.
    // Every entry counts, whatever it is: one whose name has no boot number counts as 0. Never
    // returns true: an archive directory that cannot be read throws
    // std::filesystem::filesystem_error.
    [[nodiscard]] bool GetBootNumRange(unsigned short& min, unsigned short& max) const;

    // The number of boot numbers that the archive spans. Throws as GetBootNumRange does.
    [[nodiscard]] bool GetNumReboots(unsigned short& count) const;

    // Fills the record. Boot numbers are looked at only if `refresh` is set or the count is not
    // known yet; then it throws as GetBootNumRange does.
    [[nodiscard]] bool GetArchiveStats(ArchiveStats_s& stats, bool refresh);

    // The archive files' names, oldest first; empty if the directory cannot be listed.
    [[nodiscard]] std::set<std::string> GetArchiveFileList() const;

    // -- Control of syslogd (syslog_control.cpp).

    // Asks syslogd to reopen its log. Does nothing if its pid file cannot be read or holds no
    // number; whatever number it holds is signalled.
    void SendSigHupToSyslog() const;

    // Removes the live log and has syslogd start a new one.
    [[nodiscard]] bool DeleteSyslogFile() const;

    // -- Pruning (pruning.cpp).

    // Deletes archive files from the oldest or from the newest on: at most `maxFiles` files, of at
    // most `maxReboots` boots. Foreign files that it passes are deleted too. Returns true only if
    // the archive cannot be listed; a file that cannot be removed ends the walk.
    [[nodiscard]] bool DeleteArchiveFiles(bool oldestFirst, unsigned short maxFiles,
                                          unsigned short maxReboots) const;

    // -- Download (download.cpp): archive files and the live log in /tmp/syslog.tar.
    //
    // Anybody can make files in /tmp. What has a name that packing uses is removed first, unless it
    // is a regular file of the caller's own. One process packs at a time: while another one does,
    // an operation fails, with an Error line. Packing takes a tar that knows --append; without one,
    // the second file fails, with an Error line that says so.

    // Packs archive files from the oldest or the newest on, until the next one would exceed
    // `maxFiles` files, `maxBootNums` boots or 15 MiB. Appends to the tar file if `tarExists`, else
    // replaces it. Returns the number of files packed, or -1 on failure; the tar file then keeps
    // what it holds.
    [[nodiscard]] int FillArchiveDownload(bool tarExists, bool oldest, unsigned short maxFiles,
                                          unsigned short maxBootNums);

    // Packs the live log, compressed, into a new tar file. Returns true when that is done; false if
    // there is no live log or a step failed, with what the steps made left in /tmp.
    [[nodiscard]] bool PrepSyslog() const;

    // Packs the live log and as many archive files, newest first, as 15 MiB hold. Returns the
    // number of logs packed, or -1 if packing failed or the tar file came out too large;
    // DeleteDownload takes it away. An archive that cannot be listed gives 1.
    [[nodiscard]] int PrepDefaultLogFileDownload();

    // True if the tar file cannot be sized (Error line) or is above 15 MiB (Warning line).
    [[nodiscard]] bool CheckDownloadFileSize() const;

    // Removes the tar file, if there is one.
    void DeleteDownload() const;

    // Removes what packing leaves in /tmp: every file there whose name begins with "messages".
    void DeleteLogTempFiles() const;

protected:
    [[nodiscard]] bool PackSyslog() const;
    [[nodiscard]] int PackDefault();
    template <typename Iterator>
    [[nodiscard]] int FillArchDl(bool tarExists, Iterator name, Iterator end,
                                 unsigned short maxFiles, unsigned short maxBootNums);
    [[nodiscard]] bool AddFileToTarballAfterCheckingLimits(const std::string& name,
                                                           unsigned short bootNum);
    [[nodiscard]] bool AddFileToTarball(const std::string& name, const std::filesystem::path& pfn);
    void LogAtDebug(unsigned long estimatedSize, const std::string& name) const;

    // How many boots the archive spans, as GetArchiveStats last counted; above 999: not known.
    unsigned short numReboots = 0xFFFF;

    // One fill of a download.
    unsigned short dlFiles = 0;        // archive files added so far
    unsigned short dlReboots = 0;      // changes of the boot number passed so far
    unsigned short dlPrevBootNum = 0;  // of the previous file; 0: none yet
    unsigned short dlMaxBootNums = 0;
    unsigned short dlMaxFiles = 0;
    bool dlDone = false;       // a limit has been reached
    bool dlTarExists = false;  // later files are appended
};
