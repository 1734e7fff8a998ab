// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// How a device is laid out: init scripts and other programs rely on every one of these texts.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <type_traits>

#include "daemon/moraine.h"

namespace {

struct PathConstant {
    const char* name;
    const std::filesystem::path& value;
    const char* text;
};

struct StringConstant {
    const char* name;
    const std::string& value;
    const char* text;
};

TEST(Constants, PathsAreWhereTheDeviceHasThem) {
    const PathConstant constants[] = {
        {"XzExt", Moraine::XzExt, ".xz"},
        {"TmpExt", Moraine::TmpExt, ".tmp"},
        {"TxtExt", Moraine::TxtExt, ".txt"},
        {"MaxSyslogExt", Moraine::MaxSyslogExt, ".9"},
        {"SyslogPathAbs", Moraine::SyslogPathAbs, "/perm/logs/syslog"},
        {"SyslogFn", Moraine::SyslogFn, "messages"},
        {"SyslogPfe", Moraine::SyslogPfe, "/perm/logs/syslog/messages.txt"},
        {"SyslogFirstRot", Moraine::SyslogFirstRot, "/perm/logs/syslog/messages.txt.0"},
        {"ArchPathRel", Moraine::ArchPathRel, "archive"},
        {"ArchPathAbs", Moraine::ArchPathAbs, "/perm/logs/syslog/archive"},
        {"SyslogInit", Moraine::SyslogInit, "/etc/init.d/S01syslogd-moraine"},
        {"SyslogPidPfe", Moraine::SyslogPidPfe, "/var/run/syslogd.pid"},
        {"ArchInit", Moraine::ArchInit, "/etc/init.d/S90vandis-moraine"},
        {"TmpPath", Moraine::TmpPath, "/tmp"},
        {"SyslogTarFn", Moraine::SyslogTarFn, "syslog.tar"},
        {"SyslogTarPfe", Moraine::SyslogTarPfe, "/tmp/syslog.tar"},
        {"SyslogTmpPfe", Moraine::SyslogTmpPfe, "/tmp/messages.txt"},
    };
    for (const PathConstant& constant : constants) {
        EXPECT_EQ(constant.value.native(), constant.text) << constant.name;
    }
}

// Command texts count to the blank: callers append a file name without adding one.
TEST(Constants, CommandsAreExactToTheBlank) {
    const StringConstant constants[] = {
        {"Name", Moraine::Name, "vandis-moraine"},
        {"SyslogStopCmd", Moraine::SyslogStopCmd, "/etc/init.d/S01syslogd-moraine stop"},
        {"SyslogStartCmd", Moraine::SyslogStartCmd, "/etc/init.d/S01syslogd-moraine start"},
        {"ArchStopCmd", Moraine::ArchStopCmd, "/etc/init.d/S90vandis-moraine stop"},
        {"ArchStartCmd", Moraine::ArchStartCmd, "/etc/init.d/S90vandis-moraine start"},
        {"CdTmpCmd", Moraine::CdTmpCmd, "cd /tmp;"},
        {"XzCmd", Moraine::XzCmd, "cd /tmp; xz -zf "},
        {"CdTmpTarCreateCmd", Moraine::CdTmpTarCreateCmd,
         "cd /tmp; tar --create --file syslog.tar "},
        {"CdTmpTarAppendCmd", Moraine::CdTmpTarAppendCmd,
         "cd /tmp; tar --append --file syslog.tar "},
    };
    for (const StringConstant& constant : constants) {
        EXPECT_EQ(constant.value, constant.text) << constant.name;
    }
}

TEST(Constants, CannotBeChanged) {
    static_assert(std::is_same_v<decltype(Moraine::SyslogPfe), const std::filesystem::path>);
    static_assert(std::is_same_v<decltype(Moraine::Name), const std::string>);
}

}  // namespace
