// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Entries with a source location, and the user's callback.
#include <climits>
#include <string>
#include <tuple>
#include <vector>

#include "tests/unit/logging/logging_test.h"

using namespace std::string_literals;

namespace {

// Level, date, time, message.
using UserEntry = std::tuple<int, std::string, std::string, std::string>;
using UserEntries = std::vector<UserEntry>;

using LocationTest = LoggingTest;

class CallbackTest : public LoggingTest {
protected:
    void RegisterCallback() {
        Logging::RegisterUserLogCallback(
            [this](const auto&... values) { userLog.emplace_back(values...); });
    }

    UserEntries userLog;
};

TEST_F(LocationTest, TheLocationIsFileFunctionAndLine) {
    const std::tuple<const char*, const char*, int, const char*> cases[] = {
        {"rotate/archive.cpp", "Archive", 42, "archive.cpp:Archive(42) text"},
        {"/src/rotate/archive.cpp", "Archive", 42, "archive.cpp:Archive(42) text"},
        {"archive.cpp", "Archive", 42, "archive.cpp:Archive(42) text"},
        {"/archive.cpp", "Archive", 42, "archive.cpp:Archive(42) text"},
        {"a\\b.cpp", "Rotate::Archive", 42, "a\\b.cpp:Rotate::Archive(42) text"},
        {"archive.cpp", "Archive", 0, "archive.cpp:Archive(0) text"},
        {"archive.cpp", "Archive", -7, "archive.cpp:Archive(-7) text"},
        {"archive.cpp", "Archive", INT_MAX, "archive.cpp:Archive(2147483647) text"},
        {"archive.cpp", "Archive", INT_MIN, "archive.cpp:Archive(-2147483648) text"},
        {"rotate/archive.cpp", nullptr, 42, "archive.cpp(42) text"},
        {"rotate/archive.cpp", nullptr, -1, "archive.cpp(-1) text"},
        {"archive.cpp", "", 42, "archive.cpp:(42) text"},
        {nullptr, "Archive", 42, ":Archive(42) text"},
        {nullptr, "", 42, ":(42) text"},
        {"rotate/", "Archive", 42, ":Archive(42) text"},
        {"", "Archive", 42, ":Archive(42) text"},
        {"%s.cpp", "%n", 42, "%s.cpp:%n(42) text"},
        // Without file and function there is no line, and a blank all the same.
        {nullptr, nullptr, 42, " text"},
        {nullptr, nullptr, -1, " text"},
        {"", nullptr, 42, " text"},
        {"rotate/", nullptr, 42, " text"},
    };
    for (const auto& [file, function, line, entry] : cases) {
        SCOPED_TRACE(entry);
        Logging::AddEntryWithLocation(Logging::SeverityInfo, false, "text", file, function, line);
        EXPECT_LOG(Info(entry));
    }
}

TEST_F(LocationTest, TheMessageIsWrittenAsItStands) {
    for (const std::string& message : {""s, "%s%n 100%"s, NumberedText(300)}) {
        Logging::AddEntryWithLocation(Logging::SeverityError, false, message, "file", "F", 1);
        EXPECT_LOG(Error("file:F(1) " + message));
    }
}

TEST_F(LocationTest, TheLevelFiltersTheEntry) {
    Logging::AddEntryWithLocation(Logging::SeverityDebug, false, "debug", "file", "Function", 1);
    EXPECT_LOG();
    Logging::SetLogLevel(Logging::SeverityDebug);
    Logging::AddEntryWithLocation(Logging::SeverityDebug, false, "debug", "file", "Function", 1);
    EXPECT_LOG(Debug("file:Function(1) debug"));
}

TEST_F(CallbackTest, GetsLevelDateTimeAndThePlainMessage) {
    RegisterCallback();
    const std::string message = "100% " + NumberedText(300);
    std::string date;
    std::string time;
    do {  // Once more if the clock ticked in between.
        userLog.clear();
        date = Logging::GetSystemDate();
        time = Logging::GetSystemTime();
        Logging::AddEntryWithLocation(Logging::SeverityError, true, message, "file", "F", 1);
    } while (Logging::GetSystemTime() != time);
    EXPECT_EQ(userLog, (UserEntries{{LOG_ERR, date, time, message}}));
}

TEST_F(CallbackTest, IsCalledAfterTheEntryWasWritten) {
    LogLines linesBefore;
    Logging::RegisterUserLogCallback([&](auto&&...) { linesBefore = log.Take(); });
    Logging::AddEntryWithLocation(Logging::SeverityInfo, true, "text", "file", nullptr, 1);
    EXPECT_EQ(linesBefore, (LogLines{{LOG_INFO, "file(1) text"}}));
}

TEST_F(CallbackTest, IsCalledForADroppedEntryToo) {
    RegisterCallback();
    Logging::AddEntryWithLocation(Logging::SeverityDebug, true, "debug", "file", "F", 1);
    EXPECT_LOG();
    ASSERT_EQ(userLog.size(), 1U);
    EXPECT_EQ(std::get<int>(userLog[0]), LOG_DEBUG);
    EXPECT_EQ(std::get<3>(userLog[0]), "debug");
}

TEST_F(CallbackTest, IsCalledForNothingElse) {
    RegisterCallback();
    Logging::AddEntryWithLocation(Logging::SeverityInfo, false, "text", "file", "F", 1);
    Logging::AddEntryToSyslog(Logging::SeverityInfo, "text");
    Log::Info("text");
    EXPECT_EQ(userLog, UserEntries());
    EXPECT_EQ(log.Take().size(), 3U);
}

TEST_F(CallbackTest, AddEntryToUserLogHandsOverItsArguments) {
    RegisterCallback();
    Logging::AddEntryToUserLog(Logging::SeverityNotice, "a", "b", "c");
    Logging::AddEntryToUserLog(Logging::SeverityDebug, "", "", "");
    EXPECT_EQ(userLog, (UserEntries{{LOG_NOTICE, "a", "b", "c"}, {LOG_DEBUG, "", "", ""}}));
    EXPECT_LOG();
}

TEST_F(CallbackTest, WithoutOneOnlyTheEntryIsWritten) {
    Logging::AddEntryWithLocation(Logging::SeverityInfo, true, "first", "file", "F", 1);
    RegisterCallback();
    Logging::RegisterUserLogCallback({});
    Logging::AddEntryToUserLog(Logging::SeverityInfo, "a", "b", "c");
    RegisterCallback();
    Logging::RegisterUserLogCallback(nullptr);
    Logging::AddEntryWithLocation(Logging::SeverityInfo, true, "text", "file", "F", 1);
    EXPECT_EQ(userLog, UserEntries());
    EXPECT_LOG(Info("file:F(1) first"), Info("file:F(1) text"));
}

TEST_F(CallbackTest, ANewOneTakesThePlaceOfTheOld) {
    int calls = 0;
    Logging::RegisterUserLogCallback([&](auto&&...) { ++calls; });
    RegisterCallback();
    Logging::AddEntryToUserLog(Logging::SeverityInfo, "a", "b", "c");
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(userLog, (UserEntries{{LOG_INFO, "a", "b", "c"}}));
}

}  // namespace
