// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Packing logs into one tar file for a user to download, by `tar` and `xz` in the temporary
// directory: each file is copied there, added to the tar file and removed.
//
// A fill takes files in catalogue order and ends at the first that exceeds a limit; it never skips
// a large file to take a smaller one behind it, so that what is packed has no gaps.
#include "daemon/moraine.h"
#include "futils/futils.h"
#include "logfileutils/log_file_utils.h"
#include "logfileutils/temporary_files.h"
#include "logging/logging.h"
#include "util/encode.h"
#include "util/parse.h"

namespace {

constexpr unsigned long TarOverheadPerFile = 10240;
constexpr unsigned short NoLimit = 65535;

void LogMissingAppend() {
    const std::string help = Util::ReadStdOutFromSystemCall("tar --help 2>&1");
    if (help.find("--append") != std::string::npos) return;
    Log::Error("Packing more than one file takes a tar with --append, GNU tar for example.");
}

}  // namespace

template <typename Iterator>
int LogFileUtils::FillArchDl(bool tarExists, Iterator name, Iterator end, unsigned short maxFiles,
                             unsigned short maxBootNums) {
    if (maxFiles == 0 || maxBootNums == 0) return 0;
    dlFiles = 0;
    dlReboots = 0;
    dlPrevBootNum = 0;
    dlMaxBootNums = maxBootNums;
    dlMaxFiles = maxFiles;
    dlDone = false;
    dlTarExists = tarExists;

    for (; name != end && !dlDone; ++name) {
        unsigned short bootNum = 0;
        if (!IsArchiveFileName(*name) || GetFnBootNum(*name, bootNum)) continue;
        if (AddFileToTarballAfterCheckingLimits(*name, bootNum)) return -1;
    }
    return dlFiles;
}

// For programs that derive from the class, too: they see no more than the declaration.
using Names = std::set<std::string>;
template int LogFileUtils::FillArchDl(bool, Names::const_iterator, Names::const_iterator,
                                      unsigned short, unsigned short);
template int LogFileUtils::FillArchDl(bool, Names::const_reverse_iterator,
                                      Names::const_reverse_iterator, unsigned short,
                                      unsigned short);

int LogFileUtils::FillArchiveDownload(bool tarExists, bool oldest, unsigned short maxFiles,
                                      unsigned short maxBootNums) {
    const Catalogue::DownloadLock lock;
    if (lock.IsTaken()) return -1;
    std::set<std::string> names;
    if (Futils::GetFilesInDir(names, Moraine::ArchPathAbs)) return -1;
    if (names.empty()) return 0;

    Log::Info(
        "Filling log download tarball with archive files. Adding %s %u files, or %u boot numbers "
        "at most.",
        oldest ? "oldest" : "newest", maxFiles, maxBootNums);
    const int packed =
        oldest ? FillArchDl(tarExists, names.cbegin(), names.cend(), maxFiles, maxBootNums)
               : FillArchDl(tarExists, names.crbegin(), names.crend(), maxFiles, maxBootNums);
    if (packed == -1) return -1;
    Log::Info("Log download file packed with %d logs.", packed);
    return packed;
}

bool LogFileUtils::AddFileToTarballAfterCheckingLimits(const std::string& name,
                                                       unsigned short bootNum) {
    if (dlPrevBootNum != 0 && bootNum != dlPrevBootNum) ++dlReboots;
    dlPrevBootNum = bootNum;
    if (dlReboots >= dlMaxBootNums) dlDone = true;

    // A size that cannot be read counts as 0 and as a failure, but the file is tried.
    const std::filesystem::path pfn = Moraine::ArchPathAbs / name;
    unsigned long tarSize = 0;
    unsigned long fileSize = 0;
    bool failed = dlTarExists && Futils::GetFileSize(tarSize, Moraine::SyslogTarPfe);
    failed |= Futils::GetFileSize(fileSize, pfn);
    const unsigned long estimatedSize = tarSize + fileSize + TarOverheadPerFile;
    if (estimatedSize > Moraine::MaxDownloadSize) dlDone = true;
    if (dlDone) return failed;

    failed |= AddFileToTarball(name, pfn);
    ++dlFiles;
    if (dlFiles >= dlMaxFiles) dlDone = true;
    LogAtDebug(estimatedSize, name);
    return failed;
}

bool LogFileUtils::AddFileToTarball(const std::string& name, const std::filesystem::path& pfn) {
    const std::filesystem::path copy = Moraine::TmpPath / name;
    const bool copyFailed = Catalogue::RemoveForeign(copy) || Futils::CopyFile(pfn, copy);
    const std::string& command =
        dlTarExists ? Moraine::CdTmpTarAppendCmd : Moraine::CdTmpTarCreateCmd;
    const Catalogue::ReservedFile tarFile(Moraine::SyslogTarPfe);
    const bool tarFailed = tarFile.Failed() || Futils::System(command + name);
    if (tarFailed && dlTarExists) LogMissingAppend();
    if (!copyFailed && !tarFailed) dlTarExists = true;
    (void)Futils::Remove(copy);      // DeleteLogTempFiles takes what stays.
    return copyFailed || tarFailed;  // guard: download-result
}

void LogFileUtils::LogAtDebug(unsigned long estimatedSize, const std::string& name) const {
    Log::Debug("Added %u file%s, %u reboot%s, to %s: %s", dlFiles, dlFiles == 1 ? "" : "s",
               dlReboots, dlReboots == 1 ? "" : "s", Moraine::SyslogTarPfe.c_str(), name.c_str());
    Log::Debug("Est. download size: %s\n", Futils::FormatFileSize(estimatedSize).c_str());
}

bool LogFileUtils::CheckDownloadFileSize() const {
    unsigned long size = 0;
    if (Futils::GetFileSize(size, Moraine::SyslogTarPfe)) return true;
    if (size <= Moraine::MaxDownloadSize) return false;
    Log::Warn("%s size (%s) exceeds download file size limit of %s", Moraine::SyslogTarPfe.c_str(),
              Futils::FormatFileSize(size).c_str(),
              Futils::FormatFileSize(Moraine::MaxDownloadSize).c_str());
    return true;
}

bool LogFileUtils::PrepSyslog() const {
    const Catalogue::DownloadLock lock;
    return !lock.IsTaken() && PackSyslog();
}

bool LogFileUtils::PackSyslog() const {
    static const std::string SyslogFe = Moraine::SyslogTmpPfe.filename();
    static const std::string SyslogXzFe = SyslogFe + Moraine::XzExt.native();
    static const std::string XzCmd = Moraine::XzCmd + SyslogFe;
    static const std::string TarCreateCmd = Moraine::CdTmpTarCreateCmd + SyslogXzFe;

    if (!Futils::FileExists(Moraine::SyslogPfe)) return false;
    Log::Info("Preparing system log for download.");
    if (Catalogue::RemoveForeign(Moraine::SyslogTmpPfe)) return false;
    if (Futils::CopyFile(Moraine::SyslogPfe, Moraine::SyslogTmpPfe)) return false;
    if (Catalogue::RemoveForeign(Moraine::TmpPath / SyslogXzFe)) return false;
    if (Futils::System(XzCmd)) return false;
    const Catalogue::ReservedFile tarFile(Moraine::SyslogTarPfe);
    if (tarFile.Failed() || Futils::System(TarCreateCmd)) return false;
    Log::Info("System log tar file created.");
    return true;
}

int LogFileUtils::PrepDefaultLogFileDownload() {
    const Catalogue::DownloadLock lock;
    return lock.IsTaken() ? -1 : PackDefault();
}

int LogFileUtils::PackDefault() {
    const bool hasSyslog = PackSyslog();
    int packed = hasSyslog ? 1 : 0;
    std::set<std::string> names;
    if (Futils::GetFilesInDir(names, Moraine::ArchPathAbs)) return 1;
    if (names.empty()) return packed;

    const int archiveFiles =
        FillArchDl(hasSyslog, names.crbegin(), names.crend(), NoLimit, NoLimit);
    if (archiveFiles == -1) return -1;
    packed += archiveFiles;
    if (packed > 0 && CheckDownloadFileSize()) return -1;
    return packed;
}

void LogFileUtils::DeleteDownload() const {
    if (!Futils::FileExists(Moraine::SyslogTarPfe)) return;
    (void)Futils::Remove(Moraine::SyslogTarPfe);  // Logged; the next download replaces it.
}

void LogFileUtils::DeleteLogTempFiles() const {
    if (Futils::FileExists(Moraine::SyslogTmpPfe)) (void)Futils::Remove(Moraine::SyslogTmpPfe);
    std::set<std::string> names;
    if (Futils::GetFilesInDir(names, Moraine::TmpPath)) return;
    for (const std::string& name : names) {
        if (!Util::BeginsWith(name, Moraine::SyslogFn.native())) continue;
        (void)Futils::Remove(Moraine::TmpPath / name);  // Logged; the others go all the same.
    }
}
