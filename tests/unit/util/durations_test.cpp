// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include <gtest/gtest.h>

#include <climits>
#include <tuple>
#include <utility>

#include "util/util.h"

namespace {

TEST(FormatSecsTest, DaysShowFromTheFirstOn) {
    const std::pair<long, const char*> belowADay[] = {
        {0, "00:00:00"},    {1, "00:00:01"},    {59, "00:00:59"},   {60, "00:01:00"},
        {3599, "00:59:59"}, {3600, "01:00:00"}, {3723, "01:02:03"}, {86399, "23:59:59"}};
    for (const auto& [seconds, text] : belowADay) EXPECT_EQ(Util::FormatSecs(seconds), text);
    const std::pair<long, const char*> fromADayOn[] = {
        {86400, "1 day, 00:00:00"},   {86405, "1 day, 00:00:05"},
        {172799, "1 day, 23:59:59"},  {172800, "2 days, 00:00:00"},
        {296256, "3 days, 10:17:36"}, {864000000, "10000 days, 00:00:00"}};
    for (const auto& [seconds, text] : fromADayOn) EXPECT_EQ(Util::FormatSecs(seconds), text);
    EXPECT_EQ(Util::FormatSecs(LONG_MAX), "106751991167300 days, 15:30:07");
}

TEST(FormatSecsTest, MillisecondsAreTruncated) {
    const std::tuple<double, const char*, const char*> cases[] = {
        {0, "00:00:00", "00:00:00.000"},
        {0.0009, "00:00:00", "00:00:00.000"},
        {0.0625, "00:00:00", "00:00:00.062"},
        {0.5, "00:00:00", "00:00:00.500"},
        {0.9999, "00:00:00", "00:00:00.999"},
        {1, "00:00:01", "00:00:01.000"},
        {1.9996, "00:00:01", "00:00:01.999"},
        {3723.25, "01:02:03", "01:02:03.250"},
        {86399.9999, "23:59:59", "23:59:59.999"},
        {86400, "1 day, 00:00:00", "1 day, 00:00:00.000"},
        {86400.25, "1 day, 00:00:00", "1 day, 00:00:00.250"},
        {296256.75, "3 days, 10:17:36", "3 days, 10:17:36.750"},
    };
    for (const auto& [seconds, whole, withMs] : cases) {
        EXPECT_EQ(Util::FormatSecs(seconds, false), whole) << seconds;
        EXPECT_EQ(Util::FormatSecs(seconds, true), withMs) << seconds;
    }
    EXPECT_EQ(Util::FormatSecs(-0.75, false), "00:00:00");
}

TEST(FormatTimeDurTest, DaysHaveTwoDigitsOrMore) {
    const std::pair<unsigned int, const char*> cases[] = {
        {0, "00:00:00:00"},        {59, "00:00:00:59"},    {60, "00:00:01:00"},
        {3599, "00:00:59:59"},     {3600, "00:01:00:00"},  {86399, "00:23:59:59"},
        {86400, "01:00:00:00"},    {93784, "01:02:03:04"}, {8639999, "99:23:59:59"},
        {8640000, "100:00:00:00"},
    };
    for (const auto& [seconds, text] : cases) {
        EXPECT_EQ(Util::FormatTimeDurAsDdHhMmSs(seconds), text);
    }
    EXPECT_EQ(Util::FormatTimeDurAsDdHhMmSs(UINT_MAX), "49710:06:28:15");
}

}  // namespace
