// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// What a browser, or somebody who is none, may write behind the "?".
#include "logpage/parameters.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "logpage/answer.h"

namespace {

using Page::Parameters;
using testing::ElementsAre;
using testing::HasSubstr;

// The text of the error that an operation throws; empty if it throws none.
template <typename Operation>
std::string ErrorOf(Operation operation) {
    try {
        operation();
    } catch (const Page::Error& error) {
        EXPECT_EQ(error.status, 400);
        return error.text;
    }
    return "";
}

std::string ErrorOfQuery(const std::string& query) {
    return ErrorOf([&] { Parameters parameters(query); });
}

TEST(Parameters, AreDecoded) {
    Parameters parameters("grep=a%20b+c&tag=&grep=%ff%26&&boot=3..5");
    EXPECT_THAT(parameters.Texts("grep"), ElementsAre("a b c", "\xff&"));
    EXPECT_EQ(parameters.Text("tag"), "");
    EXPECT_EQ(parameters.Text("boot"), "3..5");
    EXPECT_EQ(parameters.Text("since"), std::nullopt);
    parameters.RefuseOthers();
}

TEST(Parameters, MayBeNone) {
    Parameters parameters("");
    EXPECT_FALSE(parameters.Flag("reverse"));
    parameters.RefuseOthers();
}

TEST(Parameters, NamesAreDecodedToo) {
    Parameters parameters("%67rep=x");
    EXPECT_EQ(parameters.Text("grep"), "x");
}

TEST(Parameters, BadEscapesAreRefused) {
    for (const char* query : {"grep=%", "grep=%4", "grep=%zz", "grep=%4g", "%=1", "grep=a%"}) {
        EXPECT_THAT(ErrorOfQuery(query), HasSubstr("escape")) << query;
    }
    EXPECT_EQ(ErrorOfQuery("grep=a%4x"), "grep: '%4x' does not begin with an escape");
    EXPECT_EQ(ErrorOfQuery("grep=a%00b"), "grep: '%00' is not possible");
}

TEST(Parameters, ALongAddressIsRefused) {
    EXPECT_EQ(ErrorOfQuery("grep=" + std::string(8192 - 5, 'x')), "");
    EXPECT_EQ(ErrorOfQuery("grep=" + std::string(8193 - 5, 'x')), "the address is too long");
}

TEST(Parameters, AreGivenOnce) {
    Parameters parameters("boot=1&boot=2");
    EXPECT_EQ(ErrorOf([&] { (void)parameters.Text("boot"); }), "boot: '2' is a second value");
}

TEST(Parameters, UnknownOnesAreNamed) {
    Parameters parameters("lines=1&colour=red");
    EXPECT_EQ(parameters.Number("lines", 10), 1);
    EXPECT_EQ(ErrorOf([&] { parameters.RefuseOthers(); }), "colour: unknown parameter");
}

TEST(Parameters, FlagsAreYesOrNo) {
    for (const char* query : {"reverse", "reverse=", "reverse=1", "reverse=true", "reverse=yes"}) {
        EXPECT_TRUE(Parameters(query).Flag("reverse")) << query;
    }
    for (const char* query : {"", "reverse=0", "reverse=false", "reverse=no"}) {
        EXPECT_FALSE(Parameters(query).Flag("reverse")) << query;
    }
    for (const char* query : {"reverse=2", "reverse=TRUE", "reverse=+", "reverse=on"}) {
        EXPECT_THAT(ErrorOf([&] { (void)Parameters(query).Flag("reverse"); }),
                    HasSubstr("reverse: "))
            << query;
    }
}

TEST(Parameters, NumbersAreDecimalAndLimited) {
    EXPECT_EQ(Parameters("lines=0").Number("lines", 10000), 0);
    EXPECT_EQ(Parameters("lines=10000").Number("lines", 10000), 10000);
    EXPECT_EQ(Parameters("").Number("lines", 10000), std::nullopt);
    for (const char* value : {"10001", "-1", "%2B1", "", "1e3", "0x10", "1 ", " 1", "ten",
                              "18446744073709551616", "99999999999999999999999"}) {
        Parameters parameters("lines=" + std::string(value));
        EXPECT_THAT(ErrorOf([&] { (void)parameters.Number("lines", 10000); }), HasSubstr("lines: "))
            << value;
    }
}

TEST(Parameters, LongValuesAreQuotedInPart) {
    Parameters parameters("lines=" + std::string(1000, 'x'));
    EXPECT_LT(ErrorOf([&] { (void)parameters.Number("lines", 10); }).size(), 200);
}

}  // namespace
