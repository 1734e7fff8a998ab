// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "reader/time.h"

#include <array>
#include <cstdint>

#include "reader/ascii.h"

namespace Reader {

namespace {

constexpr std::int64_t SecsPerDay = 86400;

void SkipBlanks(std::string_view& text) {
    while (text.starts_with(' ')) text.remove_prefix(1);
}

// Cuts `minimum` to `maximum` digits off the text.
bool CutNumber(std::string_view& text, std::size_t minimum, std::size_t maximum, int& number) {
    std::size_t length = 0;
    number = 0;
    while (length < text.size() && length < maximum && IsDigit(text[length])) {
        number = number * 10 + text[length++] - '0';
    }
    text.remove_prefix(length);
    return length >= minimum;
}

bool CutCharacter(std::string_view& text, char c) {
    if (!text.starts_with(c)) return false;
    text.remove_prefix(1);
    return true;
}

// 17:48 or 17:48:08
bool CutClock(std::string_view& text, Date& date) {
    if (!CutNumber(text, 1, 2, date.hour) || !CutCharacter(text, ':') ||
        !CutNumber(text, 2, 2, date.minute)) {
        return false;
    }
    return !CutCharacter(text, ':') || CutNumber(text, 2, 2, date.second);
}

bool CutDay(std::string_view& text, Date& date) {
    return CutNumber(text, 4, 4, date.year) && CutCharacter(text, '-') &&
           CutNumber(text, 1, 2, date.month) && CutCharacter(text, '-') &&
           CutNumber(text, 1, 2, date.day);
}

std::int64_t UnitSeconds(std::string_view unit) {
    struct Unit {
        std::string_view name;
        std::int64_t seconds;
    };
    constexpr std::array Units{Unit{"s", 1},
                               Unit{"sec", 1},
                               Unit{"secs", 1},
                               Unit{"second", 1},
                               Unit{"seconds", 1},
                               Unit{"m", 60},
                               Unit{"min", 60},
                               Unit{"mins", 60},
                               Unit{"minute", 60},
                               Unit{"minutes", 60},
                               Unit{"h", 3600},
                               Unit{"hr", 3600},
                               Unit{"hrs", 3600},
                               Unit{"hour", 3600},
                               Unit{"hours", 3600},
                               Unit{"d", SecsPerDay},
                               Unit{"day", SecsPerDay},
                               Unit{"days", SecsPerDay},
                               Unit{"w", 7 * SecsPerDay},
                               Unit{"week", 7 * SecsPerDay},
                               Unit{"weeks", 7 * SecsPerDay},
                               Unit{"", 1}};
    for (const Unit& candidate : Units) {
        if (candidate.name == unit) return candidate.seconds;
    }
    return 0;
}

// 1h30min
bool ParseSpan(std::string_view text, std::int64_t& seconds) {
    constexpr std::size_t MaxDigits = 8;
    seconds = 0;
    SkipBlanks(text);
    if (text.empty()) return false;
    while (!text.empty()) {
        int number = 0;
        if (!CutNumber(text, 1, MaxDigits, number)) return false;
        SkipBlanks(text);
        std::size_t length = 0;
        while (length < text.size() && text[length] >= 'a' && text[length] <= 'z') ++length;
        const std::int64_t unit = UnitSeconds(text.substr(0, length));
        if (unit == 0) return false;
        seconds += number * unit;
        text.remove_prefix(length);
        SkipBlanks(text);
    }
    return true;
}

std::optional<CivilTime> ParseRelative(std::string_view text, CivilTime now) {
    constexpr std::string_view Ago = " ago";
    std::int64_t seconds = 0;
    if (text.ends_with(Ago)) {
        text.remove_suffix(Ago.size());
        if (ParseSpan(text, seconds)) return now - seconds;
        return std::nullopt;
    }
    const bool isPast = text.starts_with('-');
    if ((!isPast && !text.starts_with('+')) || !ParseSpan(text.substr(1), seconds)) {
        return std::nullopt;
    }
    return isPast ? now - seconds : now + seconds;
}

}  // namespace

std::optional<CivilTime> ParseTime(std::string_view text, CivilTime now) {
    const CivilTime today = now - (now % SecsPerDay + SecsPerDay) % SecsPerDay;
    if (text == "now") return now;
    if (text == "today") return today;
    if (text == "yesterday") return today - SecsPerDay;
    if (text == "tomorrow") return today + SecsPerDay;
    if (const auto time = ParseRelative(text, now)) return time;

    Date date = ToDate(today);
    std::string_view rest = text;
    bool isRead = CutDay(rest, date);
    if (!isRead) {
        date = ToDate(today);
        rest = text;
        isRead = CutClock(rest, date);
    } else if (CutCharacter(rest, ' ') || CutCharacter(rest, 'T')) {
        isRead = CutClock(rest, date);
    }
    if (!isRead || !rest.empty() || !IsValid(date)) return std::nullopt;
    return ToCivil(date);
}

}  // namespace Reader
