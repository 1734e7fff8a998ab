// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Archiving one file: what happens when all goes well, and what each failing step leaves behind.
#include <functional>

#include "logging/logging.h"
#include "tests/unit/rotate/engine.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

class ArchiveTest : public RotateTest {
protected:
    void SetUp() override {
        RotateTest::SetUp();
        rotate.bootNum = 7;
        WriteFile(pidFile, "4711\n");
    }

    // xz makes files of ten bytes.
    static void FakeCompression() { StandIn("xz", "printf compressed > \"$2.xz\""); }

    LogLine ArchivedLine(const Path& pfn, const std::string& seconds = "0.0") const {
        return {LOG_INFO, "Archived '" + pfn.string() + "' to '" + (archive / ArchFn(7)).string() +
                              "' in " + seconds + " seconds."};
    }

    const Path rotation = syslogDir / "messages.txt.0";
};

TEST_F(ArchiveTest, ARotationBecomesAnArchiveFile) {
    WriteFile(rotation, "line 1\nline 2\n");
    EXPECT_SUCCESS(rotate.Archive(rotation));
    EXPECT_EQ(ReadArchive(), (Dir{{ArchFn(7), "line 1\nline 2\n"}}));
    EXPECT_DIR(syslogDir, {{"archive/", ""}});
    EXPECT_EQ(log.Take(), (LogLines{ArchivedLine(rotation)}));
}

TEST_F(ArchiveTest, OnlyTheGivenFileIsTouched) {
    for (const char* name :
         {"messages.txt", "messages.txt.0", "messages.txt.1", "messages.txt.2"}) {
        WriteFile(syslogDir / name, name);
    }
    EXPECT_SUCCESS(rotate.Archive(syslogDir / "messages.txt.1"));
    EXPECT_EQ(ReadArchive(), (Dir{{ArchFn(7), "messages.txt.1"}}));
    EXPECT_DIR(syslogDir, {{"archive/", ""},
                           {"messages.txt", "messages.txt"},
                           {"messages.txt.0", "messages.txt.0"},
                           {"messages.txt.2", "messages.txt.2"}});
}

TEST_F(ArchiveTest, AnEmptyFileIsArchivedToo) {
    WriteFile(rotation);
    EXPECT_SUCCESS(rotate.Archive(rotation));
    EXPECT_EQ(ReadArchive(), (Dir{{ArchFn(7), ""}}));
}

TEST_F(ArchiveTest, ARotationIsNeitherRenamedNorIsSyslogdSignalled) {
    WriteFile(rotation, "line\n");
    EXPECT_SUCCESS(rotate.Archive(rotation));
    EXPECT_THAT(TakeCallsOf("kill"), IsEmpty());
    EXPECT_THAT(log.Take(), ElementsAre(ArchivedLine(rotation)));
}

TEST_F(ArchiveTest, EveryStepOfARotationComesInItsOrder) {
    WriteFile(rotation, "line\n");
    EXPECT_SUCCESS(rotate.Archive(rotation));
    EXPECT_THAT(
        Faults::TakeCalls(),
        ElementsAre("system xz -fk /perm/logs/syslog/messages.txt.0",
                    "fsync /perm/logs/syslog/messages.txt.0.xz", "fsync /perm/logs/syslog",
                    "rename /perm/logs/syslog/messages.txt.0.xz "
                    "/perm/logs/syslog/archive/messages.007.1970-01-01.00:00:42.txt.xz",
                    "fsync /perm/logs/syslog/archive",
                    "rename /perm/logs/syslog/messages.txt.0 /perm/logs/syslog/messages.txt.tmp",
                    "remove /perm/logs/syslog/messages.txt.tmp", "fsync /perm/logs/syslog"));
}

TEST_F(ArchiveTest, ARemovalThatIsNotSyncedIsAFailure) {
    WriteFile(rotation, "line\n");
    Faults::Fail("fsync", EIO, 4);
    EXPECT_FAILURE(rotate.Archive(rotation));
    EXPECT_THAT(log.Take(), ElementsAre(Line(LOG_ERR,
                                             "Unable to sync /perm/logs/syslog: "
                                             "Input/output error")));
    EXPECT_EQ(ReadArchive(), (Dir{{ArchFn(7), "line\n"}}));
}

TEST_F(ArchiveTest, TheLiveLogIsRenamedAndSyslogdToldToReopenBeforeItIsCompressed) {
    WriteFile(liveLog, "line\n");
    EXPECT_SUCCESS(rotate.Archive(liveLog));
    EXPECT_THAT(
        Faults::TakeCalls(),
        ElementsAre("rename /perm/logs/syslog/messages.txt "
                    "/perm/logs/syslog/messages.txt.tmp",
                    "kill 4711 1",  //
                    "system xz -fk /perm/logs/syslog/messages.txt.tmp",
                    "fsync /perm/logs/syslog/messages.txt.tmp.xz", "fsync /perm/logs/syslog",
                    "rename /perm/logs/syslog/messages.txt.tmp.xz "
                    "/perm/logs/syslog/archive/messages.007.1970-01-01.00:00:42.txt.xz",
                    "fsync /perm/logs/syslog/archive", "remove /perm/logs/syslog/messages.txt.tmp",
                    "fsync /perm/logs/syslog"));
    EXPECT_EQ(ReadArchive(), (Dir{{ArchFn(7), "line\n"}}));
    EXPECT_DIR(syslogDir, {{"archive/", ""}});
    EXPECT_EQ(log.Take(), (LogLines{ArchivedLine(liveLog)}));
}

TEST_F(ArchiveTest, TheLiveLogIsKnownByItsPathHoweverThatIsWritten) {
    WriteFile(liveLog, "line\n");
    const std::string pfn = "/perm//logs/syslog//messages.txt";
    EXPECT_SUCCESS(rotate.Archive(pfn));
    EXPECT_THAT(TakeCallsOf("kill"), ElementsAre("4711 1"));
    EXPECT_EQ(log.Take(), (LogLines{ArchivedLine(pfn)}));
}

TEST_F(ArchiveTest, ALogOfTheSameNameElsewhereIsNotTheLiveLog) {
    const Path other = "/perm/logs/messages.txt";
    WriteFile(other, "line\n");
    EXPECT_SUCCESS(rotate.Archive(other));
    EXPECT_THAT(TakeCallsOf("kill"), IsEmpty());
    EXPECT_EQ(ReadArchive(), (Dir{{ArchFn(7), "line\n"}}));
}

TEST_F(ArchiveTest, TheLiveLogIsArchivedThoughSyslogdCannotBeFound) {
    std::filesystem::remove(pidFile);
    WriteFile(liveLog, "line\n");
    EXPECT_SUCCESS(rotate.Archive(liveLog));
    EXPECT_EQ(ReadArchive(), (Dir{{ArchFn(7), "line\n"}}));
    EXPECT_EQ(
        log.Take(),
        (LogLines{{LOG_WARNING, "Attempt to read file /var/run/syslogd.pid, which does not exist."},
                  ArchivedLine(liveLog)}));
}

TEST_F(ArchiveTest, TheLiveLogIsArchivedThoughSyslogdIsGone) {
    Faults::Fail("kill", ESRCH);
    WriteFile(liveLog, "line\n");
    EXPECT_SUCCESS(rotate.Archive(liveLog));
    EXPECT_EQ(log.Take(), (LogLines{ArchivedLine(liveLog)}));
}

TEST_F(ArchiveTest, ADebugLineNamesTheFileThatIsCompressed) {
    Logging::SetLogLevel(Logging::SeverityDebug);
    WriteFile(liveLog, "line\n");
    WriteFile(rotation, "line\n");
    EXPECT_SUCCESS(rotate.Archive(liveLog));
    EXPECT_SUCCESS(rotate.Archive(rotation));
    const LogLines lines = log.Take();
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[0], (LogLine{LOG_DEBUG, "Archiving 'messages.txt.tmp'."}));
    EXPECT_EQ(lines[2], (LogLine{LOG_DEBUG, "Archiving 'messages.txt.0'."}));
}

TEST_F(ArchiveTest, TheDurationIsInSecondsWithOneDecimal) {
    Faults::OnCall("system", [] { Faults::FixClock({.tv_sec = 44, .tv_nsec = 345678901}); });
    WriteFile(rotation, "line\n");
    EXPECT_SUCCESS(rotate.Archive(rotation));
    EXPECT_EQ(log.Take(), (LogLines{ArchivedLine(rotation, "2.3")}));
}

TEST_F(ArchiveTest, ACompressedFileThatLiesBesideTheSourceIsOverwritten) {
    WriteFile(rotation, "line\n");
    WriteFile(rotation.string() + ".xz", "of an earlier try");
    EXPECT_SUCCESS(rotate.Archive(rotation));
    EXPECT_EQ(ReadArchive(), (Dir{{ArchFn(7), "line\n"}}));
    EXPECT_DIR(syslogDir, {{"archive/", ""}});
}

TEST_F(ArchiveTest, TheArchiveSizeGrowsByTheSizeOfTheArchiveFile) {
    rotate.archDirSize = 1000;
    WriteFile(rotation, "line\n");
    EXPECT_SUCCESS(rotate.Archive(rotation));
    EXPECT_EQ(rotate.archDirSize, 1000 + std::filesystem::file_size(archive / ArchFn(7)));
}

TEST_F(ArchiveTest, OneByteBelowTheSizeLimitNothingIsDeleted) {
    FakeCompression();
    rotate.archDirSize = 1073741823 - 10;
    WriteFile(rotation, "line\n");
    EXPECT_SUCCESS(rotate.Archive(rotation));
    EXPECT_EQ(log.Take(), (LogLines{ArchivedLine(rotation)}));
}

TEST_F(ArchiveTest, ReachingTheSizeLimitDeletesTheOldestFiles) {
    FakeCompression();
    WriteSparseFile(archive / ArchFn(6), 200'000'000);
    rotate.archDirSize = 1073741824 - 10;
    WriteFile(rotation, "line\n");
    EXPECT_SUCCESS(rotate.Archive(rotation));
    EXPECT_DIR(archive, {{ArchFn(7), "compressed"}});
    EXPECT_THAT(log.Take(), ElementsAre(ArchivedLine(rotation),
                                        Line(LOG_INFO, StartsWith("Log archive size 1024.000 MiB "
                                                                  "exceeds 1024.000 MiB. "))));
}

TEST_F(ArchiveTest, AFailureOfTheSizeLimitIsAFailureOfTheArchiving) {
    FakeCompression();
    rotate.archDirSize = 1073741824;
    WriteFile(rotation, "line\n");
    EXPECT_FAILURE(rotate.Archive(rotation));
    EXPECT_THAT(log.Take(),
                ElementsAre(ArchivedLine(rotation), Line(LOG_INFO, StartsWith("Log archive size")),
                            Line(LOG_ERR, StartsWith("The archive directory"))));
    EXPECT_DIR(syslogDir, {{"archive/", ""}});
}

TEST_F(ArchiveTest, WithoutATimeStampNothingIsDoneAtAll) {
    for (const char* function : {"clock_gettime", "gmtime_r", "strftime"}) {
        SCOPED_TRACE(function);
        WriteFile(liveLog, "line\n");
        Faults::Fail(function, EINVAL);
        EXPECT_FAILURE(rotate.Archive(liveLog));
        EXPECT_THAT(Faults::TakeCalls(), IsEmpty());
        EXPECT_THAT(log.Take(), ElementsAre(Line(LOG_WARNING, StartsWith(""))));
        EXPECT_DIR(syslogDir, {{"archive/", ""}, {"messages.txt", "line\n"}});
        Faults::Clear();
    }
}

TEST_F(ArchiveTest, ALiveLogThatCannotBeRenamedStaysUntouched) {
    WriteFile(liveLog, "line\n");
    std::filesystem::create_directory(tmpLog);
    EXPECT_FAILURE(rotate.Archive(liveLog));
    EXPECT_THAT(Faults::TakeCalls(), ElementsAre(StartsWith("rename ")));
    EXPECT_THAT(log.Take(), ElementsAre(Line(LOG_ERR, StartsWith("Rename failure, reason: "))));
    EXPECT_DIR(syslogDir,
               {{"archive/", ""}, {"messages.txt", "line\n"}, {"messages.txt.tmp/", ""}});
    EXPECT_EQ(rotate.archDirSize, 0U);
}

TEST_F(ArchiveTest, ALiveLogThatCannotBeCompressedKeepsItsTemporaryName) {
    StandIn("xz", "exit 1");
    WriteFile(liveLog, "line\n");
    EXPECT_FAILURE(rotate.Archive(liveLog));
    EXPECT_DIR(syslogDir, {{"archive/", ""}, {"messages.txt.tmp", "line\n"}});
    EXPECT_DIR(archive, {});
}

// What a failing step leaves behind.
struct FailingStep {
    const char* name;
    std::function<void()> breakIt;
    const char* line;  // how the one Error line begins
    Dir syslogDir;     // besides the archive and the source
    Dir archive;
    unsigned long growth;  // of the archive directory, as it is counted
};

std::ostream& operator<<(std::ostream& out, const FailingStep& step) {
    return out << step.name;
}

class FailingStepTest : public ArchiveTest, public testing::WithParamInterface<FailingStep> {};

TEST_P(FailingStepTest, KeepsTheSourceAndLogsOneLine) {
    const FailingStep& step = GetParam();
    WriteFile(rotation, "line\n");
    rotate.archDirSize = 1000;
    FakeCompression();
    step.breakIt();
    EXPECT_FAILURE(rotate.Archive(rotation));
    EXPECT_THAT(log.Take(), ElementsAre(Line(LOG_ERR, StartsWith(step.line))));
    Dir kept = step.syslogDir;
    kept.insert({{"archive/", ""}, {"messages.txt.0", "line\n"}});
    EXPECT_EQ(ReadDir(syslogDir), kept);
    EXPECT_EQ(ReadDir(archive), step.archive);
    EXPECT_EQ(rotate.archDirSize, 1000 + step.growth);
}

INSTANTIATE_TEST_SUITE_P(
    , FailingStepTest,
    testing::Values(
        FailingStep{"Compression",
                    [] { StandIn("xz", "exit 1"); },
                    "Unable to 'xz -fk /perm/logs/syslog/messages.txt.0'.  Result: 256, Error: '",
                    {},
                    {},
                    0},
        FailingStep{"CompressionHalfWay",
                    [] { StandIn("xz", "printf comp > \"$2.xz\"; exit 1"); },
                    "Unable to 'xz -fk /perm/logs/syslog/messages.txt.0'.  Result: 256, Error: '",
                    {{"messages.txt.0.xz", "comp"}},
                    {},
                    0},
        FailingStep{"SyncOfTheCompressedFile",
                    [] { Faults::Fail("fsync", EIO, 1); },
                    "Unable to sync /perm/logs/syslog/messages.txt.0.xz: Input/output error",
                    {{"messages.txt.0.xz", "compressed"}},
                    {},
                    0},
        FailingStep{"RenameIntoTheArchive",
                    [] { Faults::Fail("rename", EIO, 1); },
                    "Rename failure, reason: ",
                    {{"messages.txt.0.xz", "compressed"}},
                    {},
                    0},
        FailingStep{"CompressedFileThatIsNotThere",
                    [] { StandIn("xz", "exit 0"); },
                    "Rename failure, reason: ",
                    {},
                    {},
                    0},
        FailingStep{"ReadOfTheSize",
                    [] { StandIn("xz", "ln -s /nowhere \"$2.xz\""); },
                    "Unable to get messages.007.1970-01-01.00:00:42.txt.xz size, reason: "
                    "filesystem error: ",
                    {},
                    {{ArchFn(7) + "@", "/nowhere"}},
                    0},
        FailingStep{"SyncOfTheSyslogDirectory",
                    [] { Faults::Fail("fsync", EIO, 2); },
                    "Unable to sync /perm/logs/syslog: Input/output error",
                    {{"messages.txt.0.xz", "compressed"}},
                    {},
                    0},
        FailingStep{"SyncOfTheArchive",
                    [] { Faults::Fail("fsync", EIO, 3); },
                    "Unable to sync /perm/logs/syslog/archive: Input/output error",
                    {},
                    {{ArchFn(7), "compressed"}},
                    10},
        FailingStep{"RemovalOfTheSource",
                    [] {
                        Faults::Fail("rename", EBUSY, 2);
                        Faults::Fail("remove", EBUSY, 1);
                    },
                    "Remove failure for /perm/logs/syslog/messages.txt.0: ",
                    {},
                    {{ArchFn(7), "compressed"}},
                    10}),
    testing::PrintToStringParamName());

}  // namespace
