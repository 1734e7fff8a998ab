// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Split and the two Slices, which differ in the empty fields that they keep.
#include <gmock/gmock.h>

#include <string>
#include <tuple>
#include <vector>

#include "tests/support/files.h"
#include "tests/support/memory.h"
#include "util/util.h"

using namespace std::string_literals;

namespace {

using Fields = std::vector<std::string>;

template <typename Delimiter>
using Cases = std::vector<std::tuple<std::string, Delimiter, Fields>>;

template <typename Delimiter>
void ExpectSlices(const Cases<Delimiter>& cases) {
    for (const auto& [text, delimiter, expected] : cases) {
        SCOPED_TRACE(testing::PrintToString(text));
        Fields fields{"of", "before"};
        EXPECT_SUCCESS(Util::Slice(fields, text, delimiter));
        EXPECT_EQ(fields, expected);
    }
}

TEST(SplitTest, DropsEveryEmptyField) {
    const Cases<char> cases = {
        {",a,,b,", ',', {"a", "b"}},
        {"a,b", ',', {"a", "b"}},
        {"a", ',', {"a"}},
        {"abc", ',', {"abc"}},
        {",a", ',', {"a"}},
        {"a,", ',', {"a"}},
        {",,,abc,,,de,,,", ',', {"abc", "de"}},
        {" a , b ", ',', {" a ", " b "}},
        {"a;b,c", ';', {"a", "b,c"}},
        {"a\0b\0"s, '\0', {"a", "b"}},
        {"a\0b,c"s, ',', {"a\0b"s, "c"}},
        {"a\xff\xfe"
         "b",
         '\xff',
         {"a",
          "\xfe"
          "b"}},
        {"", ',', {}},
        {",", ',', {}},
        {",,,", ',', {}},
        {"\0"s, '\0', {}},
    };
    for (const auto& [text, delimiter, expected] : cases) {
        SCOPED_TRACE(testing::PrintToString(text));
        Fields fields{"of", "before"};
        EXPECT_EQ(Util::Split(fields, text, delimiter), static_cast<int>(expected.size()));
        EXPECT_EQ(fields, expected);
    }
}

TEST(SliceByCharacterTest, KeepsEmptyFieldsButTheTrailingOne) {
    ExpectSlices<char>({
        {"a,b", ',', {"a", "b"}},
        {"a,,b", ',', {"a", "", "b"}},
        {"a,,b,", ',', {"a", "", "b"}},
        {",a", ',', {"", "a"}},
        {",a,,b,,", ',', {"", "a", "", "b", ""}},
        {"a,", ',', {"a"}},
        {"a", ',', {"a"}},
        {"abc", ',', {"abc"}},
        {",", ',', {""}},
        {",,", ',', {"", ""}},
        {"messages.007.1970-01-01.00:14:07.txt.xz",
         '.',
         {"messages", "007", "1970-01-01", "00:14:07", "txt", "xz"}},
        {"a\nb.c", '.', {"a\nb", "c"}},
        {"a\0b"s, '\0', {"a", "b"}},
        {"a\0b,c"s, ',', {"a\0b"s, "c"}},
        {"a\xff\xfe"
         "b",
         '\xff',
         {"a",
          "\xfe"
          "b"}},
        {"", ',', {}},
    });
}

TEST(SliceByStringTest, KeepsEmptyFieldsButTheTrailingOne) {
    ExpectSlices<std::string>({
        {"a--b", "--", {"a", "b"}},
        {"--a", "--", {"", "a"}},
        {"a----b", "--", {"a", "", "b"}},
        {"a--", "--", {"a"}},
        {"a----", "--", {"a", ""}},
        {"--", "--", {""}},
        {"----", "--", {"", ""}},
        {"---", "--", {"", "-"}},
        {"a---b", "--", {"a", "-b"}},
        {"a-b--c-", "--", {"a-b", "c-"}},
        {"a,,b,", ",", {"a", "", "b"}},
        {"a\0-b"s, "\0-"s, {"a", "b"}},
    });
}

TEST(SliceByStringTest, WithoutTheDelimiterATextIsItselfUnlessItIsShorterThanTheDelimiter) {
    ExpectSlices<std::string>({
        {"ab", ".", {"ab"}},
        {"ab", "--", {"ab"}},
        {"-a", "--", {"-a"}},
        {"abc", "--", {"abc"}},
        {"a", "--", {}},
        {"a", "..", {}},
        {"-", "--", {}},
        {"ab", "abc", {}},
        {"", "-", {}},
        {"", "--", {}},
        {"", "", {}},
    });
}

TEST(SliceByStringTest, AnEmptyDelimiterFailsAtOnce) {
    for (const char* text : {"a", "abc"}) {
        Fields fields{"of", "before"};
        EXPECT_FAILURE(Util::Slice(fields, text, ""s)) << text;
        EXPECT_THAT(fields, testing::Each("")) << text;
    }
}

TEST(SliceTest, FailsWithTheFieldsSoFarWhenMemoryRunsOut) {
    const std::string text = "a,b," + std::string(100000, 'x') + ",c";
    Fields byCharacter;
    Fields byString;
    bool byCharacterFailed = false;
    bool byStringFailed = false;
    {
        const ScarceMemory scarce(10000);
        byCharacterFailed = Util::Slice(byCharacter, text, ',');
        byStringFailed = Util::Slice(byString, text, ","s);
    }
    EXPECT_FAILURE(byCharacterFailed);
    EXPECT_EQ(byCharacter, (Fields{"a", "b"}));
    EXPECT_FAILURE(byStringFailed);
    EXPECT_EQ(byString, (Fields{"a", "b"}));
}

}  // namespace
