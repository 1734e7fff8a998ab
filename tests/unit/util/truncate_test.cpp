// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <tuple>
#include <utility>

#include "util/util.h"

namespace {

TEST(TruncateTest, AShortEnoughTextStays) {
    const std::pair<const char*, unsigned long> cases[] = {
        {"", 0},
        {"", 4},
        {"a", 1},
        {"abc", 3},
        {"abcd", 4},
        {"0123456789", 10},
        {"0123456789", 11},
        {"0123456789", std::numeric_limits<unsigned long>::max()},
    };
    for (const auto& [text, maxLength] : cases) {
        SCOPED_TRACE(testing::Message() << '"' << text << "\" to " << maxLength);
        std::string truncated = text;
        EXPECT_FALSE(Util::Truncate(truncated, maxLength));
        EXPECT_EQ(truncated, text);
    }
}

TEST(TruncateTest, ALongerTextEndsInDotsOrIsEmptied) {
    const std::tuple<const char*, unsigned long, const char*> cases[] = {
        {"0123456789", 9, "012345..."},
        {"0123456789", 5, "01..."},
        {"0123456789", 4, "0..."},
        {"abcde", 4, "a..."},
        {"0123456789", 3, ""},
        {"0123456789", 2, ""},
        {"0123456789", 1, ""},
        {"0123456789", 0, ""},
        {"abcd", 3, ""},
        {"a", 0, ""},
    };
    for (const auto& [text, maxLength, truncated] : cases) {
        SCOPED_TRACE(testing::Message() << '"' << text << "\" to " << maxLength);
        std::string actual = text;
        EXPECT_TRUE(Util::Truncate(actual, maxLength));
        EXPECT_EQ(actual, truncated);
    }
}

}  // namespace
