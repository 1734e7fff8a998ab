// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The length limit of log messages: whole up to 255 characters, else cut to 252 and marked.
#include <cstdarg>

#include "logging/logging.h"
#include "tests/fuzz/fuzz.h"

namespace {

[[gnu::format(printf, 1, 2)]] std::string Formatted(const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    std::string text = Format(format, args);
    va_end(args);
    return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto [first, second] = ToTwoStrings(data, size);
    const std::string second0 = second.c_str();  // "%s" ends at a zero byte
    const std::string whole = first + '|' + second0;
    const std::string expected = whole.size() < 256 ? whole : whole.substr(0, 252) + " ...";
    REQUIRE(Formatted("%s|%s", first.c_str(), second0.c_str()) == expected);

    std::string elided = whole;
    Elide(elided);
    REQUIRE(elided.size() == whole.size());
    REQUIRE(elided.size() < 4 ? elided == whole : elided.ends_with(" ..."));

    const std::string general = Logging::Format("%s", whole.c_str());
    REQUIRE(general == (whole.size() < 4096 ? whole : "(truncated)"));
    return 0;
}
