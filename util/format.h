// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Text for people: bounded printf-style formatting, durations, engineering numbers, dates.
// Nothing here logs.
#pragma once

#include <concepts>
#include <cstdarg>
#include <string>

namespace Util {

// printf into a string of at most 4095 characters. A text that does not fit gives "(truncated)"
// alone, so that a caller sees a marker and never a silently cut text; an encoding error gives
// "Formatting error". A zero byte that the arguments produce ends the text.
[[gnu::format(printf, 1, 2)]] std::string Format(const char* format, ...);
[[gnu::format(printf, 1, 0)]] std::string VFormat(const char* format, std::va_list args);

// The same for a format that is held in a string: nothing else deduces to `String`, so that a
// literal never meets two candidates.
template <std::same_as<std::string> String, typename... Args>
std::string Format(const String& format, Args... args) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    return Format(format.c_str(), args...);
#pragma GCC diagnostic pop
}

// "01:02:03" below a day, else "1 day, 00:00:05" or "3 days, 10:17:36".
std::string FormatSecs(const long& seconds);

// The same for the whole part of `seconds`, followed by "." and three digits of milliseconds
// (truncated, not rounded) when `withMs` is set.
std::string FormatSecs(double seconds, bool withMs);

// "DD:HH:MM:SS"; days have at least two digits and no upper limit.
std::string FormatTimeDurAsDdHhMmSs(const unsigned int& seconds);

// Three decimals and an SI prefix: 1500 and "B" give "   1.500 kB". Below 1e-15 the value reads
// 0.000; above 9.99999e17 it is written with an exponent and without its sign. Magnitudes below
// 1e-9 are multiples of 1e-12 that carry the letter "f": readers of these texts rely on it.
std::string FormatSi(double value, const std::string& unit);

// Decimal with a comma between groups of three digits: "1,234,567".
std::string FormatNumWithCommas(unsigned int n);

// The local date ("%D", month/day/two-digit year) and time of day ("%H:%M:%S"), now.
std::string GetSystemDate();
std::string GetSystemTime();

// Cuts `text` to `maxLength` characters, the last three of which become "...". A maximum below 4
// leaves an empty text. Returns true if `text` was shortened.
bool Truncate(std::string& text, unsigned long maxLength);

}  // namespace Util
