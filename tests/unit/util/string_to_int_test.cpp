// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include <gtest/gtest.h>

#include <cerrno>
#include <limits>
#include <string>

#include "tests/support/files.h"
#include "util/util.h"

using namespace std::string_literals;

namespace {

constexpr int Min = std::numeric_limits<int>::min();
constexpr int Max = std::numeric_limits<int>::max();
constexpr unsigned long Untouched = 77;

struct Number {
    std::string text;
    int minimum;
    int maximum;
    int base;
    int value;
    unsigned long consumed;
};

struct NoNumber {
    std::string text;
    int minimum;
    int maximum;
    int base;
    unsigned long consumed;
};

TEST(StringToIntTest, TakesTheNumberAtTheFront) {
    const Number cases[] = {
        {"0", 0, 100, 10, 0, 1},
        {"100", 0, 100, 10, 100, 3},
        {"7", 7, 7, 10, 7, 1},
        {"-10", -10, 10, 10, -10, 3},
        {"-5", -10, 10, 10, -5, 2},
        {"10", -10, 10, 10, 10, 2},
        {"+7", 0, 100, 10, 7, 2},
        {"007", 0, 999, 10, 7, 3},
        {"2147483647", Min, Max, 10, Max, 10},
        {"-2147483648", Min, Max, 10, Min, 11},
        // Blanks around it go and do not count; other white space before it counts.
        {"  42  ", 0, 100, 10, 42, 2},
        {"   42", 0, 100, 10, 42, 2},
        {"42   ", 0, 100, 10, 42, 2},
        {"\t42", 0, 100, 10, 42, 3},
        {" \t 42 ", 0, 100, 10, 42, 4},
        {"\n\v\f\r42\t", 0, 100, 10, 42, 6},
        // What follows it is ignored.
        {"12abc", 0, 100, 10, 12, 2},
        {"12 34", 0, 100, 10, 12, 2},
        {"12.5", 0, 100, 10, 12, 2},
        {"1-2", 0, 100, 10, 1, 1},
        {"12\0"s + "34", 0, 100, 10, 12, 2},
        {"0x1F", 0, 100, 10, 0, 1},
        // Other bases.
        {"1F", 0, 100, 16, 31, 2},
        {"0x1f", 0, 100, 16, 31, 4},
        {"-0X1F", -100, 100, 16, -31, 5},
        {"0x", 0, 100, 16, 0, 1},
        {"0x1F", 0, 100, 0, 31, 4},
        {"017", 0, 100, 0, 15, 3},
        {"19", 0, 100, 0, 19, 2},
        {"178", 0, 100, 8, 15, 2},
        {"1012", 0, 100, 2, 5, 3},
        {"z", 0, 100, 36, 35, 1},
    };
    for (const Number& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.text) + " in base " + std::to_string(c.base));
        int value = 55;
        unsigned long consumed = Untouched;
        EXPECT_SUCCESS(Util::StringToInt(c.text, value, c.minimum, c.maximum, &consumed, c.base));
        EXPECT_EQ(value, c.value);
        EXPECT_EQ(consumed, c.consumed);
    }
}

TEST(StringToIntTest, FailsWithValueZero) {
    const NoNumber cases[] = {
        // Nothing to convert: consumed stays.
        {"", 0, 100, 10, Untouched},
        {" ", 0, 100, 10, Untouched},
        {"    ", 0, 100, 10, Untouched},
        {"\t", 0, 100, 10, Untouched},
        {"abc", 0, 100, 10, Untouched},
        {"a1", 0, 100, 10, Untouched},
        {".5", 0, 100, 10, Untouched},
        {"-", -10, 10, 10, Untouched},
        {"+", -10, 10, 10, Untouched},
        {"--5", -10, 10, 10, Untouched},
        {"+-5", -10, 10, 10, Untouched},
        {"- 5", -10, 10, 10, Untouched},
        {"\0"s + "5", 0, 100, 10, Untouched},
        {"\xff", 0, 100, 10, Untouched},
        {"g", 0, 100, 16, Untouched},
        {"9", 0, 100, 8, Untouched},
        {"2", 0, 100, 2, Untouched},
        // No base of a number.
        {"5", 0, 100, 1, Untouched},
        {"5", 0, 100, 37, Untouched},
        {"5", 0, 100, -10, Untouched},
        // More than a long holds: consumed stays.
        {"9223372036854775808", Min, Max, 10, Untouched},
        {"-9223372036854775809", Min, Max, 10, Untouched},
        {"99999999999999999999", Min, Max, 10, Untouched},
        {"-99999999999999999999", Min, Max, 10, Untouched},
        // Out of bounds: consumed is told.
        {"101", 0, 100, 10, 3},
        {"  101  ", 0, 100, 10, 3},
        {"101abc", 0, 100, 10, 3},
        {"-1", 0, 100, 10, 2},
        {"-11", -10, 10, 10, 3},
        {"11", -10, 10, 10, 2},
        {"6", 7, 7, 10, 1},
        {"8", 7, 7, 10, 1},
        {"0", 1, 999, 10, 1},
        {"5", 10, 0, 10, 1},
        {"2147483648", Min, Max, 10, 10},
        {"-2147483649", Min, Max, 10, 11},
        {"4294967297", 0, 100, 10, 10},
        {"-4294967295", 0, 100, 10, 11},
        {"9223372036854775807", Min, Max, 10, 19},
        {"-9223372036854775808", Min, Max, 10, 20},
    };
    for (const NoNumber& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.text) + " in base " + std::to_string(c.base));
        int value = 55;
        unsigned long consumed = Untouched;
        EXPECT_FAILURE(Util::StringToInt(c.text, value, c.minimum, c.maximum, &consumed, c.base));
        EXPECT_EQ(value, 0);
        EXPECT_EQ(consumed, c.consumed);
    }
}

TEST(StringToIntTest, ErrnoIsTheCallers) {
    for (const int error : {0, EPERM, ERANGE}) {
        int value = 0;
        errno = error;
        EXPECT_SUCCESS(Util::StringToInt("42", value, 0, 100, nullptr, 10));
        EXPECT_EQ(errno, error);
        EXPECT_FAILURE(Util::StringToInt("99999999999999999999", value, 0, 100, nullptr, 10));
        EXPECT_EQ(errno, error);
    }
}

TEST(StringToIntTest, NeedNotTellWhatItConsumed) {
    int value = 55;
    EXPECT_SUCCESS(Util::StringToInt("42", value, 0, 100, nullptr, 10));
    EXPECT_EQ(value, 42);
    EXPECT_FAILURE(Util::StringToInt("101", value, 0, 100, nullptr, 10));
    EXPECT_EQ(value, 0);
}

TEST(StringToIntTest, LeavesTheCallersTextAlone) {
    const std::string text = "  42  ";
    int value = 0;
    EXPECT_SUCCESS(Util::StringToInt(text, value, 0, 100, nullptr, 10));
    EXPECT_EQ(text, "  42  ");
}

}  // namespace
