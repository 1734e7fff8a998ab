// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Start-up: its steps and their order, the boot number, and what an interrupted run left.
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>

#include "logging/logging.h"
#include "tests/unit/rotate/engine.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Matcher;
using testing::StartsWith;

class StartupTest : public RotateTest {
protected:
    void RemoveArchive() const { std::filesystem::remove(archive); }

    const LogLine emptyLine{LOG_INFO, "Archive directory size is 0.000 bytes."};
};

TEST_F(StartupTest, OnAFreshDeviceMakesTheDirectories) {
    std::filesystem::remove_all(syslogDir);
    EXPECT_SUCCESS(rotate.Init());
    EXPECT_DIR(syslogDir, {{"archive/", ""}});
    EXPECT_EQ(rotate.bootNum, 1U);
    EXPECT_EQ(log.Take(),
              (LogLines{{LOG_WARNING,
                         "Path '/perm/logs/syslog' does not exist.  There is a problem with "
                         "syslog, or a mismatch in configurations."},
                        emptyLine}));
}

TEST_F(StartupTest, MakesTheArchiveSilently) {
    RemoveArchive();
    EXPECT_SUCCESS(rotate.Init());
    EXPECT_DIR(syslogDir, {{"archive/", ""}});
    EXPECT_EQ(log.Take(), LogLines{emptyLine});
}

TEST_F(StartupTest, LeavesTheLiveLogAndItsRotationsAlone) {
    const Dir logs{{"archive/", ""},
                   {"messages.txt", "live"},
                   {"messages.txt.0", "0"},
                   {"messages.txt.9", "9"}};
    for (const auto& [name, text] : logs) {
        if (!text.empty()) WriteFile(syslogDir / name, text);
    }
    EXPECT_SUCCESS(rotate.Init());
    EXPECT_EQ(ReadDir(syslogDir), logs);
}

TEST_F(StartupTest, MeasuresTheArchive) {
    WriteFile(archive / ArchFn(41), "0123456789");
    WriteFile(archive / "messages.040.foreign", "01234");
    EXPECT_SUCCESS(rotate.Init());
    EXPECT_EQ(rotate.archDirSize, 15U);
}

TEST_F(StartupTest, TakesAllStepsInTheirOrder) {
    Logging::SetLogLevel(Logging::SeverityDebug);
    RemoveArchive();
    WriteSparseFile(archive / ArchFn(41), 600'000'000);
    WriteSparseFile(archive / ArchFn(42), 600'000'000);
    WriteFile(tmpLog, "old\n");
    EXPECT_SUCCESS(rotate.Init());
    EXPECT_THAT(
        log.Take(),
        ElementsAre(Line(LOG_DEBUG, StartsWith("Required archive capacity is ")),
                    LogLine{LOG_INFO, "Renumbering boot numbers on archived files."},
                    LogLine{LOG_DEBUG, "Renamed '" + ArchFn(41) + "' to '" + ArchFn(1) + "'"},
                    LogLine{LOG_DEBUG, "Renamed '" + ArchFn(42) + "' to '" + ArchFn(2) + "'"},
                    LogLine{LOG_DEBUG, "Archiving 'messages.txt.tmp'."},
                    Line(LOG_INFO, StartsWith("Archived '/perm/logs/syslog/messages.txt.tmp' to "
                                              "'/perm/logs/syslog/archive/messages.003.")),
                    Line(LOG_INFO, StartsWith("Archive directory size is ")),
                    Line(LOG_INFO, StartsWith("Log archive size ")),
                    LogLine{LOG_DEBUG, "Deleted archived log file '" + ArchFn(1) + "'."}));
    EXPECT_EQ(ReadXzFile(archive / ArchFn(3)), "old\n");
}

// The first failure ends start-up.
struct FailingInit {
    const char* name;
    std::function<void()> breakIt;
    std::vector<Matcher<LogLine>> lines;
    bool isLeftoverArchived;
    unsigned bootNum;
};

std::ostream& operator<<(std::ostream& out, const FailingInit& step) {
    return out << step.name;
}

class FailingStartupTest : public RotateTest, public testing::WithParamInterface<FailingInit> {};

TEST_P(FailingStartupTest, EndsThere) {
    const FailingInit& step = GetParam();
    WriteFile(tmpLog, "old\n");
    step.breakIt();
    EXPECT_FAILURE(rotate.Init());
    EXPECT_THAT(log.Take(), testing::ElementsAreArray(step.lines));
    EXPECT_EQ(rotate.bootNum, step.bootNum);
    EXPECT_EQ(std::filesystem::exists(archive / ArchFn(step.bootNum)), step.isLeftoverArchived);
}

INSTANTIATE_TEST_SUITE_P(
    , FailingStartupTest,
    testing::Values(
        FailingInit{"SyslogDirectory",
                    [] { std::filesystem::remove_all("/perm/logs"); },
                    {Line(LOG_WARNING, StartsWith("Path '/perm/logs/syslog' does not exist.  ")),
                     Line(LOG_ERR, StartsWith("Exception in CreateDir(/perm/logs/syslog): "))},
                    false,
                    0},
        FailingInit{"Capacity",
                    [] { Faults::SetCapacity(1288490187); },
                    {Line(LOG_ERR, StartsWith("Required archive capacity is "))},
                    false,
                    0},
        FailingInit{
            "ArchiveDirectory",
            [] {
                std::filesystem::remove("/perm/logs/syslog/archive");
                WriteFile("/perm/logs/syslog/archive");
            },
            {Line(LOG_ERR, StartsWith("Exception in CreateDir(/perm/logs/syslog/archive): "))},
            false,
            0},
        FailingInit{"BootNumbers",
                    [] {
                        WriteFile("/perm/logs/syslog/archive/" + ArchFn(41));
                        Faults::Fail("rename", EIO, 1);
                    },
                    {Line(LOG_INFO, StartsWith("Renumbering ")),
                     Line(LOG_ERR, StartsWith("Rename failure, reason: "))},
                    false,
                    0},
        FailingInit{"Leftovers",
                    [] { StandIn("xz", "exit 1"); },
                    {Line(LOG_ERR, StartsWith("Unable to 'xz -fk "))},
                    false,
                    1},
        FailingInit{
            "Measurement",
            [] { Faults::Fail("opendir", EIO, 6); },
            {Line(LOG_INFO, StartsWith("Archived ")),
             Line(LOG_ERR, StartsWith("GetDirSize failure on /perm/logs/syslog/archive: "))},
            true,
            1},
        FailingInit{"SizeLimit",
                    [] {
                        WriteSparseFile("/perm/logs/syslog/archive/messages.001.foreign",
                                        SizeLimit);
                        StandIn("xz", "printf compressed > \"$2.xz\"");
                        Faults::Fail("remove", EBUSY, 2);
                    },
                    {Line(LOG_INFO, StartsWith("Archived ")),
                     Line(LOG_INFO, StartsWith("Archive directory size is ")),
                     Line(LOG_INFO, StartsWith("Log archive size ")),
                     Line(LOG_ERR, StartsWith("Remove failure for ")),
                     Line(LOG_ERR, StartsWith("The archive directory "))},
                    true,
                    2}),
    testing::PrintToStringParamName());

TEST_F(StartupTest, WithTooSmallAFileSystemMakesNoArchive) {
    RemoveArchive();
    Faults::SetCapacity(1288490187);
    EXPECT_FAILURE(rotate.Init());
    EXPECT_DIR(syslogDir, {});
}

TEST_F(StartupTest, AnArchiveThatCannotBeReadIsAnException) {
    for (const int query : {1, 2}) {
        Faults::Fail("opendir", EIO, query);
        EXPECT_THROW((void)rotate.Init(), std::filesystem::filesystem_error);
        EXPECT_EQ(rotate.bootNum, 0U);
    }
}

class BootNumTest : public RotateTest {};

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
        std::filesystem::remove_all(archive);
        std::filesystem::create_directory(archive);
        for (const std::string& name : names) WriteFile(archive / name);
        rotate.bootNum = 5;
        EXPECT_SUCCESS(rotate.SetBootNum());
        EXPECT_EQ(rotate.bootNum, expected);
    }
}

TEST_F(BootNumTest, StaysAsItWasIfTheArchiveCannotBeRead) {
    rotate.bootNum = 5;
    Faults::Fail("opendir", EIO);
    EXPECT_THROW((void)rotate.SetBootNum(), std::filesystem::filesystem_error);
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
        std::filesystem::remove_all(archive);
        std::filesystem::create_directory(archive);
        for (const std::string& name : names) WriteFile(archive / name);
        EXPECT_SUCCESS(rotate.Init());
        EXPECT_EQ(rotate.bootNum, expected);
    }
}

class LeftoverTest : public RotateTest {
protected:
    void SetUp() override {
        RotateTest::SetUp();
        rotate.bootNum = 7;
    }
};

TEST_F(LeftoverTest, CompressedOnesAreDeletedAndOthersKept) {
    Dir kept{{"archive/", ""}};
    for (const char* name :
         {"messages.txt", "messages.txt.0", "messages.txt.xz.1", "messages.xz.txt",
          "messages.txt.XZ", "messages.txt.xzz", "xz", ".xz", "messages.txt.tmp1",
          "messages.tmp.txt", "messages.txt.TMP", "tmp", ".tmp"}) {
        WriteFile(syslogDir / name, name);
        kept[name] = name;
    }
    for (const char* name : {"messages.txt.xz", "messages.txt.0.xz", "anything.xz", "a.b.c.xz"}) {
        WriteFile(syslogDir / name, name);
    }
    EXPECT_SUCCESS(rotate.CleanUpTempFiles());
    EXPECT_EQ(ReadDir(syslogDir), kept);
    EXPECT_DIR(archive, {});
    EXPECT_THAT(log.Take(), IsEmpty());
}

TEST_F(LeftoverTest, ATakenLogIsArchivedUnderTheNewBootNumber) {
    WriteFile(tmpLog, "old\n");
    EXPECT_SUCCESS(rotate.CleanUpTempFiles());
    ExpectOnlyArchived("old\n");
    EXPECT_THAT(TakeCallsOf("kill"), IsEmpty());
    EXPECT_EQ(log.Take(),
              (LogLines{{LOG_INFO,
                         "Archived '/perm/logs/syslog/messages.txt.tmp' to "
                         "'/perm/logs/syslog/archive/messages.007.1970-01-01.00:00:42.txt.xz' in "
                         "0.0 seconds."}}));
}

TEST_F(LeftoverTest, AnyFileWithATemporaryNameIsArchived) {
    WriteFile(syslogDir / "messages.txt.3.tmp", "old\n");
    EXPECT_SUCCESS(rotate.CleanUpTempFiles());
    ExpectOnlyArchived("old\n");
}

TEST_F(LeftoverTest, ATakenLogGoesWithWhatWasCompressedOfIt) {
    for (const bool isSourceOlder : {true, false}) {
        WriteFile(tmpLog.string() + (isSourceOlder ? "" : ".xz"), "old\n");
        WriteFile(tmpLog.string() + (isSourceOlder ? ".xz" : ""), "old\n");
        WriteFile(tmpLog, "old\n");
        rotate.archDirSize = 0;
        EXPECT_SUCCESS(rotate.CleanUpTempFiles());
        ExpectOnlyArchived("old\n");
        std::filesystem::remove(archive / ArchFn(7));
    }
}

TEST_F(LeftoverTest, TwoTakenLogsMakeTwoArchiveFiles) {
    WriteFile(syslogDir / "a.tmp", "one\n");
    WriteFile(syslogDir / "b.tmp", "other\n");
    EXPECT_SUCCESS(rotate.CleanUpTempFiles());
    EXPECT_DIR(syslogDir, {{"archive/", ""}});
    const Dir archived = ReadArchive();
    ASSERT_THAT(archived, testing::SizeIs(2));
    EXPECT_THAT((std::set{archived.begin()->second, archived.rbegin()->second}),
                ElementsAre("one\n", "other\n"));
}

TEST_F(LeftoverTest, TheArchiveIsNotLookedInto) {
    WriteFile(archive / ArchFn(1), "archived");
    WriteFile(archive / "messages.txt.tmp", "foreign");
    EXPECT_SUCCESS(rotate.CleanUpTempFiles());
    EXPECT_DIR(archive, {{ArchFn(1), "archived"}, {"messages.txt.tmp", "foreign"}});
}

TEST_F(LeftoverTest, ACompressedOneThatCannotBeDeletedIsAFailure) {
    WriteFile(syslogDir / "full.xz" / "file");
    EXPECT_FAILURE(rotate.CleanUpTempFiles());
    EXPECT_THAT(log.Take(), ElementsAre(Line(LOG_ERR, StartsWith("Remove failure for "
                                                                 "/perm/logs/syslog/full.xz: "))));
}

TEST_F(LeftoverTest, ATakenLogThatCannotBeArchivedIsAFailure) {
    StandIn("xz", "exit 1");
    WriteFile(tmpLog, "old\n");
    EXPECT_FAILURE(rotate.CleanUpTempFiles());
    EXPECT_DIR(syslogDir, {{"archive/", ""}, {"messages.txt.tmp", "old\n"}});
}

TEST_F(LeftoverTest, APipeWithATemporaryNameIsAFailureAndHoldsNothingUp) {
    ASSERT_EQ(mkfifo(tmpLog.c_str(), 0600), 0);
    StandIn("xz", "exit 2");
    EXPECT_FAILURE(rotate.CleanUpTempFiles());
    EXPECT_DIR(syslogDir, {{"archive/", ""}, {"messages.txt.tmp?", ""}});
}

TEST_F(LeftoverTest, TheFirstFailureEndsTheCleanUp) {
    for (const char* name : {"a.xz", "b.xz", "c.xz"}) WriteFile(syslogDir / name);
    Faults::Fail("remove", EBUSY);
    EXPECT_FAILURE(rotate.CleanUpTempFiles());
    EXPECT_THAT(TakeCallsOf("remove"), testing::SizeIs(1));
    for (const char* name : {"a.tmp", "b.tmp", "c.tmp"}) WriteFile(syslogDir / name);
    Faults::Clear();
    for (const char* name : {"a.xz", "b.xz", "c.xz"}) std::filesystem::remove(syslogDir / name);
    StandIn("xz", "exit 1");
    EXPECT_FAILURE(rotate.CleanUpTempFiles());
    EXPECT_THAT(TakeCallsOf("system"), testing::SizeIs(1));
}

TEST_F(LeftoverTest, ASyslogDirectoryThatCannotBeReadIsAnException) {
    Faults::Fail("opendir", EIO);
    EXPECT_THROW((void)rotate.CleanUpTempFiles(), std::filesystem::filesystem_error);
}

}  // namespace
