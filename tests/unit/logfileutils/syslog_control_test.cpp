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
};

TEST_F(SyslogControlTest, WhateverNumberThePidFileHoldsGetsTheSignal) {
    const std::pair<const char*, const char*> cases[] = {
        {"123\n", "kill 123 1"},
        {"123", "kill 123 1"},
        {"  123  ", "kill 123 1"},
        {"\n123\r\n", "kill 123 1"},
        {"123 456\n", "kill 123 1"},
        {"12abc", "kill 12 1"},
        {"010", "kill 10 1"},
        {"1", "kill 1 1"},
        {"0\n", "kill 0 1"},
        {"-1\n", "kill -1 1"},
        {"-5\n", "kill -5 1"},
        {"2147483647\n", "kill 2147483647 1"},
        {"-2147483648\n", "kill -2147483648 1"},
    };
    for (const auto& [text, call] : cases) {
        SCOPED_TRACE(text);
        WriteFile(pidFile, text);
        ExpectCalls({call});
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
    const LogLines missing = {
        {LOG_WARNING, "Attempt to read file /var/run/syslogd.pid, which does not exist."}};
    ExpectCalls({});
    ExpectLines(missing);

    fs::create_directory(pidFile);
    ExpectCalls({});
    fs::remove(pidFile);
    ExpectLines(missing);

    fs::create_symlink("nowhere", pidFile);
    ExpectCalls({});
    ExpectLines(missing);
}

TEST_F(SyslogControlTest, AnUnreadablePidFileMeansNoSignal) {
    WriteFile(pidFile, "123\n");
    Faults::Fail("fread", EIO);
    ExpectCalls({});
    ExpectLines({{LOG_ERR, "Could not read a file: Input/output error"}});
}

TEST_F(SyslogControlTest, ASyslogdThatHasGoneIsNotLogged) {
    WriteFile(pidFile, "123\n");
    Faults::Fail("kill", ESRCH);
    ExpectCalls({"kill 123 1"});
}

TEST_F(SyslogControlTest, DeletingTheLiveLogSignalsSyslogdAfterwards) {
    WriteFile(pidFile, "123\n");
    WriteFile(liveLog, "1");
    WriteFile(syslogDir / "messages.txt.0", "2");
    EXPECT_SUCCESS(catalogue.DeleteSyslogFile());
    EXPECT_DIR(syslogDir, {{"archive/", ""}, {"messages.txt.0", "2"}});
    EXPECT_EQ(Faults::TakeCalls(), (Names{"remove /perm/logs/syslog/messages.txt", "kill 123 1"}));
    ExpectLines({{LOG_INFO, "The syslog file was deleted."}});
}

TEST_F(SyslogControlTest, DeletingALiveLogThatIsNotThereSignalsAllTheSame) {
    WriteFile(pidFile, "123\n");
    EXPECT_SUCCESS(catalogue.DeleteSyslogFile());
    EXPECT_EQ(Faults::TakeCalls().back(), "kill 123 1");
    ExpectLines({{LOG_INFO, "The syslog file was deleted."}});
}

TEST_F(SyslogControlTest, DeletingTheLiveLogNeedsNoSyslogd) {
    WriteFile(liveLog, "1");
    EXPECT_SUCCESS(catalogue.DeleteSyslogFile());
    EXPECT_DIR(syslogDir, {{"archive/", ""}});
    ExpectLines({{LOG_WARNING, "Attempt to read file /var/run/syslogd.pid, which does not exist."},
                 {LOG_INFO, "The syslog file was deleted."}});
}

class UndeletableLiveLogTest : public SyslogControlTest {
protected:
    void ExpectFailureWithoutASignal() {
        WriteFile(pidFile, "123\n");
        EXPECT_FAILURE(catalogue.DeleteSyslogFile());
        EXPECT_EQ(Faults::TakeCalls(), Names{"remove /perm/logs/syslog/messages.txt"});
        ExpectLines({{LOG_ERR, RemovalFailure(liveLog)}});
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
