// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Start-up: its steps and their order, the boot number, and what an interrupted run left.
#include "tests/unit/rotate/engine.h"

namespace {

using testing::IsEmpty;
using testing::StartsWith;

using StartupTest = RotateTest;

TEST_F(StartupTest, MakesTheDirectories) {
    const LogLine emptyLine{LOG_INFO, "Archive directory size is 0.000 bytes."};
    fs::remove_all(syslogDir);
    EXPECT_SUCCESS(rotate.Init());
    ExpectLogs({});
    EXPECT_EQ(rotate.bootNum, 1U);
    EXPECT_LOG(Warning("Path '/perm/logs/syslog' does not exist.  There is a problem with syslog, "
                       "or a mismatch in configurations."),
               emptyLine);

    fs::remove(archive);
    EXPECT_SUCCESS(rotate.Init());
    ExpectLogs({});
    EXPECT_LOG(emptyLine);
}

TEST_F(StartupTest, LeavesTheLiveLogAndItsRotationsAlone) {
    const Dir logs{{"messages.txt", "live"}, {"messages.txt.0", "0"}, {"messages.txt.9", "9"}};
    MakeDir(syslogDir, logs);
    EXPECT_SUCCESS(rotate.Init());
    ExpectLogs(logs);
}

TEST_F(StartupTest, MeasuresTheArchive) {
    MakeDir(archive, {{ArchFn(41), "0123456789"}, {"messages.040.foreign", "01234"}});
    EXPECT_SUCCESS(rotate.Init());
    EXPECT_EQ(rotate.archDirSize, 15U);
}

TEST_F(StartupTest, TakesAllStepsInTheirOrder) {
    Logging::SetLogLevel(Logging::SeverityDebug);
    WriteSparseFile(archive / ArchFn(41), 600'000'000);
    WriteSparseFile(archive / ArchFn(42), 600'000'000);
    WriteFile(tmpLog, "old\n");
    EXPECT_SUCCESS(rotate.Init());
    EXPECT_LOG(Debug(StartsWith("Required archive capacity is ")),
               Info("Renumbering boot numbers on archived files."),
               Debug("Renamed '" + ArchFn(41) + "' to '" + ArchFn(1) + "'"),
               Debug("Renamed '" + ArchFn(42) + "' to '" + ArchFn(2) + "'"),
               Debug("Archiving 'messages.txt.tmp'."),
               Info(StartsWith("Archived '/perm/logs/syslog/messages.txt.tmp' to "
                               "'/perm/logs/syslog/archive/messages.003.")),
               Info(StartsWith("Archive directory size is ")),
               Info(StartsWith("Log archive size ")),
               Debug("Deleted archived log file '" + ArchFn(1) + "'."));
    EXPECT_EQ(ReadXzFile(archive / ArchFn(3)), "old\n");
}

// The first failing step ends start-up.
class FailingStartupTest : public RotateTest {
protected:
    FailingStartupTest() { WriteFile(tmpLog, "old\n"); }

    // Expects a failure with these lines; the boot number is 7 until it is settled.
    void ExpectFailure(std::initializer_list<testing::Matcher<LogLine>> lines, unsigned bootNum = 7,
                       bool isLeftoverArchived = false) {
        EXPECT_FAILURE(rotate.Init());
        EXPECT_THAT(log.Take(), LinesAre(lines));
        EXPECT_EQ(rotate.bootNum, bootNum);
        EXPECT_EQ(fs::exists(archive / ArchFn(bootNum)), isLeftoverArchived);
    }
};

TEST_F(FailingStartupTest, SyslogDirectory) {
    fs::remove_all("/perm/logs");
    ExpectFailure({Warning(StartsWith("Path '/perm/logs/syslog' does not exist.  ")),
                   Error(StartsWith("Exception in CreateDir(/perm/logs/syslog): "))});
}

TEST_F(FailingStartupTest, Capacity) {
    fs::remove(archive);
    Faults::SetCapacity(1288490187);
    ExpectFailure({Error(StartsWith("Required archive capacity is "))});
    EXPECT_FALSE(fs::exists(archive));
}

TEST_F(FailingStartupTest, ArchiveDirectory) {
    fs::remove(archive);
    WriteFile(archive);
    ExpectFailure({Error(StartsWith("Exception in CreateDir(/perm/logs/syslog/archive): "))});
}

TEST_F(FailingStartupTest, BootNumbers) {
    WriteFile(archive / ArchFn(41));
    Faults::Fail("rename", EIO, 1);
    ExpectFailure(
        {Info(StartsWith("Renumbering ")), Error(StartsWith("Rename failure, reason: "))});
}

TEST_F(FailingStartupTest, Leftovers) {
    StandIn("xz", "exit 1");
    ExpectFailure({Error(StartsWith("Unable to 'xz -fk "))}, 1);
    ExpectLogs({{"messages.txt.tmp", "old\n"}});
}

TEST_F(FailingStartupTest, Measurement) {
    Faults::Fail("opendir", EIO, 6);
    ExpectFailure({Info(StartsWith("Archived ")),
                   Error(StartsWith("GetDirSize failure on /perm/logs/syslog/archive: "))},
                  1, true);
}

TEST_F(FailingStartupTest, SizeLimit) {
    WriteSparseFile(archive / "messages.001.foreign", ::SizeLimit);
    StandIn("xz", "printf compressed > \"$2.xz\"");
    Faults::Fail("remove", EBUSY, 2);
    ExpectFailure({Info(StartsWith("Archived ")), Info(StartsWith("Archive directory size is ")),
                   Info(StartsWith("Log archive size ")), Error(StartsWith("Remove failure for ")),
                   Error(StartsWith("The archive directory "))},
                  2, true);
}

TEST_F(StartupTest, AnArchiveThatCannotBeReadIsAnException) {
    for (const int query : {1, 2}) {
        Faults::Fail("opendir", EIO, query);
        EXPECT_THROW((void)rotate.Init(), fs::filesystem_error);
        EXPECT_EQ(rotate.bootNum, 7U);
    }
}

using BootNumTest = RotateTest;

TEST_F(BootNumTest, IsOneAboveTheHighestInTheArchive) {
    const std::vector<std::pair<Texts, unsigned>> table{
        {{}, 1},
        {{ArchFn(1)}, 2},
        {{ArchFn(1), ArchFn(7)}, 8},
        {{ArchFn(1), ArchFn(41), ArchFn(40)}, 42},
        {{ArchFn(999)}, 1000},
        {{"messages.65535.xz"}, 65536},
        {{"notes"}, 1},
        {{"other.012.txt"}, 13},
    };
    for (const auto& [names, expected] : table) {
        MakeArchive(names);
        rotate.bootNum = 5;
        EXPECT_SUCCESS(rotate.SetBootNum());
        EXPECT_EQ(rotate.bootNum, expected);
    }
}

TEST_F(BootNumTest, StaysAsItWasIfTheArchiveCannotBeRead) {
    rotate.bootNum = 5;
    Faults::Fail("opendir", EIO);
    EXPECT_THROW((void)rotate.SetBootNum(), fs::filesystem_error);
    EXPECT_EQ(rotate.bootNum, 5U);
}

TEST_F(BootNumTest, IsSettledAtStartUpAfterRenumbering) {
    const std::vector<std::pair<Texts, unsigned>> table{
        {{}, 1},
        {{ArchFn(1), ArchFn(41)}, 42},
        {{ArchFn(2)}, 2},
        {{ArchFn(40), ArchFn(41)}, 3},
    };
    for (const auto& [names, expected] : table) {
        MakeArchive(names);
        EXPECT_SUCCESS(rotate.Init());
        EXPECT_EQ(rotate.bootNum, expected);
    }
}

using LeftoverTest = RotateTest;

TEST_F(LeftoverTest, CompressedOnesAreDeletedAndOthersKept) {
    Dir kept;
    for (const char* name :
         {"messages.txt", "messages.txt.0", "messages.txt.xz.1", "messages.xz.txt",
          "messages.txt.XZ", "messages.txt.xzz", "xz", ".xz", "messages.txt.tmp1",
          "messages.tmp.txt", "messages.txt.TMP", "tmp", ".tmp"}) {
        WriteFile(syslogDir / name, name);
        kept[name] = name;
    }
    WriteFiles(syslogDir, {"messages.txt.xz", "messages.txt.0.xz", "anything.xz", "a.b.c.xz"});
    EXPECT_SUCCESS(rotate.CleanUpTempFiles());
    ExpectLogs(kept);
    EXPECT_DIR(archive, {});
    EXPECT_LOG();
}

TEST_F(LeftoverTest, ATakenLogIsArchivedUnderTheNewBootNumber) {
    WriteFile(tmpLog, "old\n");
    EXPECT_SUCCESS(rotate.CleanUpTempFiles());
    ExpectOnlyArchived("old\n");
    EXPECT_THAT(TakeCallsOf("kill"), IsEmpty());
    EXPECT_LOG(ArchivedLine(tmpLog));
}

TEST_F(LeftoverTest, ATakenLogGoesWithWhatWasCompressedOfIt) {
    const Path compressed = tmpLog.string() + ".xz";
    for (const Texts& inOrderOfAge : {Texts{tmpLog, compressed}, Texts{compressed, tmpLog}}) {
        MakeArchive();
        for (const std::string& pfn : inOrderOfAge) WriteFile(pfn, "old\n");
        EXPECT_SUCCESS(rotate.CleanUpTempFiles());
        ExpectOnlyArchived("old\n");
    }
}

TEST_F(LeftoverTest, EachFileWithATemporaryNameMakesAnArchiveFile) {
    MakeDir(syslogDir, {{"a.tmp", "one\n"}, {"messages.txt.3.tmp", "other\n"}});
    EXPECT_SUCCESS(rotate.CleanUpTempFiles());
    ExpectLogs({});
    EXPECT_THAT(ArchivedTexts(), testing::UnorderedElementsAre("one\n", "other\n"));
}

TEST_F(LeftoverTest, LeavesTheArchiveAlone) {
    const Dir archived{{ArchFn(1), "archived"}, {"messages.txt.tmp", "foreign"}};
    MakeDir(archive, archived);
    EXPECT_SUCCESS(rotate.CleanUpTempFiles());
    EXPECT_EQ(ReadDir(archive), archived);
}

TEST_F(LeftoverTest, ACompressedOneThatCannotBeDeletedIsAFailure) {
    WriteFile(syslogDir / "full.xz" / "file");
    EXPECT_FAILURE(rotate.CleanUpTempFiles());
    EXPECT_LOG(Error(StartsWith("Remove failure for /perm/logs/syslog/full.xz: ")));
}

TEST_F(LeftoverTest, APipeWithATemporaryNameIsAFailureAndHoldsNothingUp) {
    ASSERT_EQ(mkfifo(tmpLog.c_str(), 0600), 0);
    StandIn("xz", "exit 2");
    EXPECT_FAILURE(rotate.CleanUpTempFiles());
    ExpectLogs({{"messages.txt.tmp?", ""}});
}

TEST_F(LeftoverTest, TheFirstFailureEndsTheCleanUp) {
    WriteFiles(syslogDir, {"a.xz", "b.xz", "c.xz"});
    Faults::Fail("remove", EBUSY);
    EXPECT_FAILURE(rotate.CleanUpTempFiles());
    EXPECT_THAT(TakeCallsOf("remove"), testing::SizeIs(1));
    Faults::Clear();
    for (const char* name : {"a.xz", "b.xz", "c.xz"}) fs::remove(syslogDir / name);
    WriteFiles(syslogDir, {"a.tmp", "b.tmp", "c.tmp"});
    StandIn("xz", "exit 1");
    EXPECT_FAILURE(rotate.CleanUpTempFiles());
    EXPECT_THAT(TakeCallsOf("system"), testing::SizeIs(1));
}

TEST_F(LeftoverTest, ASyslogDirectoryThatCannotBeReadIsAnException) {
    Faults::Fail("opendir", EIO);
    EXPECT_THROW((void)rotate.CleanUpTempFiles(), fs::filesystem_error);
}

}  // namespace
