// Futils::System.
#include <cerrno>
#include <csignal>
#include <utility>

#include "tests/unit/futils/fixture.h"

namespace {

class SystemTest : public FutilsTest {
protected:
    void ExpectFailure(const std::string& command, int result) {
        SCOPED_TRACE(command);
        Faults::OnCall("system", [] { errno = EDOM; });
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
    ExpectNoLines();
}

TEST_F(SystemTest, OnlyStatusZeroIsASuccess) {
    for (const char* command : {"true", "exit 0", "false; true", "! false", ""}) {
        SCOPED_TRACE(command);
        EXPECT_SUCCESS(Futils::System(command));
    }
    ExpectNoLines();
}

TEST_F(SystemTest, AFailureIsToldWithTheRawWaitStatusAndWhateverErrnoHolds) {
    const struct {
        const char* command;
        int result;
    } cases[] = {
        {"exit 1", 256},        {"exit 2", 512},
        {"exit 255", 65280},    {"false", 256},
        {"true; false", 256},   {"kill -KILL $$", 9},
        {"kill -TERM $$", 15},  {"no-such-command 2>&-", 32512},
        {"/perm 2>&-", 32256},  {"exec 2>&-; eval '('", 512},
        {"exit 3 # %s%n", 768},
    };
    for (const auto& c : cases) ExpectFailure(c.command, c.result);
}

TEST_F(SystemTest, WithoutAChildProcessFails) {
    Faults::Fail("system", EAGAIN);
    EXPECT_FAILURE(Futils::System("true"));
    ExpectError("Unable to 'true'.  Result: -1, Error: 'Resource temporarily unavailable'");
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

// The C library ignores these two while a command runs.
TEST_F(SignalDuringCommandTest, IsHandledAfterwardsIfThereIsAHandler) {
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

TEST_F(SystemTest, TheLineOfALongCommandIsCut) {
    const std::string command = "exit 1; " + std::string(300, 'x');
    EXPECT_FAILURE(Futils::System(command));
    ExpectError("Unable to '" + command + "'.");
}

}  // namespace
