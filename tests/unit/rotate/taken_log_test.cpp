// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// A live log that was taken from syslogd: syslogd may write to it until its clock's second ends,
// and an interrupted archiving leaves it under its temporary name.
#include "tests/unit/rotate/engine.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

class TakenLogTest : public RotateTest {
protected:
    TakenLogTest() { WriteFile(pidFile, "4711\n"); }

    // Sets the time of day to so many milliseconds behind the file's last touch.
    static void LetPassSinceTouch(const Path& pfn, long milliseconds) {
        constexpr long Second = 1'000'000'000;
        struct stat status {};
        ASSERT_EQ(stat(pfn.c_str(), &status), 0);
        const timespec touch = status.st_ctim;
        const long nanoseconds = touch.tv_nsec + milliseconds % 1000 * 1'000'000;
        Faults::FixTimeOfDay({.tv_sec = touch.tv_sec + milliseconds / 1000 + nanoseconds / Second,
                              .tv_nsec = nanoseconds % Second});
    }
};

TEST_F(TakenLogTest, IsRemovedASecondAndAHalfAfterItWasTouchedLast) {
    const std::pair<long, Texts> table[] = {
        {500, {"1.000000000"}},        //
        {1000, {"0.500000000"}},       //
        {1500, {}},                    //
        {2000, {}},                    //
        {86'400'000, {}},              //
        {-3'600'000, {"1.500000000"}}  // The clock was set back.
    };
    for (const auto& [milliseconds, sleeps] : table) {
        SCOPED_TRACE(milliseconds);
        WriteFile(tmpLog, "old\n");
        LetPassSinceTouch(tmpLog, milliseconds);
        EXPECT_SUCCESS(rotate.Archive(tmpLog));
        EXPECT_EQ(TakeCallsOf("nanosleep"), sleeps);
        Faults::FixClock({.tv_sec = 42, .tv_nsec = 0});
        fs::remove(archive / ArchFn(7));
    }
}

TEST_F(TakenLogTest, IsWaitedForBetweenItsCompressionAndItsMoveIntoTheArchive) {
    WriteFile(tmpLog, "old\n");
    LetPassSinceTouch(tmpLog, 0);
    EXPECT_SUCCESS(rotate.Archive(tmpLog));
    EXPECT_THAT(Faults::TakeCalls(),
                ElementsAre(StartsWith("system "), StartsWith("nanosleep "), StartsWith("fsync "),
                            StartsWith("fsync "), StartsWith("rename "), StartsWith("fsync "),
                            StartsWith("remove "), StartsWith("fsync ")));
}

TEST_F(TakenLogTest, HoldsTheLinesThatSyslogdWritesDuringTheWait) {
    WriteFile(liveLog, "old\n");
    LetPassSinceTouch(liveLog, 0);
    OnNthCall("nanosleep", 1, [this] { AppendToFile(tmpLog, "late\n"); });
    EXPECT_SUCCESS(rotate.Archive(liveLog));
    ExpectOnlyArchived("old\nlate\n");
}

TEST_F(TakenLogTest, HoldsTheLinesThatSyslogdWritesUntilItReopens) {
    WriteFile(liveLog, "old\n");
    OnNthCall("kill", 1, [this] {
        AppendToFile(tmpLog, "late\n");
        WriteFile(liveLog, "new\n");
    });
    EXPECT_SUCCESS(rotate.Archive(liveLog));
    ExpectArchived("old\nlate\n");
    ExpectLogs({{"messages.txt", "new\n"}});
}

TEST_F(TakenLogTest, ThatWasLeftGoesBeforeTheLiveLogThatWouldReplaceIt) {
    WriteFile(tmpLog, "old\n");
    WriteFile(liveLog, "new\n");
    EXPECT_SUCCESS(rotate.Archive(liveLog));
    EXPECT_THAT(TakeCallsOf("kill"), IsEmpty());
    ExpectArchived("old\n");
    ExpectLogs({{"messages.txt", "new\n"}});
    EXPECT_LOG(ArchivedLine(tmpLog));
}

TEST_F(TakenLogTest, ThatWasLeftAndCannotBeArchivedKeepsTheLiveLogWhereItIs) {
    StandIn("xz", "exit 1");
    WriteFile(tmpLog, "old\n");
    WriteFile(liveLog, "new\n");
    EXPECT_FAILURE(rotate.Archive(liveLog));
    ExpectLogs({{"messages.txt", "new\n"}, {"messages.txt.tmp", "old\n"}});
}

// A syslogd with nothing to write keeps its log open.
TEST_F(TakenLogTest, ThatIsStillOpenIsLeftToALaterCycle) {
    WriteFile(liveLog, "old\n");
    std::FILE* const syslogd = std::fopen(liveLog.c_str(), "a");
    EXPECT_SUCCESS(rotate.Archive(liveLog));
    EXPECT_LOG(
        Info("'/perm/logs/syslog/messages.txt' is still open for writing.  A later cycle will "
             "archive it."));
    ExpectLogs({{"messages.txt.tmp", "old\n"}});

    std::fputs("late\n", syslogd);
    (void)std::fclose(syslogd);
    EXPECT_SUCCESS(rotate.CheckLogs());
    ExpectOnlyArchived("old\nlate\n");
}

TEST_F(TakenLogTest, ThatIsWrittenToAgainAndAgainIsLeftToALaterCycle) {
    StandIn("xz", "/usr/bin/xz \"$@\"; echo more >> \"$2\"");
    WriteFile(liveLog, "old\n");
    EXPECT_SUCCESS(rotate.Archive(liveLog));
    EXPECT_DIR(archive, {});
    EXPECT_LOG(
        Info("'/perm/logs/syslog/messages.txt' was written to while it was compressed.  A later "
             "cycle will archive it."));

    fs::remove("/stand-in/xz");
    EXPECT_SUCCESS(rotate.CheckLogs());
    ExpectOnlyArchived("old\nmore\nmore\nmore\nmore\nmore\n");
}

}  // namespace
