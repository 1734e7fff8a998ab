// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <tuple>

#include "util/util.h"

namespace {

TEST(TruncateTest, ALongerTextEndsInDotsOrIsEmptied) {
    constexpr unsigned long Max = std::numeric_limits<unsigned long>::max();
    const std::tuple<std::string, unsigned long, std::string> cases[] = {
        {"0123456789", Max, "0123456789"},
        {"0123456789", 11, "0123456789"},
        {"0123456789", 10, "0123456789"},
        {"0123456789", 9, "012345..."},
        {"0123456789", 5, "01..."},
        {"0123456789", 4, "0..."},
        {"0123456789", 3, ""},
        {"0123456789", 2, ""},
        {"0123456789", 1, ""},
        {"0123456789", 0, ""},
        {"abcde", 4, "a..."},
        {"abcd", 4, "abcd"},
        {"abcd", 3, ""},
        {"abc", 3, "abc"},
        {"a", 1, "a"},
        {"a", 0, ""},
        {"", 4, ""},
        {"", 0, ""},
    };
    for (const auto& [text, maxLength, expected] : cases) {
        SCOPED_TRACE(testing::Message() << '"' << text << "\" to " << maxLength);
        std::string truncated = text;
        const bool wasShortened = Util::Truncate(truncated, maxLength);
        EXPECT_EQ(truncated, expected);
        EXPECT_EQ(wasShortened, expected != text);
    }
}

}  // namespace
