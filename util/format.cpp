// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "util/format.h"

#include <array>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <ctime>

namespace Util {

namespace {

constexpr std::size_t FormatBufferSize = 4096;

constexpr unsigned SecsPerMinute = 60;
constexpr unsigned SecsPerHour = 3600;
constexpr unsigned SecsPerDay = 86400;

struct SiPrefix {
    double divisor;
    const char* letter;
};

// The divisors are powers of ten as repeated scaling produces them: the last place of some is off
// by one, and the numbers that were ever printed with them depend on it.
constexpr SiPrefix SiPrefixes[]{{1e-12, "f"},
                                {1e-9, "n"},
                                {1.0000000000000002e-06, "u"},
                                {0.0010000000000000002, "m"},
                                {1, " "},
                                {1000.0000000000002, "k"},
                                {1000000.0000000002, "M"},
                                {1000000000.0000002, "G"},
                                {1000000000000.0002, "T"},
                                {1000000000000000.2, "P"}};

std::tm LocalTime() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    tzset();  // localtime_r need not follow a change of TZ by itself.
    (void)localtime_r(&now, &local);
    return local;
}

}  // namespace

std::string VFormat(const char* format, std::va_list args) {
    std::array<char, FormatBufferSize> text;
    const int length = std::vsnprintf(text.data(), text.size(), format, args);
    if (length < 0) return "Formatting error";
    if (static_cast<std::size_t>(length) >= text.size()) return "(truncated)";
    return text.data();
}

std::string Format(const char* format, ...) {
    std::va_list args;
    va_start(args, format);
    std::string text = VFormat(format, args);
    va_end(args);
    return text;
}

std::string FormatSecs(const long& seconds) {
    const auto days = static_cast<std::size_t>(seconds / SecsPerDay);
    const auto hours = static_cast<std::size_t>(seconds % SecsPerDay / SecsPerHour);
    const auto minutes = static_cast<std::size_t>(seconds % SecsPerHour / SecsPerMinute);
    const auto secs = static_cast<std::size_t>(seconds % SecsPerMinute);
    if (seconds < SecsPerDay) return Format("%02zu:%02zu:%02zu", hours, minutes, secs);
    return Format("%zu day%s, %02zu:%02zu:%02zu", days, days == 1 ? "" : "s", hours, minutes, secs);
}

std::string FormatSecs(double seconds, bool withMs) {
    const auto wholeSeconds = static_cast<long>(seconds);
    std::string text = FormatSecs(wholeSeconds);
    if (!withMs) return text;
    const auto ms = static_cast<long>((seconds - static_cast<double>(wholeSeconds)) * 1000);
    return Format("%s.%03u", text.c_str(), static_cast<unsigned>(static_cast<unsigned short>(ms)));
}

std::string FormatTimeDurAsDdHhMmSs(const unsigned int& seconds) {
    return Format("%02u:%02u:%02u:%02u", seconds / SecsPerDay, seconds % SecsPerDay / SecsPerHour,
                  seconds % SecsPerHour / SecsPerMinute, seconds % SecsPerMinute);
}

std::string FormatSi(double value, const std::string& unit) {
    const double sign = value < 0 ? -1 : 1;
    const double magnitude = std::fabs(value);
    if (magnitude < 1e-15) return Format("%8.3f  %s", 0.0, unit.c_str());
    if (magnitude > 9.99999e17) return Format("%11.3e %s", magnitude, unit.c_str());

    std::size_t i = 0;
    while (i + 1 < std::size(SiPrefixes) && magnitude / SiPrefixes[i].divisor > 999.999) ++i;
    return Format("%8.3f %s%s", sign * magnitude / SiPrefixes[i].divisor, SiPrefixes[i].letter,
                  unit.c_str());
}

std::string FormatNumWithCommas(unsigned int n) {
    std::string groups;
    for (; n > 999; n /= 1000) groups.insert(0, Format(",%03u", n % 1000));
    return Format("%u", n) + groups;
}

std::string GetSystemDate() {
    const std::tm local = LocalTime();
    char text[128] = {};
    (void)std::strftime(text, sizeof text, "%D", &local);
    return text;
}

std::string GetSystemTime() {
    const std::tm local = LocalTime();
    char text[128] = {};
    (void)std::strftime(text, sizeof text, "%H:%M:%S", &local);
    return text;
}

bool Truncate(std::string& text, unsigned long maxLength) {
    if (text.size() <= maxLength) return false;
    if (maxLength < 4) {
        text.clear();
    } else {
        text.replace(maxLength - 3, std::string::npos, "...");
    }
    return true;
}

}  // namespace Util
