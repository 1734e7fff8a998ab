// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The daemon's sleeps: what ends them, and what is slept after an interruption.
#include "daemon/sleep.h"

#include <gmock/gmock.h>

#include <csignal>

#include "daemon/stop_signals.h"
#include "tests/support/faults.h"
#include "tests/support/log_sink.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

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

    // Interrupts every sleep; a stop signal is what interrupts the nth one.
    static void InterruptUntilStop(int nth) {
        Faults::Fail("nanosleep", EINTR);
        Faults::OnCall("nanosleep", [sleepsLeft = nth]() mutable {
            if (--sleepsLeft == 0) SigHandler(SIGTERM);
        });
    }

    LogSink log;
};

TEST_F(SleepTest, BetweenCyclesLastsTenSeconds) {
    SleepBetweenCycles();
    EXPECT_THAT(Faults::TakeCalls(), ElementsAre("nanosleep 10.000000000"));
    EXPECT_LOG();
}

TEST_F(SleepTest, BetweenCyclesSleepsTheRestAfterAnInterruption) {
    Faults::Fail("nanosleep", EINTR, 1);
    SleepBetweenCycles();
    EXPECT_THAT(Faults::TakeCalls(),
                ElementsAre("nanosleep 10.000000000", "nanosleep 9.000000000"));
    EXPECT_LOG();
}

TEST_F(SleepTest, BetweenCyclesIsEndedByAStopSignal) {
    InterruptUntilStop(1);
    SleepBetweenCycles();
    EXPECT_THAT(Faults::TakeCalls(), ElementsAre("nanosleep 10.000000000"));
}

TEST_F(SleepTest, BetweenCyclesIsEndedByAStopSignalAfterOtherInterruptions) {
    InterruptUntilStop(3);
    SleepBetweenCycles();
    EXPECT_THAT(Faults::TakeCalls(), ElementsAre("nanosleep 10.000000000", "nanosleep 9.000000000",
                                                 "nanosleep 8.000000000"));
}

TEST_F(SleepTest, BetweenCyclesIsEndedByAnErrorWithALine) {
    Faults::Fail("nanosleep", EINVAL);
    SleepBetweenCycles();
    EXPECT_THAT(Faults::TakeCalls(), ElementsAre("nanosleep 10.000000000"));
    EXPECT_LOG(Error("nanosleep error: Invalid argument"));
}

TEST_F(SleepTest, OfSecondsLastsAsLongAsIsAskedFor) {
    for (const unsigned seconds : {0U, 1U, 10U, 255U}) {
        SleepAtLeast(static_cast<unsigned char>(seconds));
        EXPECT_THAT(Faults::TakeCalls(),
                    ElementsAre("nanosleep " + std::to_string(seconds) + ".000000000"));
    }
    EXPECT_LOG();
}

TEST_F(SleepTest, OfSecondsDoesNotBeginAfterAStopSignal) {
    SigHandler(SIGINT);
    SleepAtLeast(5);
    EXPECT_THAT(Faults::TakeCalls(), IsEmpty());
}

TEST_F(SleepTest, OfSecondsSleepsTheRestAfterAnInterruption) {
    Faults::Fail("nanosleep", EINTR, 1);
    SleepAtLeast(5);
    EXPECT_THAT(Faults::TakeCalls(), ElementsAre("nanosleep 5.000000000", "nanosleep 4.000000000"));
    EXPECT_LOG();
}

TEST_F(SleepTest, OfSecondsIsEndedByAStopSignal) {
    InterruptUntilStop(2);
    SleepAtLeast(5);
    EXPECT_THAT(Faults::TakeCalls(), ElementsAre("nanosleep 5.000000000", "nanosleep 4.000000000"));
}

TEST_F(SleepTest, OfSecondsIsEndedByAnErrorWithALine) {
    Faults::Fail("nanosleep", EINVAL);
    SleepAtLeast(5);
    EXPECT_THAT(Faults::TakeCalls(), ElementsAre("nanosleep 5.000000000"));
    EXPECT_LOG(Error("nanosleep error: Invalid argument"));
}

}  // namespace
