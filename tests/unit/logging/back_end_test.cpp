// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Severity filter, sinks, settings and the names of Util.
#include <gmock/gmock.h>

#include <functional>
#include <limits>
#include <string>
#include <tuple>
#include <vector>

#include "tests/unit/logging/logging_test.h"

using namespace std::string_literals;

namespace {

using BackEndTest = LoggingTest;

std::string PrintedBy(const std::function<void()>& action) {
    testing::internal::CaptureStdout();
    action();
    return testing::internal::GetCapturedStdout();
}

TEST_F(BackEndTest, StartsAtInfoWithoutStandardOutputAndCallback) {
    EXPECT_EQ(Logging::GetSevLev(), Logging::SeverityInfo);
    const std::string printed = PrintedBy([] {
        Logging::AddEntryToSyslog(Logging::SeverityInfo, "info");
        Logging::AddEntryToSyslog(Logging::SeverityDebug, "debug");
        Logging::AddEntryToUserLog(Logging::SeverityInfo, "date", "time", "nobody is called");
    });
    EXPECT_EQ(printed, "");
    EXPECT_LOG(Info("info"));
}

TEST_F(BackEndTest, TheSeveritiesAreSyslogsPriorities) {
    Logging::SetLogLevel(Logging::SeverityDebug);
    const std::tuple<Logging::LOGGING_SEVERITY_LEVEL, int, const char*> cases[] = {
        {Logging::SeverityEmergency, LOG_EMERG, "Emergency"},
        {Logging::SeverityAlert, LOG_ALERT, "Alert"},
        {Logging::SeverityCritical, LOG_CRIT, "Critical"},
        {Logging::SeverityError, LOG_ERR, "Error"},
        {Logging::SeverityWarning, LOG_WARNING, "Warning"},
        {Logging::SeverityNotice, LOG_NOTICE, "Notice"},
        {Logging::SeverityInfo, LOG_INFO, "Info"},
        {Logging::SeverityDebug, LOG_DEBUG, "Debug"},
    };
    for (const auto& [level, priority, name] : cases) {
        SCOPED_TRACE(name);
        Logging::AddEntryToSyslog(level, "text");
        EXPECT_LOG(LogLine{priority, "text"});
        std::string actual = "of before";
        Logging::GetSeverityAsString(level, actual);
        EXPECT_EQ(actual, name);
    }
}

TEST_F(BackEndTest, AValueThatIsNoLevelHasNoName) {
    for (const int value :
         {8, 9, 256, -1, -8, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
        std::string name = "of before";
        Logging::GetSeverityAsString(Level(value), name);
        EXPECT_EQ(name, "of before") << value;
    }
}

TEST_F(BackEndTest, DirectCallersAreFilteredToo) {
    Logging::SetLogToStdout(true);
    for (int level = -1; level <= LOG_DEBUG + 1; ++level) {
        Logging::SetLogLevel(Level(level));
        EXPECT_EQ(Logging::GetSevLev(), level);
        for (int severity = LOG_EMERG; severity <= LOG_DEBUG; ++severity) {
            SCOPED_TRACE(std::to_string(severity) + " at level " + std::to_string(level));
            const std::string printed =
                PrintedBy([severity] { Logging::AddEntryToSyslog(Level(severity), "text"); });
            const bool isEmitted = severity <= level;
            EXPECT_EQ(log.Take(), (isEmitted ? LogLines{{severity, "text"}} : LogLines()));
            EXPECT_EQ(printed, isEmitted ? "text\n\r" : "");
        }
    }
}

// The sink checks facility and tag of every line; this is the rest of the header.
TEST_F(BackEndTest, AnEntryHasTheHeaderOfTheCLibrarysDefaults) {
    testing::internal::CaptureStderr();
    Logging::AddEntryToSyslog(Logging::SeverityWarning, "text");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_THAT(log.TakeRaw(),
                testing::ElementsAre(testing::MatchesRegex(
                    "<12>[A-Z][a-z][a-z] [ 0-9][0-9] [0-9:]+ " + log.tag + ": text")));
}

TEST_F(BackEndTest, AMessageIsWrittenAsItStands) {
    Logging::SetLogToStdout(true);
    std::vector<std::string> messages = {"",   " ",          "%s%n%d 100%",
                                         "%%", "one\ntwo\n", "a\xc3\xa4\xff"};
    for (const std::size_t length : {256, 300, 5000}) messages.push_back(NumberedText(length));
    for (const std::string& message : messages) {
        const std::string printed =
            PrintedBy([&message] { Logging::AddEntryToSyslog(Logging::SeverityInfo, message); });
        EXPECT_LOG(Info(message));
        EXPECT_EQ(printed, message + "\n\r");
    }
}

TEST_F(BackEndTest, StandardOutputIsSwitchedOnAndOff) {
    const std::string printed = PrintedBy([] {
        Log::Info("off");
        Logging::SetLogToStdout(true);
        Log::Info("%s", "on");
        Log::Error("%s", "100%");
        Log::Debug("dropped");
        Logging::SetLogToStdout(false);
        Log::Info("off again");
    });
    EXPECT_EQ(printed, "on\n\r100%\n\r");
    EXPECT_LOG(Info("off"), Info("on"), Error("100%"), Info("off again"));
}

// The hook that is under test writes its line once.
bool hasReport = false;

void Report() {
    if (!hasReport) return;
    hasReport = false;
    Log::Info("noted earlier");
}

TEST_F(BackEndTest, TheHookWritesItsEntriesBeforeTheOneThatIsDue) {
    Logging::SetBeforeEntryHook(Report);
    Log::Info("nothing to report");
    hasReport = true;
    Log::Debug("dropped");
    Logging::AddEntryToSyslog(Logging::SeverityDebug, "dropped");
    EXPECT_TRUE(hasReport);
    Log::Error("text");
    Log::Error("more text");
    hasReport = true;
    Logging::AddEntryWithLocation(Logging::SeverityWarning, false, "text", "file", nullptr, 1);
    EXPECT_LOG(Info("nothing to report"), Info("noted earlier"), Error("text"), Error("more text"),
               Info("noted earlier"), Warning("file(1) text"));
}

TEST_F(BackEndTest, TheHooksEntriesComeFirstOnStandardOutputTooUntilItIsTakenBack) {
    Logging::SetBeforeEntryHook(Report);
    Logging::SetLogToStdout(true);
    hasReport = true;
    EXPECT_EQ(PrintedBy([] { Log::Error("text"); }), "noted earlier\n\rtext\n\r");
    Logging::SetBeforeEntryHook(nullptr);
    hasReport = true;
    EXPECT_EQ(PrintedBy([] { Log::Error("text"); }), "text\n\r");
    hasReport = false;
}

TEST(LoggingNames, ForTheFormatterAndTheSystemTimeAreThoseOfUtil) {
    EXPECT_EQ(&Logging::GetSystemDate, &Util::GetSystemDate);
    EXPECT_EQ(&Logging::GetSystemTime, &Util::GetSystemTime);
    using Formatter = std::string (*)(const char*, ...);
    EXPECT_EQ(static_cast<Formatter>(Logging::Format), static_cast<Formatter>(Util::Format));
    EXPECT_EQ(Logging::Format("%s.%03u"s, "messages", 7U), "messages.007");
}

}  // namespace
