// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The names of archive files: built of the boot number and the time since start-up, and never given
// twice.
#include "tests/unit/rotate/engine.h"

namespace {

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr long Hour = 3600;
constexpr long Day = 24 * Hour;

using TimeStampTest = RotateTest;

TEST_F(TimeStampTest, IsTheTimeSinceStartUpAsADateCountedFrom1970) {
    const std::pair<timespec, const char*> table[] = {
        {{0, 0}, "1970-01-01.00:00:00"},
        {{0, 999'999'999}, "1970-01-01.00:00:00"},
        {{42, 0}, "1970-01-01.00:00:42"},
        {{42, 999'999'999}, "1970-01-01.00:00:42"},
        {{14 * 60 + 7, 1}, "1970-01-01.00:14:07"},
        {{3 * Hour + 5 * 60 + 9, 0}, "1970-01-01.03:05:09"},
        {{Day - 1, 0}, "1970-01-01.23:59:59"},
        {{Day, 0}, "1970-01-02.00:00:00"},
        {{365 * Day, 0}, "1971-01-01.00:00:00"},
    };
    setenv("TZ", "UTC-5", 1);  // Local time is of no account.
    for (const auto& [sinceStart, text] : table) {
        Faults::FixClock(sinceStart);
        EXPECT_EQ(GetMonotonicClockString(), text);
    }
    unsetenv("TZ");
    EXPECT_LOG();
}

TEST_F(TimeStampTest, EachFailureIsAWarningAndAnEmptyText) {
    constexpr const char* Table[][2] = {
        {"clock_gettime", "clock_gettime() failure: -1: Invalid argument"},
        {"gmtime_r", "gmtime_r() failure: Invalid argument"},
        {"strftime", "gmtime_r() failure."},
    };
    for (const auto& [function, text] : Table) {
        Faults::Fail(function, EINVAL, 1);
        EXPECT_EQ(GetMonotonicClockString(), "");
        EXPECT_LOG(Warning(text));
    }
}

class ArchiveNameTest : public RotateTest {
protected:
    ArchiveNameTest() { WriteFile(rotation, "line\n"); }

    // Archives the rotation, with this second in the name.
    void ExpectNamedBy(unsigned second) {
        EXPECT_SUCCESS(rotate.Archive(rotation));
        EXPECT_EQ(ReadXzFile(archive / ArchFn(7, second)), "line\n");
    }

    // Makes files for the names of the seconds 42 to `last`.
    void TakeNamesUntil(unsigned last) {
        for (unsigned second = 42; second <= last; ++second) {
            WriteFile(archive / ArchFn(7, second), "taken");
        }
    }
};

TEST_F(ArchiveNameTest, HasABootNumberOfAtLeastThreeDigits) {
    const std::pair<unsigned, std::string> table[] = {
        {1, "001"}, {7, "007"}, {42, "042"}, {999, "999"}, {1000, "1000"}, {65536, "65536"}};
    for (const auto& [bootNum, digits] : table) {
        rotate.bootNum = bootNum;
        EXPECT_EQ(rotate.GetArchFn(), "messages." + digits + ".1970-01-01.00:00:42.txt.xz");
    }
}

TEST_F(ArchiveNameTest, IsEmptyWithoutATimeStamp) {
    Faults::Fail("clock_gettime", EINVAL, 1);
    EXPECT_EQ(rotate.GetArchFn(), "");
    EXPECT_LOG(Warning("clock_gettime() failure: -1: Invalid argument"));
}

TEST_F(ArchiveNameTest, TwoArchivingsWithinOneSecondMakeTwoFiles) {
    EXPECT_SUCCESS(rotate.Archive(rotation));
    WriteFile(rotation, "another line\n");
    EXPECT_SUCCESS(rotate.Archive(rotation));
    EXPECT_EQ(ReadArchive(), (Dir{{ArchFn(7, 42), "line\n"}, {ArchFn(7, 43), "another line\n"}}));
}

TEST_F(ArchiveNameTest, WaitsInTenthsForTheNextSecond) {
    TakeNamesUntil(42);
    Faults::FixClock({.tv_sec = 42, .tv_nsec = 750'000'000});
    ExpectNamedBy(43);
    EXPECT_EQ(ReadFile(archive / ArchFn(7, 42)), "taken");
    EXPECT_THAT(TakeCallsOf("nanosleep"), ElementsAre("0.100000000", "0.100000000", "0.100000000"));
}

TEST_F(ArchiveNameTest, TheDurationOfAnArchivingHoldsTheWaitForAName) {
    TakeNamesUntil(43);
    ExpectNamedBy(44);
    EXPECT_LOG(ArchivedLine(rotation, "2.0", 44));
}

TEST_F(ArchiveNameTest, ANameIsWaitedForAlmostTenSeconds) {
    TakeNamesUntil(51);
    Faults::FixClock({.tv_sec = 42, .tv_nsec = 100'000'000});
    ExpectNamedBy(52);
}

TEST_F(ArchiveNameTest, ANameIsNotWaitedForLonger) {
    TakeNamesUntil(51);
    EXPECT_FAILURE(rotate.Archive(rotation));
    EXPECT_LOG(Error("All archive file names of the last 10 seconds are taken."));
    EXPECT_THAT(TakeCallsOf("system"), IsEmpty());
    ExpectLogs({{"messages.txt.0", "line\n"}});
    EXPECT_THAT(ReadDir(archive), SizeIs(10));
    EXPECT_THAT(ReadDir(archive), Each(testing::Field(&Dir::value_type::second, "taken")));
}

TEST_F(ArchiveNameTest, AClockThatFailsDuringTheWaitEndsIt) {
    TakeNamesUntil(42);
    Faults::OnCall("nanosleep", [] { Faults::Fail("clock_gettime", EINVAL); });
    EXPECT_FAILURE(rotate.Archive(rotation));
    EXPECT_LOG(Warning("clock_gettime() failure: -1: Invalid argument"));
    EXPECT_DIR(archive, {{ArchFn(7, 42), "taken"}});
}

TEST_F(ArchiveNameTest, IsChosenBeforeTheCompression) {
    Faults::OnCall("system", [] { Faults::FixClock({.tv_sec = 55, .tv_nsec = 0}); });
    ExpectNamedBy(42);
}

TEST_F(ArchiveNameTest, ThatAFolderHasIsTaken) {
    fs::create_directory(archive / ArchFn(7, 42));
    ExpectNamedBy(43);
    EXPECT_EQ(Faults::TakeCalls().front(), "nanosleep 0.100000000") << "compressed before the wait";
}

class NameTakenDuringCompressionTest : public ArchiveNameTest {
protected:
    NameTakenDuringCompressionTest() {
        StandIn("xz", "printf taken > /perm/logs/syslog/archive/" + ArchFn(7, 42) +
                          "; exec /usr/bin/xz \"$@\"");
    }

    void TearDown() override { EXPECT_EQ(ReadFile(archive / ArchFn(7, 42)), "taken"); }
};

TEST_F(NameTakenDuringCompressionTest, GivesWayToALaterOne) {
    ExpectNamedBy(43);
    EXPECT_LOG(ArchivedLine(rotation, "1.0", 43));
}

TEST_F(NameTakenDuringCompressionTest, WithNoLaterOneFailsAndKeepsTheSource) {
    Faults::OnCall("nanosleep", [] { Faults::Fail("clock_gettime", EINVAL); });
    EXPECT_FAILURE(rotate.Archive(rotation));
    EXPECT_DIR(archive, {{ArchFn(7, 42), "taken"}});
    EXPECT_EQ(ReadFile(rotation), "line\n");
}

TEST_F(NameTakenDuringCompressionTest, GivesWayOnAFileSystemWithoutTheFlagsOfRenameat2) {
    Faults::Fail("renameat2", EINVAL);
    ExpectNamedBy(43);
}

}  // namespace
