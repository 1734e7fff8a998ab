// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Every path, file name and shell command of the system, in one place. There is no configuration
// file and no command-line option: what is here is how a device is laid out.
//
// Names tell the kind: Fn a bare file name, Pfe a path with file name and extension, PathAbs and
// PathRel a directory, Ext an extension, Cmd a shell command, Init an init script. The objects are
// built before main runs; other static objects must not use them while they are built themselves.
#pragma once

#include <filesystem>
#include <string>

namespace Moraine {

// The daemon's name in its log lines.
extern const std::string Name;

// Limits.
inline constexpr unsigned short MaxBootNum = 999;                     // has three digits
inline constexpr unsigned long MaxArchiveSize = 1UL << 30;            // bytes
inline constexpr unsigned long MaxDownloadSize = 15UL * 1024 * 1024;  // bytes

extern const std::filesystem::path XzExt;
extern const std::filesystem::path TmpExt;  // a log that was taken from syslogd
extern const std::filesystem::path TxtExt;
extern const std::filesystem::path MaxSyslogExt;  // the highest rotation that syslogd makes

// The live log, its rotations and the archive.
extern const std::filesystem::path SyslogPathAbs;
extern const std::filesystem::path SyslogFn;  // the stem only: "messages"
extern const std::filesystem::path SyslogPfe;
extern const std::filesystem::path SyslogTakenPfe;  // out of syslogd's reach, to be archived
extern const std::filesystem::path SyslogFirstRot;
extern const std::filesystem::path ArchPathRel;
extern const std::filesystem::path ArchPathAbs;

// The dedicated syslogd, and this daemon, as init starts and stops them.
extern const std::filesystem::path SyslogInit;
extern const std::string SyslogStopCmd;
extern const std::string SyslogStartCmd;
extern const std::filesystem::path SyslogPidPfe;
extern const std::filesystem::path ArchInit;
extern const std::string ArchStopCmd;
extern const std::string ArchStartCmd;

// What a running daemon leaves: the lock that keeps a second one away, and its boot number.
extern const std::filesystem::path LockPfe;
extern const std::filesystem::path BootNumPfe;

// The download, and the commands that pack it. A command that ends in a blank expects a file name.
extern const std::filesystem::path TmpPath;
extern const std::filesystem::path SyslogTarFn;
extern const std::filesystem::path SyslogTarPfe;
extern const std::filesystem::path SyslogTmpPfe;
extern const std::filesystem::path DownloadLockPfe;  // held while one is packed
extern const std::string CdTmpCmd;
extern const std::string XzCmd;
extern const std::string CdTmpTarCreateCmd;
extern const std::string CdTmpTarAppendCmd;

}  // namespace Moraine
