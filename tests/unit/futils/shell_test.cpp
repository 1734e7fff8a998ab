// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Futils::System and CommandOutput.
#include <cerrno>
#include <csignal>
#include <utility>

#include "futils/command.h"
#include "tests/unit/futils/fixture.h"

namespace {

class SystemTest : public FutilsTest {
protected:
    void ExpectFailure(const std::string& command, int result) {
        SCOPED_TRACE(command);
        Faults::OnCall("waitpid", [] { errno = EDOM; });
        EXPECT_FAILURE(Futils::System(command));
        ExpectError("Unable to '" + command + "'.  Result: " + std::to_string(result) +
                    ", Error: 'Numerical argument out of domain'");
    }
};

TEST_F(SystemTest, RunsACommandLineAsItIsAndWaitsForIt) {
    const std::string command = "cd /perm/futils; printf 'a  b' > 'c d' && ls > list";
    EXPECT_SUCCESS(Futils::System(command));
    EXPECT_DIR(folder, {{"c d", "a  b"}, {"list", "c d\nlist\n"}});
    EXPECT_EQ(Faults::TakeCalls(), std::vector<std::string>{"system " + command});
}

TEST_F(SystemTest, OnlyStatusZeroIsASuccess) {
    for (const char* command : {"true", "exit 0", "false; true", "! false", ""}) {
        SCOPED_TRACE(command);
        EXPECT_SUCCESS(Futils::System(command));
    }
}

TEST_F(SystemTest, AFailureIsLoggedWithTheRawWaitStatusAndWhateverErrnoHolds) {
    const std::pair<const char*, int> cases[] = {
        {"exit 1", 256},        {"exit 2", 512},
        {"exit 255", 65280},    {"false", 256},
        {"true; false", 256},   {"kill -KILL $$", 9},
        {"kill -TERM $$", 15},  {"no-such-command 2>&-", 32512},
        {"/perm 2>&-", 32256},  {"exec 2>&-; eval '('", 512},
        {"exit 3 # %s%n", 768},
    };
    for (const auto& [command, result] : cases) ExpectFailure(command, result);
}

TEST_F(SystemTest, WithoutAChildProcessFails) {
    Faults::Fail("system", EAGAIN);
    EXPECT_FAILURE(Futils::System("true"));
    ExpectError("Unable to 'true'.  Result: 32512, Error: 'Resource temporarily unavailable'");
}

TEST_F(SystemTest, TheLineOfALongCommandIsCut) {
    const std::string command = "exit 1; " + std::string(300, 'x');
    EXPECT_FAILURE(Futils::System(command));
    ExpectError("Unable to '" + command + "'.");
}

volatile std::sig_atomic_t arrivedSignals = 0;

class SignalDuringCommandTest : public SystemTest {
protected:
    void SetUp() override {
        arrivedSignals = 0;
        (void)pthread_sigmask(SIG_SETMASK, nullptr, &maskBefore);
    }
    void TearDown() override {
        SystemTest::TearDown();
        sigset_t mask;
        (void)pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        for (const int number : {SIGINT, SIGQUIT}) {
            (void)signal(number, SIG_DFL);
            EXPECT_EQ(sigismember(&mask, number), sigismember(&maskBefore, number));
        }
    }

    sigset_t maskBefore;
};

TEST_F(SignalDuringCommandTest, IsHandledIfThereIsAHandler) {
    for (const auto& [number, name] : {std::pair{SIGINT, "INT"}, std::pair{SIGQUIT, "QUIT"}}) {
        SCOPED_TRACE(name);
        arrivedSignals = 0;
        (void)signal(number, [](int) { arrivedSignals = arrivedSignals + 1; });
        const std::string command = std::string("kill -s ") + name + " $PPID; echo > ";
        EXPECT_SUCCESS(Futils::System(command + (folder / name).string()));
        EXPECT_EQ(arrivedSignals, 1);
    }
    EXPECT_DIR(folder, {{"INT", "\n"}, {"QUIT", "\n"}});
}

TEST_F(SignalDuringCommandTest, IsIgnoredIfThereIsNoHandler) {
    (void)signal(SIGQUIT, SIG_IGN);
    EXPECT_SUCCESS(Futils::System("kill -s INT $PPID; kill -s QUIT $PPID"));
    EXPECT_EQ(arrivedSignals, 0);
}

// What the caller ignores or blocks, and not every shell resets.
class FreshSignalStateTest : public SystemTest {
protected:
    void SetUp() override {
        sigset_t all;
        sigfillset(&all);
        (void)pthread_sigmask(SIG_BLOCK, &all, &maskBefore);
        (void)signal(SIGPIPE, SIG_IGN);
        (void)signal(SIGHUP, SIG_IGN);
    }
    void TearDown() override {
        (void)signal(SIGHUP, SIG_DFL);
        (void)signal(SIGPIPE, SIG_DFL);
        (void)pthread_sigmask(SIG_SETMASK, &maskBefore, nullptr);
        SystemTest::TearDown();
    }

    // Both masks without the signals 32 and 33, which the C library keeps for itself.
    static constexpr char ReadState[] =
        "while read -r name mask; do case $name in SigBlk:|SigIgn:) "
        "echo \"$name $((0x$mask & ~0x180000000))\";; esac; done < /proc/$$/status";
    static constexpr char FreshState[] = "SigBlk: 0\nSigIgn: 0\n";
    sigset_t maskBefore{};
};

TEST_F(FreshSignalStateTest, IsThatOfACommand) {
    EXPECT_SUCCESS(Futils::System(ReadState + (" > " + (folder / "state").string())));
    EXPECT_EQ(ReadFile(folder / "state"), FreshState);

    Futils::CommandOutput output(ReadState);
    std::string state(1000, '\0');
    state.resize(output.Read(state.data(), state.size()));
    EXPECT_EQ(state, FreshState);
}

using CommandOutputTest = FutilsTest;

TEST_F(CommandOutputTest, IsReadInPieces) {
    Futils::CommandOutput output("printf abcdefg; sleep 0.1; printf h");
    char text[6] = {};
    EXPECT_EQ(output.Read(text, 5), 5U);
    EXPECT_STREQ(text, "abcde");
    EXPECT_EQ(output.Read(text, 5), 3U);
    EXPECT_STREQ(text, "fghde");
    EXPECT_EQ(output.Read(text, 5), 0U);
}

TEST_F(CommandOutputTest, ThatIsNotReadToItsEndEndsTheCommand) {
    char text[1];
    EXPECT_EQ(Futils::CommandOutput("yes").Read(text, 1), 1U);
}

TEST_F(CommandOutputTest, OfACommandThatCannotBeStartedIsEmpty) {
    Faults::Fail("system", EAGAIN);
    char text[1];
    EXPECT_EQ(Futils::CommandOutput("echo").Read(text, 1), 0U);
}

}  // namespace
