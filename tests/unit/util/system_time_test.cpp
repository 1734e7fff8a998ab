// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>

#include "util/util.h"

namespace {

struct DateAndTime {
    std::string date;
    std::string time;

    bool operator==(const DateAndTime&) const = default;
};

// A clock that is `offset` seconds ahead of UTC, read without any zone.
DateAndTime Expected(std::time_t offset) {
    const std::time_t shifted = std::time(nullptr) + offset;
    std::tm utc{};
    (void)gmtime_r(&shifted, &utc);
    char date[32];
    char time[32];
    (void)std::strftime(date, sizeof date, "%m/%d/%y", &utc);
    (void)std::strftime(time, sizeof time, "%H:%M:%S", &utc);
    return {date, time};
}

class SystemTimeTest : public testing::Test {
protected:
    ~SystemTimeTest() override { (void)unsetenv("TZ"); }

    static void ExpectInZone(const char* zone, std::time_t offset) {
        SCOPED_TRACE(zone);
        (void)setenv("TZ", zone, 1);
        DateAndTime expected;
        DateAndTime actual;
        do {  // Once more if the clock ticked in between.
            expected = Expected(offset);
            actual = {Util::GetSystemDate(), Util::GetSystemTime()};
        } while (Expected(offset) != expected);
        EXPECT_EQ(actual.date, expected.date);
        EXPECT_EQ(actual.time, expected.time);
    }
};

// Zones a day apart: date and time cannot be right by chance, and each change of TZ counts at once.
TEST_F(SystemTimeTest, IsTheLocalDateAndTimeOfNow) {
    ExpectInZone("UTC0", 0);
    ExpectInZone("East-24", 86400);
    ExpectInZone("West24", -86400);
    ExpectInZone("Between-05:45", 5 * 3600 + 45 * 60);
}

}  // namespace
