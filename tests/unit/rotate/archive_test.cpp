// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Archiving one file: what happens when all goes well, and what each failing step leaves behind.
#include <tuple>

#include "tests/unit/rotate/engine.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

class ArchiveTest : public RotateTest {
protected:
    ArchiveTest() { WriteFile(pidFile, "4711\n"); }

    // xz makes files of ten bytes.
    static void FakeCompression() { StandIn("xz", "printf compressed > \"$2.xz\""); }

    // Archives a file of one line.
    void ArchiveLine(const Path& pfn) {
        WriteFile(pfn, "line\n");
        EXPECT_SUCCESS(rotate.Archive(pfn));
    }
};

TEST_F(ArchiveTest, OnlyTheGivenFileIsTouched) {
    const Dir others{{"messages.txt", "live"}, {"messages.txt.0", "0"}, {"messages.txt.2", "2"}};
    MakeDir(syslogDir, others);
    ArchiveLine(nextRotation);
    ExpectArchived("line\n");
    ExpectLogs(others);
}

TEST_F(ArchiveTest, AnEmptyFileIsArchivedToo) {
    WriteFile(rotation);
    EXPECT_SUCCESS(rotate.Archive(rotation));
    ExpectArchived("");
}

TEST_F(ArchiveTest, EveryStepOfARotationComesInItsOrder) {
    ArchiveLine(rotation);
    EXPECT_THAT(
        Faults::TakeCalls(),
        ElementsAre("system xz -fk /perm/logs/syslog/messages.txt.0",
                    "fsync /perm/logs/syslog/messages.txt.0.xz", "fsync /perm/logs/syslog",
                    "rename /perm/logs/syslog/messages.txt.0.xz "
                    "/perm/logs/syslog/archive/messages.007.1970-01-01.00:00:42.txt.xz",
                    "fsync /perm/logs/syslog/archive",
                    "rename /perm/logs/syslog/messages.txt.0 /perm/logs/syslog/messages.txt.tmp",
                    "remove /perm/logs/syslog/messages.txt.tmp", "fsync /perm/logs/syslog"));
    ExpectOnlyArchived("line\n");
    EXPECT_LOG(ArchivedLine(rotation));
}

TEST_F(ArchiveTest, ARemovalThatIsNotSyncedIsAFailure) {
    WriteFile(rotation, "line\n");
    Faults::Fail("fsync", EIO, 4);
    EXPECT_FAILURE(rotate.Archive(rotation));
    EXPECT_LOG(Error("Unable to sync /perm/logs/syslog: Input/output error"));
    ExpectArchived("line\n");
}

TEST_F(ArchiveTest, TheLiveLogIsRenamedAndSyslogdSignalledBeforeItIsCompressed) {
    ArchiveLine(liveLog);
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
    ExpectOnlyArchived("line\n");
    EXPECT_LOG(ArchivedLine(liveLog));
}

TEST_F(ArchiveTest, TheLiveLogIsKnownByItsPathHoweverThatIsWritten) {
    WriteFile(liveLog, "line\n");
    const std::string pfn = "/perm//logs/syslog//messages.txt";
    EXPECT_SUCCESS(rotate.Archive(pfn));
    EXPECT_THAT(TakeCallsOf("kill"), ElementsAre("4711 1"));
    EXPECT_LOG(ArchivedLine(pfn));
}

TEST_F(ArchiveTest, ALogOfTheSameNameElsewhereIsNotTheLiveLog) {
    ArchiveLine("/perm/logs/messages.txt");
    EXPECT_THAT(TakeCallsOf("kill"), IsEmpty());
    ExpectArchived("line\n");
}

TEST_F(ArchiveTest, TheLiveLogIsArchivedThoughSyslogdIsGone) {
    Faults::Fail("kill", ESRCH);
    ArchiveLine(liveLog);
    EXPECT_LOG(ArchivedLine(liveLog));

    fs::remove(pidFile);
    ArchiveLine(liveLog);
    EXPECT_EQ(ArchivedTexts(), (Texts{"line\n", "line\n"}));
    EXPECT_LOG(Warning("Attempt to read file /var/run/syslogd.pid, which does not exist."),
               ArchivedLine(liveLog, "1.0", 43));
}

TEST_F(ArchiveTest, ADebugLineNamesTheFileThatIsCompressed) {
    Logging::SetLogLevel(Logging::SeverityDebug);
    ArchiveLine(liveLog);
    ArchiveLine(rotation);
    EXPECT_LOG(Debug("Archiving 'messages.txt.tmp'."), ArchivedLine(liveLog),
               Debug("Archiving 'messages.txt.0'."), ArchivedLine(rotation, "1.0", 43));
}

TEST_F(ArchiveTest, TheDurationIsInSecondsWithOneDecimal) {
    Faults::OnCall("system", [] { Faults::FixClock({.tv_sec = 44, .tv_nsec = 345678901}); });
    ArchiveLine(rotation);
    EXPECT_LOG(ArchivedLine(rotation, "2.3"));
}

TEST_F(ArchiveTest, ACompressedFileThatLiesBesideTheSourceIsOverwritten) {
    WriteFile(rotation, "line\n");
    WriteFile(rotation.string() + ".xz", "of an earlier try");
    EXPECT_SUCCESS(rotate.Archive(rotation));
    ExpectOnlyArchived("line\n");
}

TEST_F(ArchiveTest, ReachingTheSizeLimitDeletesTheOldestFiles) {
    FakeCompression();
    WriteSparseFile(archive / ArchFn(6), 200'000'000);
    rotate.archDirSize = 1073741824 - 10;
    ArchiveLine(rotation);
    EXPECT_DIR(archive, {{ArchFn(7), "compressed"}});
    EXPECT_LOG(ArchivedLine(rotation),
               Info(StartsWith("Log archive size 1024.000 MiB exceeds 1024.000 MiB. ")));
}

TEST_F(ArchiveTest, AFailureOfTheSizeLimitIsAFailureOfTheArchiving) {
    FakeCompression();
    rotate.archDirSize = SizeLimit;
    WriteFile(rotation, "line\n");
    EXPECT_FAILURE(rotate.Archive(rotation));
    EXPECT_LOG(ArchivedLine(rotation), Info(StartsWith("Log archive size")),
               Error(StartsWith("The archive directory")));
    ExpectLogs({});
}

TEST_F(ArchiveTest, WithoutATimeStampNothingIsDoneAtAll) {
    for (const char* function : {"clock_gettime", "gmtime_r", "strftime"}) {
        SCOPED_TRACE(function);
        WriteFile(liveLog, "line\n");
        Faults::Fail(function, EINVAL);
        EXPECT_FAILURE(rotate.Archive(liveLog));
        EXPECT_THAT(Faults::TakeCalls(), IsEmpty());
        EXPECT_LOG(Warning(StartsWith("")));
        ExpectLogs({{"messages.txt", "line\n"}});
        Faults::Clear();
    }
}

TEST_F(ArchiveTest, ALiveLogThatCannotBeRenamedStaysUntouched) {
    WriteFile(liveLog, "line\n");
    fs::create_directory(tmpLog);
    EXPECT_FAILURE(rotate.Archive(liveLog));
    EXPECT_THAT(Faults::TakeCalls(), ElementsAre(StartsWith("rename ")));
    EXPECT_LOG(Error(StartsWith("Rename failure, reason: ")));
    ExpectLogs({{"messages.txt", "line\n"}, {"messages.txt.tmp/", ""}});
    EXPECT_EQ(rotate.archDirSize, 0U);
}

TEST_F(ArchiveTest, ALiveLogThatCannotBeCompressedKeepsItsTemporaryName) {
    StandIn("xz", "exit 1");
    WriteFile(liveLog, "line\n");
    EXPECT_FAILURE(rotate.Archive(liveLog));
    ExpectLogs({{"messages.txt.tmp", "line\n"}});
    EXPECT_DIR(archive, {});
}

// What a failing step leaves behind.
class FailingStepTest : public ArchiveTest {
protected:
    FailingStepTest() {
        WriteFile(rotation, "line\n");
        FakeCompression();
    }

    // Expects one Error line that begins with `line`, the source and `others` in the syslog
    // directory, and `archived` in the archive, with 10 bytes counted for an archive file.
    void ExpectFailure(const std::string& line, Dir others = {}, const Dir& archived = {}) {
        rotate.archDirSize = 1000;
        EXPECT_FAILURE(rotate.Archive(rotation));
        EXPECT_LOG(Error(StartsWith(line)));
        others["messages.txt.0"] = "line\n";
        ExpectLogs(others);
        EXPECT_EQ(ReadDir(archive), archived);
        EXPECT_EQ(rotate.archDirSize, 1000 + 10 * archived.count(ArchFn(7)));
    }

    const std::string xzFailure =
        "Unable to 'xz -fk /perm/logs/syslog/messages.txt.0'.  Result: 256, Error: '";
};

TEST_F(FailingStepTest, Compression) {
    StandIn("xz", "exit 1");
    ExpectFailure(xzFailure);
    StandIn("xz", "printf comp > \"$2.xz\"; exit 1");
    ExpectFailure(xzFailure, {{"messages.txt.0.xz", "comp"}});
}

TEST_F(FailingStepTest, BeforeTheCompressedFileIsInTheArchive) {
    const std::tuple<const char*, int, std::string> table[] = {
        {"fsync", 1, "Unable to sync /perm/logs/syslog/messages.txt.0.xz: Input/output error"},
        {"fsync", 2, "Unable to sync /perm/logs/syslog: Input/output error"},
        {"rename", 1, "Rename failure, reason: "},
    };
    for (const auto& [function, nth, line] : table) {
        Faults::Fail(function, EIO, nth);
        ExpectFailure(line, {{"messages.txt.0.xz", "compressed"}});
    }
}

TEST_F(FailingStepTest, CompressedFileThatIsNotThere) {
    StandIn("xz", "exit 0");
    ExpectFailure("Rename failure, reason: ");
}

TEST_F(FailingStepTest, ReadOfTheSize) {
    StandIn("xz", "ln -s /nowhere \"$2.xz\"");
    ExpectFailure("Unable to get " + ArchFn(7) + " size, reason: filesystem error: ", {},
                  {{ArchFn(7) + "@", "/nowhere"}});
}

TEST_F(FailingStepTest, SyncOfTheArchive) {
    Faults::Fail("fsync", EIO, 3);
    ExpectFailure("Unable to sync /perm/logs/syslog/archive: Input/output error", {},
                  {{ArchFn(7), "compressed"}});
}

TEST_F(FailingStepTest, RemovalOfTheSource) {
    Faults::Fail("rename", EBUSY, 2);
    Faults::Fail("remove", EBUSY, 1);
    ExpectFailure("Remove failure for /perm/logs/syslog/messages.txt.0: ", {},
                  {{ArchFn(7), "compressed"}});
}

}  // namespace
