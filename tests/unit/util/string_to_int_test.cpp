// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include <gtest/gtest.h>

#include <cerrno>
#include <limits>
#include <string>
#include <tuple>

#include "tests/support/files.h"
#include "util/util.h"

using namespace std::string_literals;

namespace {

constexpr int Min = std::numeric_limits<int>::min();
constexpr int Max = std::numeric_limits<int>::max();
constexpr unsigned long Untouched = 77;

void ExpectNumber(const std::string& text, int minimum, int maximum, int base, int expected,
                  unsigned long expectedConsumed) {
    SCOPED_TRACE(testing::PrintToString(text) + " in base " + std::to_string(base));
    int value = 55;
    unsigned long consumed = Untouched;
    EXPECT_SUCCESS(Util::StringToInt(text, value, minimum, maximum, &consumed, base));
    EXPECT_EQ(value, expected);
    EXPECT_EQ(consumed, expectedConsumed);
}

void ExpectFailure(const std::string& text, int minimum, int maximum, int base,
                   unsigned long expectedConsumed) {
    SCOPED_TRACE(testing::PrintToString(text) + " in base " + std::to_string(base));
    int value = 55;
    unsigned long consumed = Untouched;
    EXPECT_FAILURE(Util::StringToInt(text, value, minimum, maximum, &consumed, base));
    EXPECT_EQ(value, 0);
    EXPECT_EQ(consumed, expectedConsumed);
}

TEST(StringToIntTest, ANumberMayBeAsLowOrHighAsItsBounds) {
    ExpectNumber("0", 0, 100, 10, 0, 1);
    ExpectNumber("100", 0, 100, 10, 100, 3);
    ExpectNumber("7", 7, 7, 10, 7, 1);
    ExpectNumber("-10", -10, 10, 10, -10, 3);
    ExpectNumber("10", -10, 10, 10, 10, 2);
    ExpectNumber("2147483647", Min, Max, 10, Max, 10);
    ExpectNumber("-2147483648", Min, Max, 10, Min, 11);
}

// Blanks around it are dropped and do not count; other white space before it counts.
TEST(StringToIntTest, ReadsTheNumberAtTheFront) {
    const std::tuple<std::string, int, unsigned long> cases[] = {
        {"-5", -5, 2},    {"+7", 7, 2},          {"007", 7, 3},       {"  42  ", 42, 2},
        {"   42", 42, 2}, {"42   ", 42, 2},      {"\t42", 42, 3},     {" \t 42 ", 42, 4},
        {"\n42", 42, 3},  {"\v\f\r42\t", 42, 5}, {"12abc", 12, 2},    {"12 34", 12, 2},
        {"12.5", 12, 2},  {"1-2", 1, 1},         {"12\0.34"s, 12, 2}, {"0x1F", 0, 1},
    };
    for (const auto& [text, value, consumed] : cases) {
        ExpectNumber(text, -100, 100, 10, value, consumed);
    }
}

TEST(StringToIntTest, ReadsTheNumberInItsBase) {
    const std::tuple<const char*, int, int, unsigned long> cases[] = {
        {"1F", 16, 31, 2},  {"0x1f", 16, 31, 4}, {"-0X1F", 16, -31, 5}, {"0x", 16, 0, 1},
        {"0x1F", 0, 31, 4}, {"017", 0, 15, 3},   {"19", 0, 19, 2},      {"178", 8, 15, 2},
        {"1012", 2, 5, 3},  {"z", 36, 35, 1}};
    for (const auto& [text, base, value, consumed] : cases) {
        ExpectNumber(text, -100, 100, base, value, consumed);
    }
}

TEST(StringToIntTest, ATextWithoutANumberIsAFailure) {
    for (const std::string& text :
         {""s, " "s, "    "s, "\t"s, "abc"s, "a1"s, ".5"s, "\0"s + "5", "\xff"s}) {
        ExpectFailure(text, 0, 100, 10, Untouched);
    }
    for (const char* text : {"-", "+", "--5", "+-5", "- 5"}) {
        ExpectFailure(text, -10, 10, 10, Untouched);
    }
    ExpectFailure("g", 0, 100, 16, Untouched);
    ExpectFailure("9", 0, 100, 8, Untouched);
    ExpectFailure("2", 0, 100, 2, Untouched);
}

TEST(StringToIntTest, ABaseThatDoesNotExistIsAFailure) {
    for (const int base : {1, 37, -10}) ExpectFailure("5", 0, 100, base, Untouched);
}

TEST(StringToIntTest, MoreThanALongHoldsIsAFailure) {
    for (const char* text : {"9223372036854775808", "-9223372036854775809", "99999999999999999999",
                             "-99999999999999999999"}) {
        ExpectFailure(text, Min, Max, 10, Untouched);
    }
}

TEST(StringToIntTest, ANumberOutOfBoundsIsAFailureWithTheNumberOfCharacters) {
    ExpectFailure("101", 0, 100, 10, 3);
    ExpectFailure("  101  ", 0, 100, 10, 3);
    ExpectFailure("101abc", 0, 100, 10, 3);
    ExpectFailure("-1", 0, 100, 10, 2);
    ExpectFailure("-11", -10, 10, 10, 3);
    ExpectFailure("11", -10, 10, 10, 2);
    ExpectFailure("6", 7, 7, 10, 1);
    ExpectFailure("8", 7, 7, 10, 1);
    ExpectFailure("0", 1, 999, 10, 1);
    ExpectFailure("5", 10, 0, 10, 1);
    ExpectFailure("2147483648", Min, Max, 10, 10);
    ExpectFailure("-2147483649", Min, Max, 10, 11);
    ExpectFailure("4294967297", 0, 100, 10, 10);
    ExpectFailure("-4294967295", 0, 100, 10, 11);
    ExpectFailure("9223372036854775807", Min, Max, 10, 19);
    ExpectFailure("-9223372036854775808", Min, Max, 10, 20);
}

TEST(StringToIntTest, LeavesErrnoAsItWas) {
    for (const int error : {0, EPERM, ERANGE}) {
        int value = 0;
        errno = error;
        EXPECT_SUCCESS(Util::StringToInt("42", value, 0, 100, nullptr, 10));
        EXPECT_EQ(errno, error);
        EXPECT_FAILURE(Util::StringToInt("99999999999999999999", value, 0, 100, nullptr, 10));
        EXPECT_EQ(errno, error);
    }
}

TEST(StringToIntTest, TheNumberOfCharactersIsOptional) {
    int value = 55;
    EXPECT_SUCCESS(Util::StringToInt("42", value, 0, 100, nullptr, 10));
    EXPECT_EQ(value, 42);
    EXPECT_FAILURE(Util::StringToInt("101", value, 0, 100, nullptr, 10));
    EXPECT_EQ(value, 0);
}

}  // namespace
