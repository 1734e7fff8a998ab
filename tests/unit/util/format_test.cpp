// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Util::Format: printf into a string, with a ceiling and two markers.
#include <gtest/gtest.h>

#include <string>

#include "util/util.h"

using namespace std::string_literals;

namespace {

#if defined(__GNUC__) && !defined(__clang__)
// The compiler checks the arguments against the format.
static_assert(__builtin_has_attribute(*static_cast<std::string (*)(const char*, ...)>(Util::Format),
                                      format(printf, 1, 2)));
#endif

constexpr std::size_t MaxLength = 4095;

// What vsnprintf cannot encode in the C locale.
const wchar_t* const Unencodable = L"\u0100";

TEST(FormatTest, FormatsLikePrintf) {
    EXPECT_EQ(Util::Format("%s.%03u.%s%s", "messages", 7U, "1970-01-01", ".txt"),
              "messages.007.1970-01-01.txt");
    EXPECT_EQ(Util::Format("%.3f %s", 1.2, "GiB"), "1.200 GiB");
    EXPECT_EQ(Util::Format("%lu|%-4d|%x|%c", 1073741824UL, -5, 255U, 'z'), "1073741824|-5  |ff|z");
}

TEST(FormatTest, TakesAFormatThatIsHeldInAString) {
    const std::string format = "%s.%03u.%s%s";
    EXPECT_EQ(Util::Format(format, "messages", 7U, "1970-01-01", ".txt"),
              "messages.007.1970-01-01.txt");
    std::string changeable = "%.3f %s";
    EXPECT_EQ(Util::Format(changeable, 1.2, "GiB"), "1.200 GiB");
    EXPECT_EQ(Util::Format("%lu|%-4d|%x|%c"s, 1073741824UL, -5, 255U, 'z'), "1073741824|-5  |ff|z");
}

TEST(FormatTest, ALiteralZeroIsAnArgument) {
    EXPECT_EQ(Util::Format("%d", 0), "0");
    EXPECT_EQ(Util::Format("%d"s, 0), "0");
    EXPECT_EQ(Util::Format("%p", nullptr), Util::Format("%p"s, nullptr));
    EXPECT_EQ(Util::Format("%d%d%s", 0, 0, "x"), "00x");
    EXPECT_EQ(Util::Format("%d%d%s"s, 0, 0, "x"), "00x");
}

TEST(FormatTest, NeedsNoArguments) {
    EXPECT_EQ(Util::Format("plain"), "plain");
    EXPECT_EQ(Util::Format("plain"s), "plain");
    EXPECT_EQ(Util::Format("100%%"), "100%");
    EXPECT_EQ(Util::Format("100%%"s), "100%");
    EXPECT_EQ(Util::Format("%s", ""), "");
    EXPECT_EQ(Util::Format(""s), "");
}

TEST(FormatTest, PercentSignsOfArgumentsAreText) {
    EXPECT_EQ(Util::Format("%s", "%s%n%d"), "%s%n%d");
    EXPECT_EQ(Util::Format("%s"s, "%s%n%d"), "%s%n%d");
}

TEST(FormatTest, ATextThatDoesNotFitIsReplacedByAMarker) {
    for (const std::size_t length :
         {MaxLength - 1, MaxLength, MaxLength + 1, MaxLength + 2, 2 * MaxLength, 100 * MaxLength}) {
        SCOPED_TRACE(length);
        const std::string text(length, 'x');
        const std::string expected = length <= MaxLength ? text : "(truncated)";
        EXPECT_EQ(Util::Format("%s", text.c_str()), expected);
        EXPECT_EQ(Util::Format("%s"s, text.c_str()), expected);
        EXPECT_EQ(Util::Format(text), expected);
    }
}

TEST(FormatTest, AnEncodingErrorIsReplacedByAMarker) {
    EXPECT_EQ(Util::Format("before %ls", Unencodable), "Formatting error");
    EXPECT_EQ(Util::Format("before %ls"s, Unencodable), "Formatting error");
}

TEST(FormatTest, AZeroByteEndsTheText) {
    EXPECT_EQ(Util::Format("ab%ccd", 0), "ab");
    EXPECT_EQ(Util::Format("ab%ccd"s, 0), "ab");
    EXPECT_EQ(Util::Format("ab\0cd"s), "ab");
    // It does not hide that the text does not fit.
    EXPECT_EQ(Util::Format("%c%4094s", 0, "x"), "");
    EXPECT_EQ(Util::Format("%c%4095s", 0, "x"), "(truncated)");
}

}  // namespace
