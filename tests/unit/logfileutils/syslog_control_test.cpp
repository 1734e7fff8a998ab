// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Acting on syslogd: the signal that makes it reopen its log, and the removal of the live log.
#include <csignal>
#include <utility>

#include "tests/support/mounts.h"
#include "tests/support/ordinary_rights.h"
#include "tests/unit/logfileutils/fixture.h"

namespace fs = std::filesystem;

namespace {

class SyslogControlTest : public CatalogueTest {
protected:
    // Sends the signal, by these calls.
    void ExpectCalls(const Names& calls) {
        (void)Faults::TakeCalls();
        catalogue.SendSigHupToSyslog();
        EXPECT_EQ(Faults::TakeCalls(), calls);
    }

    const fs::path pidFile = "/var/run/syslogd.pid";
    const LogLine noPidFile{LOG_WARNING,
                            "Attempt to read file /var/run/syslogd.pid, which does not exist."};
    const LogLine deleted{LOG_INFO, "The syslog file was deleted."};
};

TEST_F(SyslogControlTest, WhateverNumberThePidFileHoldsGetsTheSignal) {
    const std::pair<std::string, std::string> cases[] = {
        {"123\n", "123"},
        {"123", "123"},
        {"  123  ", "123"},
        {"\n123\r\n", "123"},
        {"123 456\n", "123"},
        {"12abc", "12"},
        {"010", "10"},
        {"1", "1"},
        {"0\n", "0"},
        {"-1\n", "-1"},
        {"-5\n", "-5"},
        {"2147483647\n", "2147483647"},
        {"-2147483648\n", "-2147483648"},
    };
    for (const auto& [text, pid] : cases) {
        SCOPED_TRACE(text);
        WriteFile(pidFile, text);
        ExpectCalls({"kill " + pid + " 1"});
    }
    static_assert(SIGHUP == 1);
}

TEST_F(SyslogControlTest, APidFileWithoutANumberIsSilentlyIgnored) {
    for (const char* text : {"", "\n", "   ", "pid", "x1", "-", "--1", "2147483648", "-2147483649",
                             "99999999999999999999", "\xff"}) {
        SCOPED_TRACE(text);
        WriteFile(pidFile, text);
        ExpectCalls({});
    }
}

TEST_F(SyslogControlTest, AMissingPidFileMeansNoSignal) {
    ExpectCalls({});
    EXPECT_LOG(noPidFile);

    fs::create_directory(pidFile);
    ExpectCalls({});
    EXPECT_LOG(noPidFile);

    fs::remove(pidFile);
    fs::create_symlink("nowhere", pidFile);
    ExpectCalls({});
    EXPECT_LOG(noPidFile);
}

TEST_F(SyslogControlTest, AnUnreadablePidFileMeansNoSignal) {
    WriteFile(pidFile, "123\n");
    Faults::Fail("fread", EIO);
    ExpectCalls({});
    EXPECT_LOG(Error("Could not read a file: Input/output error"));
}

TEST_F(SyslogControlTest, ASyslogdThatHasGoneIsNotLogged) {
    WriteFile(pidFile, "123\n");
    Faults::Fail("kill", ESRCH);
    ExpectCalls({"kill 123 1"});
}

TEST_F(SyslogControlTest, DeletingTheLiveLogSignalsSyslogdAfterwards) {
    WriteFile(pidFile, "123\n");
    MakeDir(syslogDir, {{"messages.txt", "1"}, {"messages.txt.0", "2"}});
    EXPECT_SUCCESS(catalogue.DeleteSyslogFile());
    EXPECT_DIR(syslogDir, {{"archive/", ""}, {"messages.txt.0", "2"}});
    EXPECT_EQ(Faults::TakeCalls(), (Names{"remove /perm/logs/syslog/messages.txt", "kill 123 1"}));
    EXPECT_LOG(deleted);

    EXPECT_SUCCESS(catalogue.DeleteSyslogFile()) << "a live log that is not there";
    EXPECT_EQ(Faults::TakeCalls().back(), "kill 123 1");
    EXPECT_LOG(deleted);
}

TEST_F(SyslogControlTest, DeletingTheLiveLogNeedsNoSyslogd) {
    WriteFile(liveLog, "1");
    EXPECT_SUCCESS(catalogue.DeleteSyslogFile());
    EXPECT_DIR(syslogDir, {{"archive/", ""}});
    EXPECT_LOG(noPidFile, deleted);
}

class UndeletableLiveLogTest : public SyslogControlTest {
protected:
    void ExpectFailureWithoutASignal() {
        WriteFile(pidFile, "123\n");
        EXPECT_FAILURE(catalogue.DeleteSyslogFile());
        EXPECT_EQ(Faults::TakeCalls(), Names{"remove /perm/logs/syslog/messages.txt"});
        EXPECT_LOG(Error(RemovalFailure(liveLog)));
        EXPECT_TRUE(fs::exists(liveLog));
    }
};

TEST_F(UndeletableLiveLogTest, AFolderThatIsNotEmpty) {
    WriteFile(liveLog / "inside", "1");
    ExpectFailureWithoutASignal();
}

TEST_F(UndeletableLiveLogTest, AFileInUseByAMount) {
    WriteFile(liveLog, "1");
    const Mounted over = Mounted::Over(liveLog, liveLog);
    ExpectFailureWithoutASignal();
}

TEST_F(UndeletableLiveLogTest, AReadOnlyFileSystem) {
    WriteFile(liveLog, "1");
    const Mounted readOnly = Mounted::ReadOnly(syslogDir);
    ExpectFailureWithoutASignal();
}

TEST_F(UndeletableLiveLogTest, MissingPermission) {
    WriteFile(liveLog, "1");
    fs::permissions(syslogDir, fs::perms::owner_read | fs::perms::owner_exec);
    const OrdinaryRights ordinary;
    ExpectFailureWithoutASignal();
}

}  // namespace
