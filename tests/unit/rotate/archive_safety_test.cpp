// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Nothing is lost while syslogd works in the same directory: only the very file that was compressed
// goes, unchanged, and only what is in the archive for good.
#include <unistd.h>

#include "tests/unit/rotate/engine.h"

namespace {

using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

// For stand-ins for xz: what xz itself does; and a guard that lets the rest run only once.
const std::string Compress = "/usr/bin/xz \"$@\"; ";
const std::string OnlyOnce = "mkdir /stand-in/once 2>/dev/null || exit 0; ";

// The nth call of a function.
using Moment = std::pair<const char*, int>;

// Right after the compression, and after a later step.
const std::vector<Moment> OnceCompressed{{"lease", 3}, {"fsync", 2}};

class ArchiveSafetyTest : public RotateTest {
protected:
    ArchiveSafetyTest() { WriteFile(rotation, "old\n"); }

    // For each moment: an empty archive, the rotation, and `expect`, which archives the rotation
    // while `action` happens at that moment.
    void AtEach(const std::vector<Moment>& moments, const std::function<void()>& action,
                const std::function<void()>& expect) {
        for (const auto& [function, nth] : moments) {
            SCOPED_TRACE(testing::Message() << function << ' ' << nth);
            MakeArchive();
            WriteFile(rotation, "old\n");
            bool happened = false;
            OnNthCall(function, nth, [&] {
                happened = true;
                action();
            });
            expect();
            EXPECT_TRUE(happened);
        }
    }

    // Somebody deletes the rotation, and makes another one of its name.
    void Replace() const {
        fs::remove(rotation);
        WriteFile(rotation, "new\n");
    }

    // What syslogd does when its log has grown.
    void MoveRotation() const { fs::rename(rotation, nextRotation); }
    void RotateSyslog() const {
        MoveRotation();
        WriteFile(rotation, "new\n");
    }

    static LogLine LeftLine(const std::string& what = "was moved while it was compressed") {
        return {LOG_INFO,
                "'/perm/logs/syslog/messages.txt.0' " + what + ".  A later cycle will archive it."};
    }

    // Nothing of a try is left, and nothing is counted.
    void ExpectNoTrace(const Dir& sources) const {
        ExpectLogs(sources);
        EXPECT_DIR(archive, {});
        EXPECT_EQ(rotate.archDirSize, 0U);
    }

    // Archives the rotation, and expects that it is left to a later cycle.
    void ExpectLeft(const Dir& sources, const LogLine& line = LeftLine()) {
        EXPECT_SUCCESS(rotate.Archive(rotation));
        ExpectNoTrace(sources);
        EXPECT_LOG(line);
    }

    // Archives the rotation, and expects that it goes in one try, with this text.
    void ExpectGone(const std::string& text) {
        EXPECT_SUCCESS(rotate.Archive(rotation));
        ExpectOnlyArchived(text);
        EXPECT_LOG(Info(StartsWith("Archived ")));
    }

    // Two cycles archive both files.
    void ExpectBothArchivedLater() {
        EXPECT_SUCCESS(rotate.CheckLogs());
        EXPECT_SUCCESS(rotate.CheckLogs());
        EXPECT_EQ(ReadArchive(), (Dir{{ArchFn(7, 42), "old\n"}, {ArchFn(7, 43), "new\n"}}));
        ExpectLogs({});
    }

    const Dir bothRotations{{"messages.txt.0", "new\n"}, {"messages.txt.1", "old\n"}};
};

// -- syslogd rotates.

TEST_F(ArchiveSafetyTest, ARotationDuringTheCompressionLosesNothing) {
    StandIn("xz", Compress + OnlyOnce + "mv \"$2\" \"${2%0}1\"; echo new > \"$2\"");
    ExpectLeft(bothRotations);
    ExpectBothArchivedLater();
}

TEST_F(ArchiveSafetyTest, ARotationBetweenOpeningAndRemovalLosesNothing) {
    AtEach(
        {{"system", 1}, {"fsync", 1}, {"fsync", 2}, {"fsync", 3}}, [this] { RotateSyslog(); },
        [this] { ExpectLeft(bothRotations); });
}

// syslogd moves one file up after the other: for a moment there is none of that name.
TEST_F(ArchiveSafetyTest, ARotationUnderWayLosesNothing) {
    MoveRotation();
    OnNthCall("system", 1, [this] { WriteFile(rotation, "new\n"); });
    ExpectLeft(bothRotations);
}

TEST_F(ArchiveSafetyTest, ARotationWithNothingToFollowLosesNothing) {
    AtEach(
        {{"lease", 3}, {"rename", 2}}, [this] { MoveRotation(); },
        [this] {
            ExpectLeft({{"messages.txt.1", "old\n"}});
        });
}

TEST_F(ArchiveSafetyTest, ARotationAfterTheListingLosesNothing) {
    OnNthCall("closedir", 1, [this] { MoveRotation(); });
    EXPECT_SUCCESS(rotate.CheckLogs());
    ExpectNoTrace({{"messages.txt.1", "old\n"}});
    EXPECT_LOG();
    EXPECT_SUCCESS(rotate.CheckLogs());
    ExpectArchived("old\n");
}

// The name of this second is taken: the daemon waits for the next one while syslogd rotates.
TEST_F(ArchiveSafetyTest, ARotationBeforeTheNameIsFreeLosesNothing) {
    WriteFile(archive / ArchFn(7), "taken");
    OnNthCall("nanosleep", 1, [this] { MoveRotation(); });
    EXPECT_SUCCESS(rotate.CheckLogs());
    EXPECT_DIR(archive, {{ArchFn(7), "taken"}});
    EXPECT_LOG(LeftLine());
    EXPECT_EQ(TakeCallsOf("system"), Texts{});
}

// The name is the one of the second oldest file then; the oldest goes first.
TEST_F(ArchiveSafetyTest, ARotationBetweenListingAndOpeningKeepsTheOrder) {
    OnNthCall("closedir", 1, [this] { RotateSyslog(); });
    EXPECT_SUCCESS(rotate.CheckLogs());
    ExpectNoTrace(bothRotations);
    ExpectBothArchivedLater();
}

// Between the last check and the removal: the wrong file is taken, and kept.
TEST_F(ArchiveSafetyTest, ARotationAtTheMomentOfTheRemovalLosesAndDoublesNothing) {
    OnNthCall("rename", 2, [this] { RotateSyslog(); });
    EXPECT_SUCCESS(rotate.Archive(rotation));
    ExpectLogs({{"messages.txt.1", "old\n"}, {"messages.txt.tmp", "new\n"}});
    ExpectArchived("old\n");
    EXPECT_LOG(LeftLine());
    ExpectBothArchivedLater();
    EXPECT_EQ(rotate.archDirSize,
              fs::file_size(archive / ArchFn(7, 42)) + fs::file_size(archive / ArchFn(7, 43)));
}

TEST_F(ArchiveSafetyTest, ATakenLogThatWaitsIsNotReplacedByTheRemoval) {
    WriteFile(tmpLog, "taken\n");
    EXPECT_SUCCESS(rotate.Archive(rotation));
    ExpectArchived("old\n");
    ExpectLogs({{"messages.txt.tmp", "taken\n"}});
}

TEST_F(ArchiveSafetyTest, AnArchivedCopyOfAMovedFileThatCannotBeRemovedIsAFailure) {
    OnNthCall("fsync", 2, [this] { RotateSyslog(); });
    Faults::Fail("remove", EIO, 1);
    EXPECT_FAILURE(rotate.Archive(rotation));
    ExpectLogs(bothRotations);
    ExpectArchived("old\n");
    EXPECT_LOG(Error(StartsWith("Remove failure for " + archive.string())));
}

TEST_F(ArchiveSafetyTest, ACompressedCopyOfAMovedFileThatCannotBeRemovedIsLeftToTheNextStart) {
    StandIn("xz", Compress + "mv \"$2\" \"${2%0}1\"");
    Faults::Fail("remove", EIO, 1);
    EXPECT_SUCCESS(rotate.Archive(rotation));
    EXPECT_LOG(Error(StartsWith("Remove failure for ")), LeftLine());
    EXPECT_EQ(ReadXzFile(rotation.string() + ".xz"), "old\n");
    EXPECT_SUCCESS(rotate.CleanUpTempFiles());
    ExpectNoTrace({{"messages.txt.1", "old\n"}});
}

// -- Another process has the source open for writing.

TEST_F(ArchiveSafetyTest, AFileWithAWriterIsLeftToALaterCycle) {
    for (const int lease : {1, 3}) {  // Before and after the compression.
        SCOPED_TRACE(lease);
        std::FILE* writer = nullptr;
        OnNthCall("lease", lease, [&] { writer = std::fopen(rotation.c_str(), "a"); });
        ExpectLeft({{"messages.txt.0", "old\n"}}, LeftLine("is still open for writing"));
        ASSERT_NE(writer, nullptr);
        (void)std::fclose(writer);
    }
    ExpectGone("old\n");
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
        MakeArchive();
    }
    WriteFile(rotation, "left\n");
    OnNthCall("rename", 2, [this] { RotateSyslog(); });
    EXPECT_SUCCESS(rotate.Archive(rotation));
    AppendToFile(nextRotation, "not waiting\n");
}

// -- The source is deleted for good: the archive has the only copy.

TEST_F(ArchiveSafetyTest, AFileThatIsDeletedOnceItIsCompressedIsArchived) {
    AtEach(
        OnceCompressed, [this] { fs::remove(rotation); }, [this] { ExpectGone("old\n"); });
}

TEST_F(ArchiveSafetyTest, AFileThatIsDeletedBeforeTheCompressionIsNoFailure) {
    OnNthCall("system", 1, [this] { fs::remove(rotation); });
    EXPECT_SUCCESS(rotate.Archive(rotation));
    ExpectNoTrace({});
    EXPECT_LOG(Error(StartsWith("Unable to 'xz -fk ")),
               Info("'/perm/logs/syslog/messages.txt.0' was deleted before it was compressed."));
}

TEST_F(ArchiveSafetyTest, AFileThatTakesTheNameOfADeletedOneIsArchivedOnce) {
    OnNthCall("system", 1, [this] { Replace(); });
    EXPECT_SUCCESS(rotate.Archive(rotation));
    ExpectNoTrace({{"messages.txt.0", "new\n"}});
    EXPECT_SUCCESS(rotate.CheckLogs());
    ExpectOnlyArchived("new\n");
}

TEST_F(ArchiveSafetyTest, AFileThatTakesTheNameOfADeletedOneStays) {
    AtEach(
        OnceCompressed, [this] { Replace(); },
        [this] {
            EXPECT_SUCCESS(rotate.Archive(rotation));
            ExpectArchived("old\n");
            ExpectLogs({{"messages.txt.0", "new\n"}});
        });
}

TEST_F(ArchiveSafetyTest, OfALinkTheLinkGoesAndItsTargetStays) {
    const Path target = "/perm/logs/elsewhere";
    fs::rename(rotation, target);
    fs::create_symlink(target, rotation);
    EXPECT_SUCCESS(rotate.Archive(rotation));
    ExpectOnlyArchived("old\n");
    EXPECT_EQ(ReadFile(target), "old\n");
}

// -- The source is written to.

TEST_F(ArchiveSafetyTest, LinesWrittenDuringTheCompressionAreArchived) {
    StandIn("xz", Compress + OnlyOnce + "echo late >> \"$2\"");
    ExpectGone("old\nlate\n");
    EXPECT_THAT(TakeCallsOf("system"), SizeIs(2));
}

TEST_F(ArchiveSafetyTest, LinesWrittenBetweenCompressionAndRemovalAreArchived) {
    Faults::Fail("lease", EINVAL);  // With a lease, a process that opens the file to write waits.
    AtEach(
        {{"fsync", 1}, {"fsync", 2}, {"fsync", 3}}, [this] { AppendToFile(rotation, "late\n"); },
        [this] { ExpectGone("old\nlate\n"); });
}

// A file that got other lines of the same length is recognised by its time.
TEST_F(ArchiveSafetyTest, LinesThatReplaceOthersAreArchived) {
    Faults::Fail("lease", EINVAL);
    constexpr timespec Before{.tv_sec = 1'000'000'000, .tv_nsec = 100'000'000};
    for (const timespec after :
         {timespec{Before.tv_sec, 200'000'000}, timespec{Before.tv_sec + 1, Before.tv_nsec}}) {
        SCOPED_TRACE(after.tv_sec);
        MakeArchive();
        WriteFileAt(rotation, "old\n", Before);
        OnNthCall("fsync", 1, [&] { WriteFileAt(rotation, "new\n", after); });
        EXPECT_SUCCESS(rotate.Archive(rotation));
        ExpectOnlyArchived("new\n");
    }
}

class BusyFileTest : public ArchiveSafetyTest {
protected:
    void ExpectLeftAfterFiveTries() {
        ExpectLeft({{"messages.txt.0", "old\nmore\nmore\nmore\nmore\nmore\n"}},
                   LeftLine("was written to while it was compressed"));
    }
};

TEST_F(BusyFileTest, ThatIsWrittenToDuringEachCompressionIsLeftToALaterCycle) {
    StandIn("xz", Compress + "echo more >> \"$2\"");
    ExpectLeftAfterFiveTries();
    EXPECT_THAT(TakeCallsOf("system"), SizeIs(5));

    fs::remove("/stand-in/xz");
    EXPECT_SUCCESS(rotate.CheckLogs());
    ExpectOnlyArchived("old\nmore\nmore\nmore\nmore\nmore\n");
}

TEST_F(BusyFileTest, ThatIsWrittenToAfterEachCompressionIsLeftToALaterCycle) {
    Faults::Fail("lease", EINVAL);
    Faults::OnCall("fsync", [this, calls = 0]() mutable {
        if (++calls % 3 == 0) AppendToFile(rotation, "more\n");
    });
    ExpectLeftAfterFiveTries();
}

TEST_F(BusyFileTest, ThatComesToRestAtTheLastTryIsArchived) {
    StandIn("xz", Compress +
                      "echo >> /stand-in/count; "
                      "[ $(wc -l < /stand-in/count) -ge 5 ] || echo more >> \"$2\"");
    ExpectGone("old\nmore\nmore\nmore\nmore\n");
}

TEST_F(ArchiveSafetyTest, ARotationIsNotWaitedFor) {
    struct stat status {};
    ASSERT_EQ(stat(rotation.c_str(), &status), 0);
    Faults::FixTimeOfDay(status.st_ctim);
    EXPECT_SUCCESS(rotate.Archive(rotation));
    EXPECT_THAT(TakeCallsOf("nanosleep"), IsEmpty());
}

TEST_F(ArchiveSafetyTest, AFileThatCannotBeOpenedStays) {
    fs::remove(rotation);
    fs::create_symlink(rotation, rotation);
    StandIn("xz", "rm \"$2\"; echo new > \"$2\"; " + Compress);
    EXPECT_FAILURE(rotate.Archive(rotation));
    EXPECT_LOG(
        Error("Unable to open /perm/logs/syslog/messages.txt.0: Too many levels of symbolic "
              "links"));
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
