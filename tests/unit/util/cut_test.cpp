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

TEST(CutByCharacterTest, SplitDropsEveryEmptyFieldAndSliceOnlyTheTrailingOne) {
    const std::tuple<std::string, char, Fields, Fields> cases[] = {
        {"a,b", ',', {"a", "b"}, {"a", "b"}},
        {"a,,b", ',', {"a", "b"}, {"a", "", "b"}},
        {"a,,b,", ',', {"a", "b"}, {"a", "", "b"}},
        {",a", ',', {"a"}, {"", "a"}},
        {",a,,b,", ',', {"a", "b"}, {"", "a", "", "b"}},
        {",a,,b,,", ',', {"a", "b"}, {"", "a", "", "b", ""}},
        {"a,", ',', {"a"}, {"a"}},
        {"a", ',', {"a"}, {"a"}},
        {"abc", ',', {"abc"}, {"abc"}},
        {",,,abc,,,de,,,", ',', {"abc", "de"}, {"", "", "", "abc", "", "", "de", "", ""}},
        {" a , b ", ',', {" a ", " b "}, {" a ", " b "}},
        {"a;b,c", ';', {"a", "b,c"}, {"a", "b,c"}},
        {"messages.007.1970-01-01.00:14:07.txt.xz",
         '.',
         {"messages", "007", "1970-01-01", "00:14:07", "txt", "xz"},
         {"messages", "007", "1970-01-01", "00:14:07", "txt", "xz"}},
        {"a\nb.c", '.', {"a\nb", "c"}, {"a\nb", "c"}},
        {"a\0b\0"s, '\0', {"a", "b"}, {"a", "b"}},
        {"a\0b,c"s, ',', {"a\0b"s, "c"}, {"a\0b"s, "c"}},
        {"a\xff\xfez", '\xff', {"a", "\xfez"}, {"a", "\xfez"}},
        {"", ',', {}, {}},
        {",", ',', {}, {""}},
        {",,", ',', {}, {"", ""}},
        {",,,", ',', {}, {"", "", ""}},
        {"\0"s, '\0', {}, {""}},
    };
    for (const auto& [text, delimiter, split, sliced] : cases) {
        SCOPED_TRACE(testing::PrintToString(text));
        Fields fields{"of", "before"};
        EXPECT_EQ(Util::Split(fields, text, delimiter), static_cast<int>(split.size()));
        EXPECT_EQ(fields, split);
        EXPECT_SUCCESS(Util::Slice(fields, text, delimiter));
        EXPECT_EQ(fields, sliced);
    }
}

TEST(SliceByStringTest, KeepsEmptyFieldsButTheTrailingOne) {
    const std::tuple<std::string, std::string, Fields> cases[] = {
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
        // Without the delimiter a text is itself.
        {"ab", ".", {"ab"}},
        {"ab", "--", {"ab"}},
        {"-a", "--", {"-a"}},
        {"abc", "--", {"abc"}},
        // One that is shorter than the delimiter has no field.
        {"a", "--", {}},
        {"a", "..", {}},
        {"-", "--", {}},
        {"ab", "abc", {}},
        {"", "-", {}},
        {"", "--", {}},
        {"", "", {}},
    };
    for (const auto& [text, delimiter, expected] : cases) {
        SCOPED_TRACE(testing::PrintToString(text));
        Fields fields{"of", "before"};
        EXPECT_SUCCESS(Util::Slice(fields, text, delimiter));
        EXPECT_EQ(fields, expected);
    }
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
