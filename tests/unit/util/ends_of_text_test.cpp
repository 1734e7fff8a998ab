// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Trimming and testing the two ends of a text.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "util/util.h"

using namespace std::string_literals;

namespace {

std::string Trimmed(void (*trim)(std::string&, char), std::string text, char c) {
    trim(text, c);
    return text;
}

TEST(TrimTest, RemovesOneCharacterFromTheEnds) {
    const std::tuple<std::string, char, std::string, std::string, std::string> cases[] = {
        {"xxaxx", 'x', "axx", "xxa", "a"},
        {"xaxbx", 'x', "axbx", "xaxb", "axb"},
        {"xa", 'x', "a", "xa", "a"},
        {"ax", 'x', "ax", "a", "a"},
        {"abc", 'x', "abc", "abc", "abc"},
        {"xxx", 'x', "", "", ""},
        {"x", 'x', "", "", ""},
        {"", 'x', "", "", ""},
        {"XaX", 'x', "XaX", "XaX", "XaX"},
        {" \ta\t ", ' ', "\ta\t ", " \ta\t", "\ta\t"},
        {"\0a\0"s, '\0', "a\0"s, "\0a"s, "a"},
        {"\xffz\xff", '\xff', "z\xff", "\xffz", "z"},
    };
    for (const auto& [text, c, fromStart, fromEnd, both] : cases) {
        SCOPED_TRACE(testing::PrintToString(text));
        EXPECT_EQ(Trimmed(Util::TrimFromStart, text, c), fromStart);
        EXPECT_EQ(Trimmed(Util::TrimFromEnd, text, c), fromEnd);
        EXPECT_EQ(Trimmed(Util::Trim, text, c), both);
    }
}

TEST(BeginsAndEndsWithTest, ACharacterIsTheFirstOrTheLast) {
    const std::tuple<std::string, char, bool, bool> cases[] = {
        {"ab", 'a', true, false},    {"ab", 'b', false, true},     {"aba", 'a', true, true},
        {"aba", 'b', false, false},  {"a", 'a', true, true},       {"A", 'a', false, false},
        {"", 'a', false, false},     {"", '\0', false, false},     {"\0a"s, '\0', true, false},
        {"a\0"s, '\0', false, true}, {"\xff", '\xff', true, true},
    };
    for (const auto& [text, c, begins, ends] : cases) {
        SCOPED_TRACE(testing::PrintToString(text));
        EXPECT_EQ(Util::BeginsWith(text, c), begins);
        EXPECT_EQ(Util::EndsWith(text, c), ends);
    }
}

TEST(BeginsAndEndsWithTest, AStringIsComparedByteForByte) {
    const std::tuple<std::string, std::string, bool, bool> cases[] = {
        {"messages.txt", "messages", true, false},
        {"messages.txt", ".txt", false, true},
        {"messages.txt", "messages.txt", true, true},
        {"abcab", "ab", true, true},
        {"messages.txt", "sages", false, false},
        {"messages.txt", "Messages", false, false},
        {"messages.txt", ".TXT", false, false},
        {"ab", "xab", false, false},
        {"ab", "abx", false, false},
        {"a", "aa", false, false},
        {"", "a", false, false},
        {"a", "", true, true},
        {"", "", true, true},
        {"\0a\0"s, "\0"s, true, true},
        {"\0a"s, "\0b"s, false, false},
    };
    for (const auto& [text, part, begins, ends] : cases) {
        SCOPED_TRACE(testing::PrintToString(text) + ", " + testing::PrintToString(part));
        EXPECT_EQ(Util::BeginsWith(text, part), begins);
        EXPECT_EQ(Util::EndsWith(text, part), ends);
    }
}

}  // namespace
