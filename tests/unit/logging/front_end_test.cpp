// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Log::Crit to Log::Debug, and the bounded formatting behind them.
#include <sys/mman.h>

#include <cstdarg>
#include <string>
#include <utility>

#include "tests/support/memory.h"
#include "tests/support/reason.h"
#include "tests/unit/logging/logging_test.h"

using namespace std::string_literals;

namespace {

#if defined(__GNUC__) && !defined(__clang__)
// The compiler checks the arguments against the format.
static_assert(__builtin_has_attribute(Log::Crit, format(printf, 1, 2)));
static_assert(__builtin_has_attribute(Log::Error, format(printf, 1, 2)));
static_assert(__builtin_has_attribute(Log::Warn, format(printf, 1, 2)));
static_assert(__builtin_has_attribute(Log::Info, format(printf, 1, 2)));
static_assert(__builtin_has_attribute(Log::Debug, format(printf, 1, 2)));
static_assert(__builtin_has_attribute(::Format, format(printf, 1, 0)));
#endif

constexpr struct {
    const char* name;
    void (*log)(const char*, ...);
    int severity;
} Functions[] = {
    {"Crit", Log::Crit, LOG_CRIT},    {"Error", Log::Error, LOG_ERR},
    {"Warn", Log::Warn, LOG_WARNING}, {"Info", Log::Info, LOG_INFO},
    {"Debug", Log::Debug, LOG_DEBUG},
};

using FrontEndTest = LoggingTest;

TEST_F(FrontEndTest, EachFunctionIsEmittedFromItsLevelOn) {
    for (const auto& [name, function, severity] : Functions) {
        for (int level = -1; level <= LOG_DEBUG + 1; ++level) {
            SCOPED_TRACE(name + " at level "s + std::to_string(level));
            Logging::SetLogLevel(Level(level));
            function("%s %d", "text", level);
            LogLines expected;
            if (level >= severity) expected = {{severity, "text " + std::to_string(level)}};
            EXPECT_EQ(log.Take(), expected);
        }
    }
}

// Formatting the message would read memory that nobody may read.
TEST_F(FrontEndTest, ADroppedMessageIsNotFormatted) {
    void* const page = mmap(nullptr, 1, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(page, MAP_FAILED);
    for (const auto& [name, function, severity] : Functions) {
        Logging::SetLogLevel(Level(severity - 1));
        function("%s", static_cast<const char*>(page));
    }
    EXPECT_LOG();
    EXPECT_EQ(munmap(page, 1), 0);
}

TEST_F(FrontEndTest, AMessageIsOneEntryFormattedAsByPrintf) {
    Log::Info("plain");
    Log::Info("100%%");
    Log::Info("%d", 0);
    Log::Info("%s", "");
    Log::Info("%s", "%s%n%d 100%");
    Log::Info("%s", "%%");
    Log::Info("%s", "one\ntwo\r\n\tthree\n");
    Log::Info("a\xc3\xa4\xff");
    Log::Error("before %ls", Unencodable);
    EXPECT_LOG(Info("plain"), Info("100%"), Info("0"), Info(""), Info("%s%n%d 100%"), Info("%%"),
               Info("one\ntwo\r\n\tthree\n"), Info("a\xc3\xa4\xff"), Error("Formatting error"));
}

TEST_F(FrontEndTest, AMessageOf255CharactersIsWholeAndALongerOneIsElided) {
    Logging::SetLogLevel(Logging::SeverityDebug);
    for (const auto& [name, function, severity] : Functions) {
        for (const std::size_t length : {1, 252, 254, 255, 256, 257, 300, 512, 100000}) {
            SCOPED_TRACE(name + ", length "s + std::to_string(length));
            const std::string message = NumberedText(length);
            function("%s", message.c_str());
            EXPECT_LOG(LogLine{severity, AsLogged(message)});
        }
    }
}

// A line comes out when memory has run out, too.
TEST_F(FrontEndTest, AllocatesNothing) {
    const std::string message = NumberedText(300);
    Log::Error("The C library reads its time zone for the first entry.");
    const int before = Allocations();
    Log::Error("%s", message.c_str());
    Log::Error("%ls", Unencodable);
    Log::Debug("%s", message.c_str());
    EXPECT_EQ(Allocations(), before);
    EXPECT_EQ(log.Take().size(), 3U);
}

[[gnu::format(printf, 1, 2)]] std::string Formatted(const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    std::string text = Format(format, args);
    va_end(args);
    return text;
}

TEST(FrontEndFormatTest, IsBoundedTo256Characters) {
    EXPECT_EQ(Formatted("%s", ""), "");
    EXPECT_EQ(Formatted("%s.%03u", "messages", 7U), "messages.007");
    EXPECT_EQ(Formatted("ab%ccd", 0), "ab\0cd"s);
    EXPECT_EQ(Formatted("before %ls", Unencodable), "Formatting error");
    for (const std::size_t length : {254, 255, 256, 257, 5000}) {
        const std::string text = NumberedText(length);
        EXPECT_EQ(Formatted("%s", text.c_str()), AsLogged(text));
    }
}

TEST(ElideTest, ReplacesTheLastFourCharacters) {
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {"a", "a"},
        {"abc", "abc"},
        {"abcd", " ..."},
        {"abcde", "a ..."},
        {"abcdefgh", "abcd ..."},
        {"abc ...", "abc ..."},
        {"a\0bcdef"s, "a\0b ..."s},
    };
    for (const auto& [text, elided] : cases) {
        std::string actual = text;
        Elide(actual);
        EXPECT_EQ(actual, elided);
    }
}

}  // namespace
