// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Entries with a source location, and the user's callback.
#include <limits>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include "tests/unit/logging/logging_test.h"

namespace {

struct UserEntry {
    int level;
    std::string date;
    std::string time;
    std::string message;

    bool operator==(const UserEntry&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const UserEntry& entry) {
        return out << '<' << entry.level << "> " << entry.date << ' ' << entry.time << ' '
                   << entry.message;
    }
};

using UserEntries = std::vector<UserEntry>;

using LocationTest = LoggingTest;

class CallbackTest : public LoggingTest {
protected:
    void RegisterCallback() {
        Logging::RegisterUserLogCallback([this](Logging::LOGGING_SEVERITY_LEVEL level,
                                                const std::string& date, const std::string& time,
                                                const std::string& message) {
            userLog.push_back({level, date, time, message});
        });
    }

    UserEntries userLog;
};

TEST_F(LocationTest, TheLocationIsFileFunctionAndLine) {
    const std::tuple<const char*, const char*, int, const char*> cases[] = {
        {"rotate/archive.cpp", "Archive", 42, "archive.cpp:Archive(42) text"},
        {"/work/rotate/archive.cpp", "Archive", 42, "archive.cpp:Archive(42) text"},
        {"archive.cpp", "Archive", 42, "archive.cpp:Archive(42) text"},
        {"/archive.cpp", "Archive", 42, "archive.cpp:Archive(42) text"},
        {"a\\b.cpp", "Rotate::Archive", 42, "a\\b.cpp:Rotate::Archive(42) text"},
        {"archive.cpp", "Archive", 0, "archive.cpp:Archive(0) text"},
        {"archive.cpp", "Archive", -7, "archive.cpp:Archive(-7) text"},
        {"archive.cpp", "Archive", std::numeric_limits<int>::max(),
         "archive.cpp:Archive(2147483647) text"},
        {"archive.cpp", "Archive", std::numeric_limits<int>::min(),
         "archive.cpp:Archive(-2147483648) text"},
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
    for (const std::string& message :
         {std::string(), std::string("%s%n 100%"), NumberedText(300)}) {
        Logging::AddEntryWithLocation(Logging::SeverityError, false, message, "file", "Function",
                                      1);
        EXPECT_LOG(Error("file:Function(1) " + message));
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
    Logging::RegisterUserLogCallback([&](Logging::LOGGING_SEVERITY_LEVEL, const std::string&,
                                         const std::string&,
                                         const std::string&) { linesBefore = log.Take(); });
    Logging::AddEntryWithLocation(Logging::SeverityInfo, true, "text", "file", nullptr, 1);
    EXPECT_EQ(linesBefore, (LogLines{{LOG_INFO, "file(1) text"}}));
}

TEST_F(CallbackTest, IsCalledForADroppedEntryToo) {
    RegisterCallback();
    Logging::AddEntryWithLocation(Logging::SeverityDebug, true, "debug", "file", "F", 1);
    EXPECT_LOG();
    ASSERT_EQ(userLog.size(), 1U);
    EXPECT_EQ(userLog[0].level, LOG_DEBUG);
    EXPECT_EQ(userLog[0].message, "debug");
}

TEST_F(CallbackTest, IsCalledForNothingElse) {
    RegisterCallback();
    Logging::AddEntryWithLocation(Logging::SeverityInfo, false, "text", "file", "F", 1);
    Logging::AddEntryToSyslog(Logging::SeverityInfo, "text");
    Log::Info("text");
    EXPECT_EQ(userLog, UserEntries());
    EXPECT_EQ(log.Take().size(), 3U);
}

TEST_F(CallbackTest, WithoutOneOnlyTheEntryIsWritten) {
    Logging::AddEntryWithLocation(Logging::SeverityInfo, true, "text", "file", "F", 1);
    Logging::AddEntryToUserLog(Logging::SeverityInfo, "date", "time", "nobody is called");
    EXPECT_LOG(Info("file:F(1) text"));
}

TEST_F(CallbackTest, AddEntryToUserLogHandsOverItsArguments) {
    RegisterCallback();
    Logging::AddEntryToUserLog(Logging::SeverityNotice, "a", "b", "c");
    Logging::AddEntryToUserLog(Logging::SeverityDebug, "", "", "");
    EXPECT_EQ(userLog, (UserEntries{{LOG_NOTICE, "a", "b", "c"}, {LOG_DEBUG, "", "", ""}}));
    EXPECT_LOG();
}

TEST_F(CallbackTest, AnEmptyOneUnregisters) {
    RegisterCallback();
    Logging::RegisterUserLogCallback({});
    Logging::AddEntryToUserLog(Logging::SeverityInfo, "a", "b", "c");
    RegisterCallback();
    Logging::RegisterUserLogCallback(nullptr);
    Logging::AddEntryWithLocation(Logging::SeverityInfo, true, "text", "file", "F", 1);
    EXPECT_EQ(userLog, UserEntries());
}

TEST_F(CallbackTest, ANewOneTakesThePlaceOfTheOld) {
    int calls = 0;
    Logging::RegisterUserLogCallback([&calls](Logging::LOGGING_SEVERITY_LEVEL, const std::string&,
                                              const std::string&, const std::string&) { ++calls; });
    RegisterCallback();
    Logging::AddEntryToUserLog(Logging::SeverityInfo, "a", "b", "c");
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(userLog, (UserEntries{{LOG_INFO, "a", "b", "c"}}));
}

}  // namespace
