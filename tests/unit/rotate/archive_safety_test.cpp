// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Nothing is lost while syslogd works in the same directory: only the very file that was compressed
// goes, unchanged, and only what is in the archive for good.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/unit/rotate/engine.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

// For stand-ins for xz: doing what xz is asked to, and what follows at the first time only.
const std::string Compress = "/usr/bin/xz \"$@\"; ";
const std::string OnlyOnce = "mkdir /stand-in/once 2>/dev/null || exit 0; ";

class ArchiveSafetyTest : public RotateTest {
protected:
    void SetUp() override {
        RotateTest::SetUp();
        rotate.bootNum = 7;
        WriteFile(rotation, "old\n");
    }

    // What syslogd does when its log has grown.
    void RotateSyslog() const {
        std::filesystem::rename(rotation, nextRotation);
        WriteFile(rotation, "new\n");
    }

    LogLine LeftLine(const std::string& what) const {
        return {LOG_INFO, "'" + rotation.string() + "' was " + what +
                              " while it was compressed.  A later cycle will archive it."};
    }

    // Nothing of a try is left, and nothing is counted.
    void ExpectNoTrace(const Dir& sources) const {
        Dir expected = sources;
        expected.insert({"archive/", ""});
        EXPECT_EQ(ReadDir(syslogDir), expected);
        EXPECT_DIR(archive, {});
        EXPECT_EQ(rotate.archDirSize, 0U);
    }

    const Path rotation = syslogDir / "messages.txt.0";
    const Path nextRotation = syslogDir / "messages.txt.1";
};

// -- syslogd rotates.

TEST_F(ArchiveSafetyTest, ARotationDuringTheCompressionLosesNothing) {
    StandIn("xz", Compress + OnlyOnce + "mv \"$2\" \"${2%0}1\"; echo new > \"$2\"");
    EXPECT_SUCCESS(rotate.Archive(rotation));
    ExpectNoTrace({{"messages.txt.0", "new\n"}, {"messages.txt.1", "old\n"}});
    EXPECT_EQ(log.Take(), LogLines{LeftLine("moved")});

    EXPECT_SUCCESS(rotate.CheckLogs());
    EXPECT_SUCCESS(rotate.CheckLogs());
    EXPECT_EQ(ReadArchive(), (Dir{{ArchFn(7, 42), "old\n"}, {ArchFn(7, 43), "new\n"}}));
    EXPECT_DIR(syslogDir, {{"archive/", ""}});
}

TEST_F(ArchiveSafetyTest, ARotationBeforeTheCompressionLosesNothing) {
    OnNthCall("system", 1, [this] { RotateSyslog(); });
    EXPECT_SUCCESS(rotate.Archive(rotation));
    ExpectNoTrace({{"messages.txt.0", "new\n"}, {"messages.txt.1", "old\n"}});
    EXPECT_EQ(log.Take(), LogLines{LeftLine("moved")});
}

// syslogd moves one file up after the other: for a moment there is none of that name.
TEST_F(ArchiveSafetyTest, ARotationUnderWayLosesNothing) {
    std::filesystem::rename(rotation, nextRotation);
    OnNthCall("system", 1, [this] { WriteFile(rotation, "new\n"); });
    EXPECT_SUCCESS(rotate.Archive(rotation));
    ExpectNoTrace({{"messages.txt.0", "new\n"}, {"messages.txt.1", "old\n"}});
    EXPECT_EQ(log.Take(), LogLines{LeftLine("moved")});
}

TEST_F(ArchiveSafetyTest, ARotationBehindTheListingLosesNothing) {
    OnNthCall("closedir", 1, [this] { std::filesystem::rename(rotation, nextRotation); });
    EXPECT_SUCCESS(rotate.CheckLogs());
    ExpectNoTrace({{"messages.txt.1", "old\n"}});
    EXPECT_THAT(log.Take(), IsEmpty());
    EXPECT_SUCCESS(rotate.CheckLogs());
    EXPECT_EQ(ReadArchive(), (Dir{{ArchFn(7), "old\n"}}));
}

// The archive's name of this second is taken: while the daemon waits for another one, syslogd
// rotates.
TEST_F(ArchiveSafetyTest, ARotationBeforeTheNameIsFreeLosesNothing) {
    WriteFile(archive / ArchFn(7), "taken");
    OnNthCall("nanosleep", 1, [this] { std::filesystem::rename(rotation, nextRotation); });
    EXPECT_SUCCESS(rotate.CheckLogs());
    EXPECT_DIR(archive, {{ArchFn(7), "taken"}});
    EXPECT_EQ(log.Take(), LogLines{LeftLine("moved")});
    EXPECT_EQ(TakeCallsOf("system"), Texts{});
}

// The name is the one of the second oldest file then; the oldest goes first.
TEST_F(ArchiveSafetyTest, ARotationBetweenListingAndOpeningKeepsTheOrder) {
    OnNthCall("closedir", 1, [this] { RotateSyslog(); });
    EXPECT_SUCCESS(rotate.CheckLogs());
    ExpectNoTrace({{"messages.txt.0", "new\n"}, {"messages.txt.1", "old\n"}});
    EXPECT_SUCCESS(rotate.CheckLogs());
    EXPECT_SUCCESS(rotate.CheckLogs());
    EXPECT_EQ(ReadArchive(), (Dir{{ArchFn(7, 42), "old\n"}, {ArchFn(7, 43), "new\n"}}));
}

// Between the last look and the removal: the wrong file is taken, and kept.
TEST_F(ArchiveSafetyTest, ARotationAtTheMomentOfTheRemovalLosesAndDoublesNothing) {
    OnNthCall("rename", 2, [this] { RotateSyslog(); });
    EXPECT_SUCCESS(rotate.Archive(rotation));
    EXPECT_DIR(syslogDir,
               {{"archive/", ""}, {"messages.txt.1", "old\n"}, {"messages.txt.tmp", "new\n"}});
    EXPECT_EQ(ReadArchive(), (Dir{{ArchFn(7), "old\n"}}));
    EXPECT_EQ(log.Take(), LogLines{LeftLine("moved")});

    EXPECT_SUCCESS(rotate.CheckLogs());
    EXPECT_SUCCESS(rotate.CheckLogs());
    EXPECT_DIR(syslogDir, {{"archive/", ""}});
    EXPECT_EQ(ReadArchive(), (Dir{{ArchFn(7, 42), "old\n"}, {ArchFn(7, 43), "new\n"}}));
    EXPECT_EQ(rotate.archDirSize, std::filesystem::file_size(archive / ArchFn(7, 42)) +
                                      std::filesystem::file_size(archive / ArchFn(7, 43)));
}

TEST_F(ArchiveSafetyTest, ARotationUnderWayAtTheMomentOfTheRemovalLosesNothing) {
    OnNthCall("rename", 2, [this] { std::filesystem::rename(rotation, nextRotation); });
    EXPECT_SUCCESS(rotate.Archive(rotation));
    ExpectNoTrace({{"messages.txt.1", "old\n"}});
    EXPECT_EQ(log.Take(), LogLines{LeftLine("moved")});
}

TEST_F(ArchiveSafetyTest, ATakenLogThatWaitsIsNotReplacedByTheRemoval) {
    WriteFile(tmpLog, "taken\n");
    EXPECT_SUCCESS(rotate.Archive(rotation));
    EXPECT_EQ(ReadArchive(), (Dir{{ArchFn(7), "old\n"}}));
    EXPECT_DIR(syslogDir, {{"archive/", ""}, {"messages.txt.tmp", "taken\n"}});
}

// -- Somebody has the source open for writing.

TEST_F(ArchiveSafetyTest, AFileWithAWriterIsLeftToALaterCycle) {
    const LogLine line{
        LOG_INFO,
        "'" + rotation.string() + "' is still open for writing.  A later cycle will archive it."};
    const auto leaveOpen = [this](const std::string& function, int nth) {
        std::FILE* writer = nullptr;
        OnNthCall(function, nth, [&] { writer = std::fopen(rotation.c_str(), "a"); });
        EXPECT_SUCCESS(rotate.Archive(rotation));
        return writer;
    };
    for (const int lease : {1, 3}) {  // Before and after the compression.
        SCOPED_TRACE(lease);
        std::FILE* const writer = leaveOpen("lease", lease);
        ASSERT_NE(writer, nullptr);
        ExpectNoTrace({{"messages.txt.0", "old\n"}});
        EXPECT_EQ(log.Take(), LogLines{line});
        (void)std::fclose(writer);
    }
    EXPECT_SUCCESS(rotate.Archive(rotation));
    ExpectOnlyArchived("old\n");
}

TEST_F(ArchiveSafetyTest, AWriterThatComesLaterWaits) {
    for (const int sync : {1, 2, 3, 4}) {
        OnNthCall("fsync", sync, [this, sync] {
            const char* const name = sync < 4 ? rotation.c_str() : "/proc/self/fd/none";
            EXPECT_EQ(open(name, O_WRONLY | O_NONBLOCK), -1);
            EXPECT_EQ(errno, sync < 4 ? EWOULDBLOCK : ENOENT);
        });
        WriteFile(rotation, "old\n");
        EXPECT_SUCCESS(rotate.Archive(rotation));
        std::filesystem::remove_all(archive);
        std::filesystem::create_directory(archive);
    }
    WriteFile(rotation, "left\n");
    OnNthCall("rename", 2, [this] { RotateSyslog(); });
    EXPECT_SUCCESS(rotate.Archive(rotation));
    AppendToFile(nextRotation, "not waiting\n");
}

TEST_F(ArchiveSafetyTest, AFileSystemWithoutLeasesIsNoObstacle) {
    Faults::Fail("lease", EINVAL);
    EXPECT_SUCCESS(rotate.Archive(rotation));
    ExpectOnlyArchived("old\n");
}

TEST_F(ArchiveSafetyTest, ARotationWithNothingToFollowLosesNothing) {
    StandIn("xz", Compress + "mv \"$2\" \"${2%0}1\"");
    EXPECT_SUCCESS(rotate.Archive(rotation));
    ExpectNoTrace({{"messages.txt.1", "old\n"}});
    EXPECT_EQ(log.Take(), LogLines{LeftLine("moved")});
}

TEST_F(ArchiveSafetyTest, ARotationBetweenCompressionAndRemovalLosesNothing) {
    for (const int sync : {1, 2, 3}) {
        SCOPED_TRACE(sync);
        WriteFile(rotation, "old\n");
        OnNthCall("fsync", sync, [this] { RotateSyslog(); });
        EXPECT_SUCCESS(rotate.Archive(rotation));
        ExpectNoTrace({{"messages.txt.0", "new\n"}, {"messages.txt.1", "old\n"}});
        EXPECT_EQ(log.Take(), LogLines{LeftLine("moved")});
    }
}

TEST_F(ArchiveSafetyTest, AnArchivedCopyOfAMovedFileThatCannotBeRemovedIsAFailure) {
    OnNthCall("fsync", 2, [this] { RotateSyslog(); });
    Faults::Fail("remove", EIO, 1);
    EXPECT_FAILURE(rotate.Archive(rotation));
    EXPECT_DIR(syslogDir,
               {{"archive/", ""}, {"messages.txt.0", "new\n"}, {"messages.txt.1", "old\n"}});
    EXPECT_EQ(ReadArchive(), (Dir{{ArchFn(7), "old\n"}}));
    EXPECT_EQ(rotate.archDirSize, std::filesystem::file_size(archive / ArchFn(7)));
    EXPECT_THAT(log.Take(),
                ElementsAre(Line(LOG_ERR, StartsWith("Remove failure for " + archive.string()))));
}

TEST_F(ArchiveSafetyTest, ACompressedCopyOfAMovedFileThatCannotBeRemovedIsLeftToTheNextStart) {
    StandIn("xz", Compress + "mv \"$2\" \"${2%0}1\"");
    Faults::Fail("remove", EIO, 1);
    EXPECT_SUCCESS(rotate.Archive(rotation));
    EXPECT_THAT(log.Take(),
                ElementsAre(Line(LOG_ERR, StartsWith("Remove failure for ")), LeftLine("moved")));
    EXPECT_EQ(ReadXzFile(rotation.string() + ".xz"), "old\n");
    EXPECT_SUCCESS(rotate.CleanUpTempFiles());
    ExpectNoTrace({{"messages.txt.1", "old\n"}});
}

// -- The source is deleted for good: the archive has the only copy.

TEST_F(ArchiveSafetyTest, AFileThatIsDeletedDuringTheCompressionIsArchived) {
    StandIn("xz", Compress + "rm \"$2\"");
    EXPECT_SUCCESS(rotate.Archive(rotation));
    ExpectOnlyArchived("old\n");
    EXPECT_THAT(log.Take(), ElementsAre(Line(LOG_INFO, StartsWith("Archived "))));
}

TEST_F(ArchiveSafetyTest, AFileThatIsDeletedBeforeTheCompressionIsNoFailure) {
    OnNthCall("system", 1, [this] { std::filesystem::remove(rotation); });
    EXPECT_SUCCESS(rotate.Archive(rotation));
    ExpectNoTrace({});
    EXPECT_THAT(log.Take(),
                ElementsAre(Line(LOG_ERR, StartsWith("Unable to 'xz -fk ")),
                            Line(LOG_INFO,
                                 "'/perm/logs/syslog/messages.txt.0' was deleted before "
                                 "it was compressed.")));
}

TEST_F(ArchiveSafetyTest, AFileThatTakesTheNameOfADeletedOneIsArchivedOnce) {
    OnNthCall("system", 1, [this] {
        std::filesystem::remove(rotation);
        WriteFile(rotation, "new\n");
    });
    EXPECT_SUCCESS(rotate.Archive(rotation));
    ExpectNoTrace({{"messages.txt.0", "new\n"}});
    EXPECT_SUCCESS(rotate.CheckLogs());
    ExpectOnlyArchived("new\n");
}

TEST_F(ArchiveSafetyTest, AFileThatIsDeletedBetweenCompressionAndRemovalIsArchived) {
    OnNthCall("fsync", 2, [this] { std::filesystem::remove(rotation); });
    EXPECT_SUCCESS(rotate.Archive(rotation));
    ExpectOnlyArchived("old\n");
    EXPECT_THAT(log.Take(), ElementsAre(Line(LOG_INFO, StartsWith("Archived "))));
}

TEST_F(ArchiveSafetyTest, AFileThatTakesTheNameOfADeletedOneStays) {
    StandIn("xz", Compress + "rm \"$2\"; echo new > \"$2\"");
    EXPECT_SUCCESS(rotate.Archive(rotation));
    EXPECT_EQ(ReadArchive(), (Dir{{ArchFn(7), "old\n"}}));
    EXPECT_DIR(syslogDir, {{"archive/", ""}, {"messages.txt.0", "new\n"}});
}

TEST_F(ArchiveSafetyTest, AFileThatTakesTheNameOfALateDeletedOneStays) {
    OnNthCall("fsync", 2, [this] {
        std::filesystem::remove(rotation);
        WriteFile(rotation, "new\n");
    });
    EXPECT_SUCCESS(rotate.Archive(rotation));
    EXPECT_EQ(ReadArchive(), (Dir{{ArchFn(7), "old\n"}}));
    EXPECT_DIR(syslogDir, {{"archive/", ""}, {"messages.txt.0", "new\n"}});
}

TEST_F(ArchiveSafetyTest, OfALinkTheLinkGoesAndItsTargetStays) {
    const Path target = "/perm/logs/elsewhere";
    std::filesystem::rename(rotation, target);
    std::filesystem::create_symlink(target, rotation);
    EXPECT_SUCCESS(rotate.Archive(rotation));
    ExpectOnlyArchived("old\n");
    EXPECT_EQ(ReadFile(target), "old\n");
}

// -- The source is written to.

TEST_F(ArchiveSafetyTest, LinesWrittenDuringTheCompressionAreArchived) {
    StandIn("xz", Compress + OnlyOnce + "echo late >> \"$2\"");
    EXPECT_SUCCESS(rotate.Archive(rotation));
    EXPECT_THAT(TakeCallsOf("system"), SizeIs(2));
    ExpectOnlyArchived("old\nlate\n");
    EXPECT_THAT(log.Take(), ElementsAre(Line(LOG_INFO, StartsWith("Archived "))));
}

TEST_F(ArchiveSafetyTest, LinesWrittenBetweenCompressionAndRemovalAreArchived) {
    Faults::Fail("lease", EINVAL);  // With one, who opens the file for writing waits.
    for (const int sync : {1, 2, 3}) {
        SCOPED_TRACE(sync);
        std::filesystem::remove(archive / ArchFn(7));
        rotate.archDirSize = 0;
        WriteFile(rotation, "old\n");
        OnNthCall("fsync", sync, [this] { AppendToFile(rotation, "late\n"); });
        EXPECT_SUCCESS(rotate.Archive(rotation));
        ExpectOnlyArchived("old\nlate\n");
        EXPECT_THAT(log.Take(), ElementsAre(Line(LOG_INFO, StartsWith("Archived "))));
    }
}

// A file that got other lines of the same length is known by its time.
TEST_F(ArchiveSafetyTest, LinesThatReplaceOthersAreArchived) {
    Faults::Fail("lease", EINVAL);
    const auto write = [this](const std::string& text, timespec time) {
        WriteFile(rotation, text);
        const timespec times[]{time, time};
        ASSERT_EQ(utimensat(AT_FDCWD, rotation.c_str(), times, 0), 0);
    };
    constexpr timespec Before{.tv_sec = 1'000'000'000, .tv_nsec = 100'000'000};
    for (const timespec after :
         {timespec{Before.tv_sec, 200'000'000}, timespec{Before.tv_sec + 1, Before.tv_nsec}}) {
        SCOPED_TRACE(after.tv_sec);
        std::filesystem::remove(archive / ArchFn(7));
        rotate.archDirSize = 0;
        write("old\n", Before);
        OnNthCall("fsync", 1, [&] { write("new\n", after); });
        EXPECT_SUCCESS(rotate.Archive(rotation));
        ExpectOnlyArchived("new\n");
    }
}

TEST_F(ArchiveSafetyTest, AFileThatIsWrittenToForEverIsLeftToALaterCycle) {
    StandIn("xz", Compress + "echo more >> \"$2\"");
    EXPECT_SUCCESS(rotate.Archive(rotation));
    EXPECT_THAT(TakeCallsOf("system"), SizeIs(5));
    ExpectNoTrace({{"messages.txt.0", "old\nmore\nmore\nmore\nmore\nmore\n"}});
    EXPECT_EQ(log.Take(), LogLines{LeftLine("written to")});

    std::filesystem::remove("/stand-in/xz");
    EXPECT_SUCCESS(rotate.CheckLogs());
    ExpectOnlyArchived("old\nmore\nmore\nmore\nmore\nmore\n");
}

TEST_F(ArchiveSafetyTest, AFileThatIsWrittenToForEverAfterItsCompressionIsLeftToALaterCycle) {
    Faults::Fail("lease", EINVAL);
    Faults::OnCall("fsync", [this, calls = 0]() mutable {
        if (++calls % 3 == 0) AppendToFile(rotation, "more\n");
    });
    EXPECT_SUCCESS(rotate.Archive(rotation));
    ExpectNoTrace({{"messages.txt.0", "old\nmore\nmore\nmore\nmore\nmore\n"}});
    EXPECT_EQ(log.Take(), LogLines{LeftLine("written to")});
}

TEST_F(ArchiveSafetyTest, AFileThatComesToRestAtTheLastTryIsArchived) {
    StandIn("xz", Compress +
                      "echo >> /stand-in/count; "
                      "[ $(wc -l < /stand-in/count) -ge 5 ] || echo more >> \"$2\"");
    EXPECT_SUCCESS(rotate.Archive(rotation));
    ExpectOnlyArchived("old\nmore\nmore\nmore\nmore\n");
}

TEST_F(ArchiveSafetyTest, ARotationIsNotWaitedFor) {
    struct stat status {};
    ASSERT_EQ(stat(rotation.c_str(), &status), 0);
    Faults::FixTimeOfDay(status.st_ctim);
    EXPECT_SUCCESS(rotate.Archive(rotation));
    EXPECT_THAT(TakeCallsOf("nanosleep"), IsEmpty());
}

TEST_F(ArchiveSafetyTest, AFileThatCannotBeOpenedStays) {
    std::filesystem::remove(rotation);
    std::filesystem::create_symlink(rotation, rotation);
    StandIn("xz", "rm \"$2\"; echo new > \"$2\"; " + Compress);
    EXPECT_FAILURE(rotate.Archive(rotation));
    EXPECT_EQ(log.Take(), (LogLines{{LOG_ERR,
                                     "Unable to open /perm/logs/syslog/messages.txt.0: Too many "
                                     "levels of symbolic links"}}));
    EXPECT_EQ(ReadFile(rotation), "new\n");
    EXPECT_DIR(archive, {});
}

// Then the source's descriptor is the number 0.
TEST_F(ArchiveSafetyTest, ADaemonWithoutStandardInputArchivesToo) {
    const int input = dup(STDIN_FILENO);
    (void)close(STDIN_FILENO);
    EXPECT_SUCCESS(rotate.Archive(rotation));
    EXPECT_EQ(fcntl(STDIN_FILENO, F_GETFD), -1) << "the source was left open";
    (void)dup2(input, STDIN_FILENO);
    (void)close(input);
    ExpectOnlyArchived("old\n");
}

TEST_F(ArchiveSafetyTest, AFileWhoseStateCannotBeReadStays) {
    Faults::Fail("fstat", EIO);
    EXPECT_SUCCESS(rotate.Archive(rotation));
    ExpectNoTrace({{"messages.txt.0", "old\n"}});
}

}  // namespace
