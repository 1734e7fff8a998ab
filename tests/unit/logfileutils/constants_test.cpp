// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// How a device is laid out: init scripts and other programs rely on every one of these texts.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <type_traits>

#include "daemon/moraine.h"

namespace {

static_assert(std::is_same_v<decltype(Moraine::SyslogPfe), const std::filesystem::path>);
static_assert(std::is_same_v<decltype(Moraine::Name), const std::string>);

TEST(Constants, PathsAreWhereTheDeviceHasThem) {
    EXPECT_EQ(Moraine::XzExt.native(), ".xz");
    EXPECT_EQ(Moraine::TmpExt.native(), ".tmp");
    EXPECT_EQ(Moraine::TxtExt.native(), ".txt");
    EXPECT_EQ(Moraine::MaxSyslogExt.native(), ".9");
    EXPECT_EQ(Moraine::SyslogPathAbs.native(), "/perm/logs/syslog");
    EXPECT_EQ(Moraine::SyslogFn.native(), "messages");
    EXPECT_EQ(Moraine::SyslogPfe.native(), "/perm/logs/syslog/messages.txt");
    EXPECT_EQ(Moraine::SyslogFirstRot.native(), "/perm/logs/syslog/messages.txt.0");
    EXPECT_EQ(Moraine::ArchPathRel.native(), "archive");
    EXPECT_EQ(Moraine::ArchPathAbs.native(), "/perm/logs/syslog/archive");
    EXPECT_EQ(Moraine::SyslogInit.native(), "/etc/init.d/S01syslogd-moraine");
    EXPECT_EQ(Moraine::SyslogPidPfe.native(), "/var/run/syslogd.pid");
    EXPECT_EQ(Moraine::ArchInit.native(), "/etc/init.d/S90vandis-moraine");
    EXPECT_EQ(Moraine::TmpPath.native(), "/tmp");
    EXPECT_EQ(Moraine::SyslogTarFn.native(), "syslog.tar");
    EXPECT_EQ(Moraine::SyslogTarPfe.native(), "/tmp/syslog.tar");
    EXPECT_EQ(Moraine::SyslogTmpPfe.native(), "/tmp/messages.txt");
}

// Command texts count to the blank: callers append a file name without adding one.
TEST(Constants, CommandsAreExactToTheBlank) {
    EXPECT_EQ(Moraine::Name, "vandis-moraine");
    EXPECT_EQ(Moraine::SyslogStopCmd, "/etc/init.d/S01syslogd-moraine stop");
    EXPECT_EQ(Moraine::SyslogStartCmd, "/etc/init.d/S01syslogd-moraine start");
    EXPECT_EQ(Moraine::ArchStopCmd, "/etc/init.d/S90vandis-moraine stop");
    EXPECT_EQ(Moraine::ArchStartCmd, "/etc/init.d/S90vandis-moraine start");
    EXPECT_EQ(Moraine::CdTmpCmd, "cd /tmp;");
    EXPECT_EQ(Moraine::XzCmd, "cd /tmp; xz -zf ");
    EXPECT_EQ(Moraine::CdTmpTarCreateCmd, "cd /tmp; tar --create --file syslog.tar ");
    EXPECT_EQ(Moraine::CdTmpTarAppendCmd, "cd /tmp; tar --append --file syslog.tar ");
}

}  // namespace
