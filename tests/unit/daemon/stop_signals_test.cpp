// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Stop signals: noted by the handler, logged before the next line or when asked for.
#include "daemon/stop_signals.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <string>

#include "logging/logging.h"
#include "tests/support/faults.h"
#include "tests/support/log_sink.h"

namespace {

constexpr std::array StopSignals{SIGHUP, SIGINT, SIGTERM, SIGQUIT};

LogLine CaughtLine(int signal) {
    return {LOG_INFO,
            "vandis-moraine Caught signal " + std::to_string(signal) + ", shutting down..."};
}

// Sends this process a signal at each interval.
class SignalTimer {
public:
    SignalTimer(int signal, long intervalNs) {
        sigevent event{};
        event.sigev_notify = SIGEV_SIGNAL;
        event.sigev_signo = signal;
        EXPECT_EQ(timer_create(CLOCK_MONOTONIC, &event, &timer), 0);
        const itimerspec schedule{{0, intervalNs}, {0, intervalNs}};
        EXPECT_EQ(timer_settime(timer, 0, &schedule, nullptr), 0);
    }
    ~SignalTimer() { (void)timer_delete(timer); }
    SignalTimer(const SignalTimer&) = delete;
    SignalTimer& operator=(const SignalTimer&) = delete;

private:
    timer_t timer{};
};

class StopSignalsTest : public testing::Test {
protected:
    void SetUp() override {
        (void)sigprocmask(SIG_SETMASK, nullptr, &maskBefore);
        InstallStopSignals();
        ExitCode = 0;
        MainRunning = true;
    }

    void TearDown() override {
        Faults::Clear();
        (void)sigprocmask(SIG_SETMASK, &maskBefore, nullptr);
        LogCaughtSignals();
        Logging::SetBeforeEntryHook(nullptr);
        for (const int signal : StopSignals) (void)std::signal(signal, SIG_DFL);
        (void)std::signal(SIGPIPE, SIG_DFL);
        MainRunning = false;
    }

    sigset_t maskBefore{};
    LogSink log;
};

TEST_F(StopSignalsTest, StopTheDaemonWithTheirNumberAsItsStatusButSigtermWith0) {
    const std::pair<int, int> table[]{{SIGHUP, 1}, {SIGINT, 2}, {SIGQUIT, 3}, {SIGTERM, 0}};
    for (const auto& [signal, status] : table) {
        SCOPED_TRACE(signal);
        MainRunning = true;
        ExitCode = 77;
        (void)raise(signal);
        EXPECT_FALSE(MainRunning);
        EXPECT_EQ(ExitCode, status);
        EXPECT_LOG();  // The handler does not log.
        LogCaughtSignals();
        EXPECT_LOG(CaughtLine(signal));
    }
}

TEST_F(StopSignalsTest, TheLastOneSetsTheStatus) {
    (void)raise(SIGQUIT);
    (void)raise(SIGTERM);
    (void)raise(SIGINT);
    EXPECT_EQ(ExitCode, 2);
    LogCaughtSignals();
    EXPECT_LOG(CaughtLine(SIGQUIT), CaughtLine(SIGTERM), CaughtLine(SIGINT));
}

TEST_F(StopSignalsTest, AreLoggedBeforeTheNextLine) {
    (void)raise(SIGHUP);
    (void)raise(SIGHUP);
    Log::Error("next");
    EXPECT_LOG(CaughtLine(SIGHUP), CaughtLine(SIGHUP), Error("next"));
}

TEST_F(StopSignalsTest, AreLoggedOnceAndOnlyIfTheyWereCaught) {
    LogCaughtSignals();
    EXPECT_LOG();
    EXPECT_TRUE(MainRunning);
    (void)raise(SIGINT);
    LogCaughtSignals();
    LogCaughtSignals();
    Log::Info("next");
    EXPECT_LOG(CaughtLine(SIGINT), Info("next"));
}

// 64 are kept; of more than these the last ones share one place.
TEST_F(StopSignalsTest, AreKeptUpTo64) {
    for (const int number : {63, 64, 65, 200}) {
        SCOPED_TRACE(number);
        LogLines expected(static_cast<std::size_t>(std::min(number, 64)), CaughtLine(SIGHUP));
        expected.back() = CaughtLine(SIGQUIT);
        for (int i = 1; i < number; ++i) (void)raise(SIGHUP);
        (void)raise(SIGQUIT);
        LogCaughtSignals();
        EXPECT_EQ(log.Take(), expected);
        EXPECT_EQ(ExitCode, SIGQUIT);
    }
}

TEST_F(StopSignalsTest, ThatArriveWhileOthersAreLoggedFollowThem) {
    Faults::OnCall("syslog", [calls = 0]() mutable {
        if (++calls == 1) (void)raise(SIGINT);
        if (calls == 3) (void)raise(SIGQUIT);
    });
    (void)raise(SIGHUP);
    (void)raise(SIGTERM);
    Log::Info("next");
    EXPECT_LOG(CaughtLine(SIGHUP), CaughtLine(SIGTERM), CaughtLine(SIGINT), CaughtLine(SIGQUIT),
               Info("next"));
}

TEST_F(StopSignalsTest, ThatArrivesWithALineComesAfterIt) {
    Faults::OnCall("syslog", [calls = 0]() mutable {
        if (++calls == 1) (void)raise(SIGINT);
    });
    Log::Info("line");
    EXPECT_LOG(Info("line"));
    Log::Info("next");
    EXPECT_LOG(CaughtLine(SIGINT), Info("next"));
}

TEST_F(StopSignalsTest, AreBlockedFinally) {
    (void)raise(SIGHUP);
    BlockStopSignals();
    for (const int signal : StopSignals) (void)raise(signal);
    EXPECT_EQ(ExitCode, 1);
    LogCaughtSignals();
    EXPECT_LOG(CaughtLine(SIGHUP));
}

TEST_F(StopSignalsTest, StayDeliverableOrBlockedAfterTheyWereLogged) {
    for (const int blocked : {0, 1}) {
        if (blocked == 1) BlockStopSignals();
        SigHandler(SIGHUP);
        LogCaughtSignals();
        sigset_t mask;
        (void)sigprocmask(SIG_BLOCK, nullptr, &mask);
        for (const int signal : StopSignals)
            EXPECT_EQ(sigismember(&mask, signal), blocked) << signal;
    }
}

TEST_F(StopSignalsTest, DoNotInterruptTheirHandlerNorAnyCallButSleeps) {
    for (const int signal : StopSignals) {
        SCOPED_TRACE(signal);
        struct sigaction action {};
        ASSERT_EQ(sigaction(signal, nullptr, &action), 0);
        EXPECT_EQ(action.sa_handler, SigHandler);
        EXPECT_TRUE(action.sa_flags & SA_RESTART);
        EXPECT_FALSE(action.sa_flags & SA_RESETHAND);
        for (const int other : StopSignals) EXPECT_TRUE(sigismember(&action.sa_mask, other));
    }
}

TEST_F(StopSignalsTest, OthersKeepTheirMeaning) {
    for (const int signal : {SIGALRM, SIGUSR1, SIGUSR2, SIGCHLD, SIGTSTP}) {
        struct sigaction action {};
        ASSERT_EQ(sigaction(signal, nullptr, &action), 0);
        EXPECT_EQ(action.sa_handler, SIG_DFL) << signal;
    }
}

TEST_F(StopSignalsTest, AClosedPipeStopsNothing) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    (void)close(ends[0]);
    EXPECT_EQ(write(ends[1], "x", 1), -1);
    EXPECT_EQ(errno, EPIPE);
    (void)close(ends[1]);
    EXPECT_TRUE(MainRunning);
    EXPECT_LOG();
}

// Most of these signals arrive inside the C library's log call, which holds a lock: a handler that
// logged would wait for itself.
TEST_F(StopSignalsTest, AStormOfThemHoldsNoLineUp) {
    constexpr unsigned NumSignals = 100;
    const SignalTimer timer(SIGINT, 1'000'000);
    unsigned numLines = 0;
    for (unsigned i = 0; i < NumSignals; ++i) {
        MainRunning = true;
        while (MainRunning) Log::Info("line %u", numLines++);
    }
    BlockStopSignals();
    LogCaughtSignals();

    LogLines lines = log.Take();
    EXPECT_GE(std::erase(lines, CaughtLine(SIGINT)), NumSignals);
    ASSERT_EQ(lines.size(), numLines);
    for (unsigned i = 0; i < numLines; ++i) EXPECT_EQ(lines[i].text, "line " + std::to_string(i));
}

}  // namespace
