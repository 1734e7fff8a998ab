// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The daemon's sleeps: what ends them, and what is slept after an interruption.
#include "daemon/sleep.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <vector>

#include "daemon/stop_signals.h"
#include "tests/support/faults.h"
#include "tests/support/log_sink.h"

namespace {

struct Sleep {
    void (*sleep)();
    int seconds;
};

constexpr Sleep Sleeps[] = {{SleepBetweenCycles, 10}, {[] { SleepAtLeast(5); }, 5}};

class SleepTest : public testing::Test {
protected:
    void SetUp() override {
        Faults::SkipSleeps();
        MainRunning = true;
    }
    void TearDown() override {
        Faults::Clear();
        LogCaughtSignals();
        MainRunning = false;
    }

    // Expects that it begins to sleep `times` times, each for a second less than before.
    static void ExpectSleeps(const Sleep& sleep, int times) {
        std::vector<std::string> calls;
        for (int i = 0; i < times; ++i) {
            calls.push_back("nanosleep " + std::to_string(sleep.seconds - i) + ".000000000");
        }
        sleep.sleep();
        EXPECT_EQ(Faults::TakeCalls(), calls);
    }

    LogSink log;
};

TEST_F(SleepTest, BetweenCyclesLastsTenSeconds) {
    ExpectSleeps({SleepBetweenCycles, 10}, 1);
    EXPECT_LOG();
}

TEST_F(SleepTest, OfSecondsLastsAsLongAsIsAskedFor) {
    ExpectSleeps({[] { SleepAtLeast(0); }, 0}, 1);
    ExpectSleeps({[] { SleepAtLeast(1); }, 1}, 1);
    ExpectSleeps({[] { SleepAtLeast(10); }, 10}, 1);
    ExpectSleeps({[] { SleepAtLeast(255); }, 255}, 1);
    EXPECT_LOG();
}

TEST_F(SleepTest, OfSecondsDoesNotBeginAfterAStopSignal) {
    SigHandler(SIGINT);
    ExpectSleeps({[] { SleepAtLeast(5); }, 5}, 0);
}

TEST_F(SleepTest, SleepsTheRestAfterAnInterruption) {
    for (const Sleep& sleep : Sleeps) {
        Faults::Fail("nanosleep", EINTR, 1);
        ExpectSleeps(sleep, 2);
    }
    EXPECT_LOG();
}

TEST_F(SleepTest, IsEndedByAStopSignal) {
    Faults::Fail("nanosleep", EINTR);
    for (const Sleep& sleep : Sleeps) {
        for (const int nth : {1, 2, 3}) {
            MainRunning = true;
            Faults::OnCall("nanosleep", [sleepsLeft = nth]() mutable {
                if (--sleepsLeft == 0) SigHandler(SIGTERM);
            });
            ExpectSleeps(sleep, nth);
        }
    }
}

TEST_F(SleepTest, IsEndedByAnErrorWithALine) {
    Faults::Fail("nanosleep", EINVAL);
    for (const Sleep& sleep : Sleeps) {
        ExpectSleeps(sleep, 1);
        EXPECT_LOG(Error("nanosleep error: Invalid argument"));
    }
}

}  // namespace
