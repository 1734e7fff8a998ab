// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The stopwatch, on a clock that stands until a test moves it.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <ctime>
#include <limits>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "tests/support/faults.h"
#include "util/util.h"

namespace {

constexpr double Infinity = std::numeric_limits<double>::infinity();
constexpr double NaN = std::numeric_limits<double>::quiet_NaN();
constexpr long NsPerMs = 1000000;
constexpr long NsPerSec = 1000000000;

timespec clockNow;
std::vector<useconds_t> pauses;
double msPerPause = 0;

void SetClock(timespec now) {
    clockNow = now;
    Faults::FixClock(now);
}

void AdvanceNs(long ns) {
    const long sum = clockNow.tv_nsec + ns;
    SetClock({clockNow.tv_sec + sum / NsPerSec, sum % NsPerSec});
}

void AdvanceMs(double ms) {
    const double wholeSeconds = std::floor(ms / 1000);
    clockNow.tv_sec += static_cast<std::time_t>(wholeSeconds);
    AdvanceNs(std::lround((ms - wholeSeconds * 1000) * NsPerMs));
}

}  // namespace

// A pause takes as long as the test says, whatever was asked for.
extern "C" int usleep(useconds_t us) {
    pauses.push_back(us);
    AdvanceMs(msPerPause);
    return 0;
}

namespace {

static_assert(std::is_polymorphic_v<ElapsedTime> && std::has_virtual_destructor_v<ElapsedTime>);

class ElapsedTimeTest : public testing::Test {
protected:
    ElapsedTimeTest() {
        SetClock({1000, 750000000});
        pauses.clear();
    }
    ~ElapsedTimeTest() override { Faults::ReleaseClock(); }
};

TEST_F(ElapsedTimeTest, MeasuresMillisecondsFromItsStart) {
    ElapsedTime time(0);
    EXPECT_EQ(time.GetMsElapsed(), 0);
    AdvanceNs(1);
    EXPECT_EQ(time.GetMsElapsed(), 1e-6);
    AdvanceNs(NsPerMs - 1);
    EXPECT_EQ(time.GetMsElapsed(), 1);
    AdvanceMs(1199);
    EXPECT_EQ(time.GetMsElapsed(), 1200);
    AdvanceMs(86400e3 * 365);
    EXPECT_EQ(time.GetMsElapsed(), 86400e3 * 365 + 1200);
}

TEST_F(ElapsedTimeTest, TheRealClockGoesForward) {
    Faults::ReleaseClock();
    ElapsedTime time(0);
    const double first = time.GetMsElapsed();
    const double second = time.GetMsElapsed();
    EXPECT_GE(first, 0);
    EXPECT_GE(second, first);
    EXPECT_LT(second, 60000);
}

TEST_F(ElapsedTimeTest, HasTimedOutFromTheTimeoutOn) {
    ElapsedTime time(1500);
    EXPECT_FALSE(time.HasTimedOut());
    AdvanceNs(1500 * NsPerMs - 1);
    EXPECT_FALSE(time.HasTimedOut());
    AdvanceNs(1);
    EXPECT_TRUE(time.HasTimedOut());
    EXPECT_TRUE(time.HasTimedOut()) << "it does not restart";
    AdvanceNs(1);
    EXPECT_TRUE(time.HasTimedOut());
}

TEST_F(ElapsedTimeTest, CheckTimeoutFiresOnceAndRestartsFromTheInstantOfTheCheck) {
    ElapsedTime time(1500);
    EXPECT_FALSE(time.CheckTimeout());
    AdvanceNs(1500 * NsPerMs - 1);
    EXPECT_FALSE(time.CheckTimeout());
    AdvanceNs(1);
    EXPECT_TRUE(time.CheckTimeout());
    EXPECT_FALSE(time.CheckTimeout());
    AdvanceMs(2200);
    EXPECT_TRUE(time.CheckTimeout());
    EXPECT_EQ(time.GetMsElapsed(), 0);
    AdvanceMs(1499);
    EXPECT_FALSE(time.CheckTimeout());
    AdvanceMs(1);
    EXPECT_TRUE(time.CheckTimeout());
}

TEST_F(ElapsedTimeTest, ResettingRestartsWithTheSameTimeoutOrANewOne) {
    ElapsedTime time(1000);
    AdvanceMs(999);
    time.ResetTimeout();
    EXPECT_EQ(time.GetMsElapsed(), 0);
    AdvanceMs(999);
    EXPECT_FALSE(time.HasTimedOut());
    AdvanceMs(1);
    EXPECT_TRUE(time.HasTimedOut());

    time.ResetTimeoutMs(0.5);
    EXPECT_EQ(time.GetMsElapsed(), 0);
    EXPECT_FALSE(time.HasTimedOut());
    AdvanceMs(0.5);
    EXPECT_TRUE(time.HasTimedOut());
}

TEST_F(ElapsedTimeTest, ANegativeTimeoutCountsAsZero) {
    struct Timeout : ElapsedTime {
        using ElapsedTime::ElapsedTime;
        using ElapsedTime::timeoutMs;
    };
    for (const double negative : {-1e-9, -1.0, -Infinity}) {
        SCOPED_TRACE(negative);
        Timeout time(negative);
        EXPECT_EQ(time.timeoutMs, 0);
        EXPECT_TRUE(time.HasTimedOut());
        EXPECT_TRUE(time.CheckTimeout());

        time.ResetTimeoutMs(1000);
        EXPECT_FALSE(time.HasTimedOut());
        time.ResetTimeoutMs(negative);
        EXPECT_EQ(time.timeoutMs, 0);
        EXPECT_TRUE(time.HasTimedOut());
        EXPECT_TRUE(time.CheckTimeout());
    }
}

TEST_F(ElapsedTimeTest, ASubclassRestartsInItsOwnWay) {
    struct Counted : ElapsedTime {
        using ElapsedTime::ElapsedTime;
        void ResetTimeout() override { ++restarts; }
        bool HasTimedOut() override { return false; }  // CheckTimeout looks at the clock itself.
        int restarts = 0;
    };
    Counted time(1000);
    EXPECT_FALSE(time.CheckTimeout());
    EXPECT_EQ(time.restarts, 0);
    AdvanceMs(1000);
    EXPECT_TRUE(time.CheckTimeout());
    EXPECT_EQ(time.restarts, 1);
    time.ResetTimeoutMs(500);
    EXPECT_EQ(time.restarts, 2);
    EXPECT_EQ(time.GetMsElapsed(), 1000) << "only ResetTimeout restarts";
}

TEST_F(ElapsedTimeTest, IsUsedThroughItsBase) {
    struct Other : ElapsedTime {
        using ElapsedTime::ElapsedTime;
        bool CheckTimeout() override { return true; }
        void ResetTimeoutMs(double newTimeoutMs) override { timeoutMs = newTimeoutMs / 2; }
    };
    Other other(1000);
    ElapsedTime& time = other;
    EXPECT_TRUE(time.CheckTimeout());
    time.ResetTimeoutMs(600);
    AdvanceMs(300);
    EXPECT_TRUE(time.HasTimedOut());
}

TEST_F(ElapsedTimeTest, PrintMsDiffDoesNothing) {
    ElapsedTime time(1000);
    AdvanceMs(700);
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    time.PrintMsDiff("label");
    time.PrintMsDiff(nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(time.GetMsElapsed(), 700);
}

TEST_F(ElapsedTimeTest, SleepMsWaitsAtLeastThatLongAndAtLeastOneMillisecond) {
    msPerPause = 0.001;
    const std::pair<double, std::size_t> cases[] = {
        {3, 3000},   {1.25, 1250}, {1.0005, 1001}, {1, 1000},         {0.999, 1000},
        {0.2, 1000}, {0, 1000},    {-5, 1000},     {-Infinity, 1000}, {NaN, 1000},
    };
    for (const auto& [ms, microseconds] : cases) {
        pauses.clear();
        ElapsedTime::SleepMs(ms);
        EXPECT_EQ(pauses, std::vector<useconds_t>(microseconds, 0)) << ms;
    }
}

TEST_F(ElapsedTimeTest, SleepMsPausesForATenThousandthInMicroseconds) {
    const std::pair<double, useconds_t> cases[] = {
        {1, 0},
        {9999.999, 0},
        {10000, 1},
        {19999.999, 1},
        {20000, 2},
        {3600000, 360},
        {1e9, 100000},
        // No more than a pause can be.
        {42949672950000, 4294967295},
        {42949672960000, 4294967295},
        {1e15, 4294967295},
    };
    for (const auto& [ms, pause] : cases) {
        SetClock({1000, 0});
        pauses.clear();
        msPerPause = ms / 2;
        ElapsedTime::SleepMs(ms);
        EXPECT_EQ(pauses, (std::vector<useconds_t>{pause, pause})) << ms;
    }
}

TEST_F(ElapsedTimeTest, MonotonicNowIsTheReadingOfTheClock) {
    SetClock({86407, 123456789});
    const timespec now = Util::MonotonicNow();
    EXPECT_EQ(now.tv_sec, 86407);
    EXPECT_EQ(now.tv_nsec, 123456789);
}

TEST(GetElapsedSecTest, IsTheDifferenceOfTwoReadings) {
    const std::tuple<timespec, timespec, double> cases[] = {
        {{10, 500000000}, {9, 0}, 1.5},   {{11, 0}, {9, 500000000}, 1.5},
        {{10, 1}, {10, 0}, 1e-9},         {{10, 250000000}, {10, 0}, 0.25},
        {{10, 0}, {9, 999000000}, 0.001}, {{11, 0}, {10, 0}, 1},
        {{9, 0}, {10, 500000000}, -1.5},  {{31536000, 0}, {0, 0}, 31536000},
    };
    for (const auto& [later, earlier, seconds] : cases) {
        EXPECT_DOUBLE_EQ(Util::GetElapsedSec(later, earlier), seconds);
    }
    // Equal readings may be divided by.
    EXPECT_EQ(Util::GetElapsedSec({10, 500000000}, {10, 500000000}), 1e-9);
    EXPECT_EQ(Util::GetElapsedSec({0, 0}, {0, 0}), 1e-9);
}

}  // namespace
