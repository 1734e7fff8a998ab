// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>
#include <utility>

#include "util/util.h"

namespace {

// Date and time of a clock that is `offset` seconds ahead of UTC, read without any zone.
std::string Expected(std::time_t offset) {
    const std::time_t shifted = std::time(nullptr) + offset;
    std::tm utc{};
    (void)gmtime_r(&shifted, &utc);
    char text[32];
    (void)std::strftime(text, sizeof text, "%m/%d/%y %H:%M:%S", &utc);
    return text;
}

// Zones a day apart: date and time cannot be right by chance, and each change of TZ counts at once.
TEST(SystemTimeTest, IsTheLocalDateAndTimeOfNow) {
    const std::pair<const char*, std::time_t> zones[] = {
        {"UTC0", 0}, {"East-24", 86400}, {"West24", -86400}, {"Between-05:45", 20700}};
    for (const auto& [zone, offset] : zones) {
        (void)setenv("TZ", zone, 1);
        std::string expected;
        std::string actual;
        do {  // Once more if the clock ticked in between.
            expected = Expected(offset);
            actual = Util::GetSystemDate() + ' ' + Util::GetSystemTime();
        } while (Expected(offset) != expected);
        EXPECT_EQ(actual, expected) << zone;
    }
    (void)unsetenv("TZ");
}

}  // namespace
