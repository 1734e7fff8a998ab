// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The form of a line, and the year that it does not have.
#include "reader/line.h"

#include <gtest/gtest.h>

#include <ctime>
#include <string>

namespace {

using Reader::Fields;
using Reader::ParseLine;

constexpr std::string_view Stamp = "Nov 21 17:48:08 ";

Fields Parse(std::string_view rest) {
    static std::string line;  // the fields point into it
    line = std::string(Stamp) + std::string(rest);
    return ParseLine(line);
}

TEST(LineForm, HasAllFields) {
    const Fields fields = Parse("device user.err app[812]: some: text");
    ASSERT_TRUE(fields.hasForm);
    EXPECT_EQ(fields.month, 11);
    EXPECT_EQ(fields.day, 21);
    EXPECT_EQ(fields.hour, 17);
    EXPECT_EQ(fields.minute, 48);
    EXPECT_EQ(fields.second, 8);
    EXPECT_EQ(fields.host, "device");
    EXPECT_EQ(fields.facility, "user");
    EXPECT_EQ(fields.facilityCode, 1);
    EXPECT_EQ(fields.severity, 3);
    EXPECT_EQ(fields.tag, "app");
    EXPECT_EQ(fields.pid, 812U);
    EXPECT_EQ(fields.message, "some: text");
}

TEST(LineForm, MayLackHostTagAndProcess) {
    EXPECT_EQ(Parse("user.info app: text").host, "");
    EXPECT_EQ(Parse("user.info app: text").tag, "app");
    EXPECT_EQ(Parse(" user.info app: text").tag, "app");  // an empty host leaves its blank
    EXPECT_EQ(Parse("device syslog.info syslogd started: BusyBox v1.36").tag, "");
    EXPECT_EQ(Parse("device syslog.info syslogd started: BusyBox v1.36").message,
              "syslogd started: BusyBox v1.36");
    EXPECT_EQ(Parse("device syslog.info -- MARK --").message, "-- MARK --");
    EXPECT_FALSE(Parse("device user.info app: text").pid.has_value());
    EXPECT_TRUE(Parse("device user.info ").hasForm);
    EXPECT_TRUE(Parse("device user.info").hasForm);
}

TEST(LineForm, NumberIsFacilityAndSeverity) {
    const Fields fields = Parse("device <102> app: text");
    ASSERT_TRUE(fields.hasForm);
    EXPECT_EQ(fields.severity, 6);
    EXPECT_EQ(fields.facilityCode, 12);
    EXPECT_EQ(fields.facility, "");
}

TEST(LineForm, KnowsOldNamesOfSeverities) {
    EXPECT_EQ(Parse("device user.warn x: y").severity, 4);
    EXPECT_EQ(Parse("device user.panic x: y").severity, 0);
    EXPECT_EQ(Parse("device user.error x: y").severity, 3);
}

TEST(LineForm, TagHasNoBlankBracketOrColon) {
    for (const char* const body :
         {"two words: x", "a[b]: x", "a[12] x", "a[]: x", "a:x", ": x", "[12]: x",
          "a[12]:", "a[1234567890123456789]: x", "a", "", "a]: x"}) {
        const Fields fields = Parse(std::string("device user.info ") + body);
        ASSERT_TRUE(fields.hasForm) << body;
        EXPECT_EQ(fields.tag, "") << body;
        EXPECT_EQ(fields.message, body);
    }
}

TEST(LineForm, AnyOtherLineIsAMessage) {
    for (const char* const line :
         {"", "x", "Nov 21 17:48:08", "Nov 21 17:48:08 ", "Nov 21 17:48:08 device app: x",
          "nov 21 17:48:08 device user.err a: x", "Nov 32 17:48:08 device user.err a: x",
          "Feb 30 17:48:08 device user.err a: x", "Nov 21 24:48:08 device user.err a: x",
          "Nov 21 17:60:08 device user.err a: x", "Nov 21 17:48:60 device user.err a: x",
          "Nov 2x 17:48:08 device user.err a: x", "Nov 21 17:48:08 device user.loud a: x",
          "Nov 21 17:48:08 device nobody.err a: x", "Nov 21 17:48:08 device <> a: x",
          "Nov 21 17:48:08 device <1x> a: x", "Nov 00 17:48:08 device user.err a: x",
          "ovN 21 17:48:08 device user.err a: x", "Nov 21 17:48:08 a b user.err a: x"}) {
        const Fields fields = ParseLine(line);
        EXPECT_FALSE(fields.hasForm) << line;
        EXPECT_EQ(fields.message, line);
        EXPECT_EQ(fields.host, "");
    }
}

TEST(Severity, HasNamesAndNumbers) {
    EXPECT_EQ(Reader::ParseSeverity("warning"), 4);
    EXPECT_EQ(Reader::ParseSeverity("warn"), 4);
    EXPECT_EQ(Reader::ParseSeverity("7"), 7);
    EXPECT_EQ(Reader::ParseSeverity("8"), std::nullopt);
    EXPECT_EQ(Reader::ParseSeverity("loud"), std::nullopt);
    EXPECT_STREQ(Reader::SeverityName(4), "warning");
}

class Year : public testing::Test {
protected:
    void SetUp() override {
        setenv("TZ", "UTC", 1);
        tzset();
    }
    // The year of a line of this day, in a file that changed at that time.
    static int YearOf(int month, int day, const Reader::Date& changed) {
        Fields fields;
        fields.month = month;
        fields.day = day;
        return Reader::ToDate(Reader::YearGuess(Reader::ToCivil(changed)).TimeOf(fields)).year;
    }
};

TEST_F(Year, IsTheLatestUpToADayAfterTheFile) {
    EXPECT_EQ(YearOf(11, 21, {2026, 11, 21, 17, 48, 8}), 2026);
    EXPECT_EQ(YearOf(11, 22, {2026, 11, 21, 0, 0, 0}), 2026);     // a day later, exactly
    EXPECT_EQ(YearOf(11, 22, {2026, 11, 20, 23, 59, 59}), 2025);  // and a second more
    EXPECT_EQ(YearOf(12, 31, {2026, 1, 1, 0, 0, 0}), 2025);
    EXPECT_EQ(YearOf(1, 1, {2025, 12, 31, 12, 0, 0}), 2026);
}

TEST_F(Year, OfALeapDayIsALeapYear) {
    EXPECT_EQ(YearOf(2, 29, {2026, 11, 21, 0, 0, 0}), 2024);
    EXPECT_EQ(YearOf(2, 29, {2024, 2, 28, 0, 0, 0}), 2024);
    EXPECT_EQ(YearOf(2, 29, {2024, 2, 27, 23, 59, 59}), 2020);
    EXPECT_EQ(YearOf(2, 29, {2103, 1, 1, 0, 0, 0}), 2096);  // 2100 has none
}

TEST(Civil, IsTheCalendar) {
    for (std::int64_t day = -200000; day < 200000; day += 37) {
        EXPECT_EQ(Reader::ToCivil(Reader::ToDate(day * 86400 + 12345)), day * 86400 + 12345);
    }
}

}  // namespace
