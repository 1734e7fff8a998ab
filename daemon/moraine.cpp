// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "daemon/moraine.h"

// In this order: the later ones are composed of the earlier ones.
namespace Moraine {

using std::filesystem::path;

const path XzExt = ".xz";
const path TmpExt = ".tmp";
const path TxtExt = ".txt";
const path MaxSyslogExt = ".9";
const std::string Name = "vandis-moraine";

const path SyslogPathAbs = "/perm/logs/syslog";
const path SyslogFn = "messages";
const path SyslogPfe = SyslogPathAbs / (SyslogFn.native() + TxtExt.native());
const path SyslogTakenPfe = SyslogPfe.native() + TmpExt.native();
const path ArchPathRel = "archive";
const path ArchPathAbs = SyslogPathAbs / ArchPathRel;

const path SyslogInit = "/etc/init.d/S01syslogd-moraine";
const std::string SyslogStopCmd = SyslogInit.native() + " stop";
const std::string SyslogStartCmd = SyslogInit.native() + " start";
const path SyslogPidPfe = "/var/run/syslogd.pid";
const path ArchInit = "/etc/init.d/S90vandis-moraine";
const std::string ArchStopCmd = ArchInit.native() + " stop";
const std::string ArchStartCmd = ArchInit.native() + " start";
const path SyslogFirstRot = SyslogPfe.native() + ".0";

const path LockPfe = "/var/run/vandis-moraine.lock";
const path BootNumPfe = "/var/run/vandis-moraine.boot";

const path TmpPath = "/tmp";
const path SyslogTarFn = "syslog.tar";
const path SyslogTarPfe = TmpPath / SyslogTarFn;
const path SyslogTmpPfe = TmpPath / (SyslogFn.native() + TxtExt.native());
const path DownloadLockPfe = "/var/run/vandis-moraine-download.lock";
const std::string CdTmpCmd = "cd " + TmpPath.native() + ";";
const std::string XzCmd = CdTmpCmd + " xz -zf ";
const std::string CdTmpTarCreateCmd =
    CdTmpCmd + " tar --create --file " + SyslogTarFn.native() + " ";
const std::string CdTmpTarAppendCmd =
    CdTmpCmd + " tar --append --file " + SyslogTarFn.native() + " ";

}  // namespace Moraine
