// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Which lines an expression matches, in a bounded time.
#include "reader/expression.h"

#include <gtest/gtest.h>
#include <regex.h>

#include <string>

namespace {

using Reader::Expression;
using Reader::Matcher;
using Reader::Pattern;

Pattern Compile(const std::string& pattern, bool ignoresCase = false, bool isFixed = false) {
    Pattern result;
    std::string error;
    EXPECT_FALSE(result.Compile({{pattern}, isFixed, ignoresCase}, error))
        << pattern << ": " << error;
    return result;
}

bool Matches(const std::string& pattern, const std::string& line, bool ignoresCase = false) {
    return Matcher(Compile(pattern, ignoresCase)).Matches(line);
}

std::string ErrorOf(const std::string& pattern) {
    Pattern result;
    std::string error;
    EXPECT_TRUE(result.Compile({{pattern}, false, false}, error)) << pattern;
    return error;
}

TEST(Expression, MatchesWhatTheCLibraryMatches) {
    const char* const patterns[] = {
        "a",      "ab",      "a|b",           "(a|b)c", "a*",           "a+b", "a?b",     "a{2}",
        "a{2,}",  "a{1,2}b", "[ab]c",         "[^ab]c", "[a-c]d",       "^a",  "b$",      "^$",
        "^ab?c$", "(ab)+",   "(a|ab)(c|bcd)", "a.c",    "[[:digit:]]+", "x*",  "(^a|b$)", "a||b",
        "[]a]",   "[^]a]",   "\\.",           "a\\|b",  "((a)(b))*c",   "[a-]"};
    const char* const lines[] = {"",     "a",  "b",  "ab",   "abc",  "abcd", "ba", "aab",
                                 "aaab", "bc", "cc", "x1",   "12",   "ad",   "dd", ".",
                                 "a|b",  "]",  "-",  "abab", "acbd", "xa",   "ac", "aXc"};
    for (const char* const pattern : patterns) {
        regex_t expected;
        ASSERT_EQ(regcomp(&expected, pattern, REG_EXTENDED | REG_NOSUB), 0) << pattern;
        for (const char* const line : lines) {
            EXPECT_EQ(Matches(pattern, line), regexec(&expected, line, 0, nullptr, 0) == 0)
                << pattern << " on '" << line << "'";
        }
        regfree(&expected);
    }
}

TEST(Expression, KnowsTheWordsOfGrep) {
    EXPECT_TRUE(Matches("\\bab\\b", "x ab y"));
    EXPECT_FALSE(Matches("\\bab\\b", "xab y"));
    EXPECT_TRUE(Matches("\\<ab\\>", "ab"));
    EXPECT_FALSE(Matches("ab\\B", "ab"));
    EXPECT_TRUE(Matches("^\\w+\\s\\W$", "ab1_ -"));
    EXPECT_TRUE(Matches("\\d{3}", "a123"));
}

TEST(Expression, WorksOnBytes) {
    EXPECT_TRUE(Matches("a.b", std::string("a\0b", 3)));
    EXPECT_TRUE(Matches("^..$", "\xC3\xA4"));
    EXPECT_TRUE(Matches("[\xE4]", "\xE4"));
    EXPECT_FALSE(Matches("[[:alpha:]]", "\xE4"));
}

TEST(Expression, IgnoresTheCaseOfAsciiLetters) {
    EXPECT_TRUE(Matches("ErRor [a-c]", "eRROR B", true));
    EXPECT_FALSE(Matches("error", "ERROR"));
    EXPECT_FALSE(Matches("\xE4", "\xC4", true));
}

TEST(Expression, SaysWhatIsWrong) {
    EXPECT_EQ(ErrorOf("("), "unmatched (");
    EXPECT_EQ(ErrorOf(")"), "unmatched )");
    EXPECT_EQ(ErrorOf("a\\"), "trailing backslash");
    EXPECT_EQ(ErrorOf("(a)\\1"), "back-references are not supported");
    EXPECT_EQ(ErrorOf("[b-a]"), "invalid range end");
    EXPECT_EQ(ErrorOf("[[:foo:]]"), "invalid character class name");
    EXPECT_NE(ErrorOf("["), "");
    EXPECT_NE(ErrorOf("a{2,1}"), "");
    EXPECT_NE(ErrorOf("a{99999}"), "");
    EXPECT_EQ(ErrorOf("((a{300}){300}){300}"), "the expression is too large");
    EXPECT_NE(ErrorOf(std::string(100000, '(')), "");
    EXPECT_NE(ErrorOf("a" + std::string(100000, '*')), "");
}

TEST(Expression, TakesTextAsItIsWhenFixed) {
    Matcher matcher(Compile("a.b*", false, true));
    EXPECT_TRUE(matcher.Matches("xa.b*y"));
    EXPECT_FALSE(matcher.Matches("aXbb"));
    EXPECT_TRUE(Matcher(Compile("x\ny", false, true)).Matches("only y"));
}

TEST(Expression, FindsLinesInABlock) {
    for (const char* const pattern : {"needle", "ne{2}dle", "(needle|pin)$", "[n]eedle", "e{2}d"}) {
        Matcher matcher(Compile(pattern));
        const std::string text = "hay\n\nneedle\nhay needle\nhay\n";
        matcher.SetText(text);
        EXPECT_EQ(matcher.FindLine(0), 5U) << pattern;
        EXPECT_EQ(matcher.FindLine(12), 12U) << pattern;
        EXPECT_EQ(matcher.FindLine(23), std::string::npos) << pattern;
        matcher.SetText("needle\n");
        EXPECT_EQ(matcher.FindLine(0), 0U) << pattern;
    }
}

TEST(Expression, FindsTheLeftmostLongestMatch) {
    Matcher matcher(Compile("a+|ab"));
    std::size_t offset = 0;
    std::size_t length = 0;
    ASSERT_TRUE(matcher.Find("xabaaa", 0, offset, length));
    EXPECT_EQ(offset, 1U);
    EXPECT_EQ(length, 2U);
    ASSERT_TRUE(matcher.Find("xabaaa", 3, offset, length));
    EXPECT_EQ(length, 3U);
    EXPECT_FALSE(matcher.Find("xabaaa", 6, offset, length));
}

// Backtracking would take longer than the universe has existed.
TEST(Expression, IsLinearInTheText) {
    EXPECT_FALSE(Matches("(a*)*b", std::string(100000, 'a')));
    EXPECT_FALSE(Matches("(x+x+)+y", std::string(100000, 'x')));
}

TEST(Expression, OfNothingManyTimesIsCompiledAtOnce) {
    EXPECT_TRUE(Matches("^(((){32767}){32767}){32767}$", ""));
    EXPECT_TRUE(Matches("^((a{0}|b{0}){3}c){2}$", "cc"));
}

// A text on which almost no state occurs twice.
TEST(Expression, GivesUpWhereItWouldTakeTooMuchTime) {
    Matcher matcher(Compile("a.{2000}b{2}$"));
    std::string text;
    for (unsigned i = 0, random = 1; i < 200000; ++i) {
        random = random * 1103515245 + 12345;
        text += (random >> 16 & 1U) != 0 ? 'a' : 'b';
    }
    EXPECT_THROW(for (int i = 0; i < 100; ++i)(void) matcher.Matches(text + "c"),
                 Reader::TooComplex);
}

}  // namespace
