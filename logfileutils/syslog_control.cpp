// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Acting on the dedicated syslogd.
#include <csignal>
#include <limits>

#include "daemon/moraine.h"
#include "futils/futils.h"
#include "logfileutils/log_file_utils.h"
#include "logging/logging.h"
#include "util/parse.h"

void LogFileUtils::SendSigHupToSyslog() const {
    std::string text;
    if (Futils::ReadTextFile(text, Moraine::SyslogPidPfe)) return;
    int pid = 0;
    if (Util::StringToInt(text, pid, std::numeric_limits<int>::min(),
                          std::numeric_limits<int>::max(), nullptr, 10)) {
        return;
    }
    (void)kill(pid, SIGHUP);  // A syslogd that is gone opens its log anew when it starts.
}

bool LogFileUtils::DeleteSyslogFile() const {
    if (Futils::Remove(Moraine::SyslogPfe)) return true;
    SendSigHupToSyslog();
    Log::Info("The syslog file was deleted.");
    return false;
}
