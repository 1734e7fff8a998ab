// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <tuple>
#include <utility>

#include "util/util.h"

namespace {

constexpr double Infinity = std::numeric_limits<double>::infinity();

TEST(FormatSiTest, EveryPrefixHasItsMagnitude) {
    const std::pair<double, const char*> cases[] = {
        {5e-12, "   5.000 fB"},  {5e-9, "   5.000 nB"},   {5e-6, "   5.000 uB"},
        {5e-3, "   5.000 mB"},   {5, "   5.000  B"},      {5e3, "   5.000 kB"},
        {5e6, "   5.000 MB"},    {5e9, "   5.000 GB"},    {5e12, "   5.000 TB"},
        {5e15, "   5.000 PB"},   {1500, "   1.500 kB"},   {12345, "  12.345 kB"},
        {123456, " 123.456 kB"}, {0.0625, "  62.500 mB"}, {1e-10, " 100.000 fB"},
    };
    for (const auto& [value, text] : cases) EXPECT_EQ(Util::FormatSi(value, "B"), text) << value;
}

TEST(FormatSiTest, NegativeValuesKeepTheirSign) {
    EXPECT_EQ(Util::FormatSi(-0.002, "s"), "  -2.000 ms");
    EXPECT_EQ(Util::FormatSi(-5e-12, "V"), "  -5.000 fV");
    EXPECT_EQ(Util::FormatSi(-1, "V"), "  -1.000  V");
    EXPECT_EQ(Util::FormatSi(-999999, "V"), "-999.999 kV");
}

TEST(FormatSiTest, TheUnitMayBeEmptyOrHoldAnything) {
    EXPECT_EQ(Util::FormatSi(1500, ""), "   1.500 k");
    EXPECT_EQ(Util::FormatSi(0, ""), "   0.000  ");
    EXPECT_EQ(Util::FormatSi(1e18, ""), "  1.000e+18 ");
    EXPECT_EQ(Util::FormatSi(5, "%s%n"), "   5.000  %s%n");
}

// The greatest value of each prefix, and what the next double above it reads. The divisors are not
// exact powers of ten, and these limits tell.
TEST(FormatSiTest, APrefixReachesTo999Point999TimesItsDivisor) {
    const std::tuple<double, const char*, const char*> cases[] = {
        {9.99999e-10, " 999.999 fB", "   1.000 nB"},
        {9.999990000000001e-07, " 999.999 nB", "   1.000 uB"},
        {0.0009999990000000001, " 999.999 uB", "   1.000 mB"},
        {0.9999990000000003, " 999.999 mB", "   1.000  B"},
        {999.999, " 999.999  B", "   1.000 kB"},
        {999999.0000000002, " 999.999 kB", "   1.000 MB"},
        {999999000.0000002, " 999.999 MB", "   1.000 GB"},
        {999999000000.0002, " 999.999 GB", "   1.000 TB"},
        {999999000000000.2, " 999.999 TB", "   1.000 PB"},
        {9.99999e17, " 999.999 PB", "  1.000e+18 B"},
    };
    for (const auto& [greatest, text, next] : cases) {
        EXPECT_EQ(Util::FormatSi(greatest, "B"), text) << greatest;
        EXPECT_EQ(Util::FormatSi(std::nextafter(greatest, Infinity), "B"), next) << greatest;
    }
}

// Just below half a thousandth by this divisor, and just half by the exact power of ten.
TEST(FormatSiTest, TheGreatestDivisorIsNotExactEither) {
    EXPECT_EQ(Util::FormatSi(1001500000000000, "B"), "   1.001 PB");
}

TEST(FormatSiTest, TheSmallestMagnitudesReadZero) {
    EXPECT_EQ(Util::FormatSi(1e-15, "V"), "   0.001 fV");
    EXPECT_EQ(Util::FormatSi(-1e-15, "V"), "  -0.001 fV");
    const double tooSmall = std::nextafter(1e-15, 0);
    for (const double value : {0.0, -0.0, tooSmall, -tooSmall, 5e-324}) {
        EXPECT_EQ(Util::FormatSi(value, "V"), "   0.000  V") << value;
    }
}

TEST(FormatSiTest, TheGreatestMagnitudesHaveAnExponentAndNoSign) {
    const std::pair<double, const char*> cases[] = {
        {1e18, "  1.000e+18 V"},     {-1e18, "  1.000e+18 V"},     {-1.5e100, " 1.500e+100 V"},
        {Infinity, "        inf V"}, {-Infinity, "        inf V"},
    };
    for (const auto& [value, text] : cases) EXPECT_EQ(Util::FormatSi(value, "V"), text) << value;
    EXPECT_EQ(Util::FormatSi(-9.99999e17, "V"), "-999.999 PV");
}

TEST(FormatNumWithCommasTest, GroupsOfThreeDigitsFromTheRight) {
    for (const std::string text :
         {"0", "9", "999", "1,000", "1,001", "999,999", "1,000,000", "1,020,034", "1,234,567",
          "999,999,999", "1,000,000,000", "4,294,967,295"}) {
        std::string digits = text;
        std::erase(digits, ',');
        const auto n = static_cast<unsigned int>(std::stoul(digits));
        EXPECT_EQ(Util::FormatNumWithCommas(n), text);
    }
}

}  // namespace
