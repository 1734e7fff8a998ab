// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "reader/line.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <string>

#include "reader/ascii.h"

namespace Reader {

namespace {

constexpr std::string_view Months = "JanFebMarAprMayJunJulAugSepOctNovDec";
constexpr std::size_t StampLength = 15;
constexpr std::int64_t SecsPerDay = 86400;
constexpr std::int64_t FirstTime = -30610224000;  // 1000-01-01
constexpr std::int64_t LastTime = 253370764800;   // 9999-01-01

struct Named {
    std::string_view name;
    int code;
};

// As <sys/syslog.h> names them. The first name of a code is the one that is printed.
constexpr Named Severities[]{{"emerg", 0},   {"alert", 1},  {"crit", 2}, {"err", 3},
                             {"warning", 4}, {"notice", 5}, {"info", 6}, {"debug", 7},
                             {"panic", 0},   {"error", 3},  {"warn", 4}};

constexpr Named Facilities[]{{"kern", 0},     {"user", 1},    {"mail", 2},      {"daemon", 3},
                             {"auth", 4},     {"syslog", 5},  {"lpr", 6},       {"news", 7},
                             {"uucp", 8},     {"cron", 9},    {"authpriv", 10}, {"ftp", 11},
                             {"local0", 16},  {"local1", 17}, {"local2", 18},   {"local3", 19},
                             {"local4", 20},  {"local5", 21}, {"local6", 22},   {"local7", 23},
                             {"security", 4}, {"mark", 24}};

template <std::size_t Size>
int Find(const Named (&table)[Size], std::string_view name) {
    for (const Named& entry : table) {
        if (entry.name == name) return entry.code;
    }
    return -1;
}

bool IsLeap(int year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

int DaysIn(int month, int year) {
    constexpr std::array<int, 12> Days{31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && IsLeap(year) ? 29 : Days[static_cast<std::size_t>(month - 1)];
}

// Days from 1970-01-01, by the proleptic Gregorian calendar; years begin in March.
std::int64_t DaysFromEpoch(int year, int month, int day) {
    const std::int64_t y = month <= 2 ? year - 1 : year;
    const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
    const std::int64_t yearOfEra = y - era * 400;
    const std::int64_t dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
    const std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra - 719468;
}

// Two digits, the first of which may be a blank. Returns -1 if there are none.
int TwoDigits(const char* text, bool mayBePadded) {
    if (!IsDigit(text[1])) return -1;
    if (mayBePadded && text[0] == ' ') return text[1] - '0';
    if (!IsDigit(text[0])) return -1;
    return (text[0] - '0') * 10 + text[1] - '0';
}

bool ParseStamp(std::string_view line, Fields& fields) {
    if (line.size() <= StampLength || line[3] != ' ' || line[6] != ' ' || line[9] != ':' ||
        line[12] != ':' || line[StampLength] != ' ') {
        return false;
    }
    const std::size_t month = Months.find(line.substr(0, 3));
    if (month == std::string_view::npos || month % 3 != 0) return false;
    fields.month = static_cast<int>(month / 3) + 1;
    fields.day = TwoDigits(&line[4], true);
    fields.hour = TwoDigits(&line[7], false);
    fields.minute = TwoDigits(&line[10], false);
    fields.second = TwoDigits(&line[13], false);
    constexpr int LeapYear = 2000;
    return fields.hour >= 0 && fields.minute >= 0 && fields.second >= 0 &&
           IsValid({LeapYear, fields.month, fields.day, fields.hour, fields.minute, fields.second});
}

// <102>
bool ParseNumbered(std::string_view word, Fields& fields) {
    constexpr std::size_t MaxDigits = 9;
    if (word.size() < 3 || word.front() != '<' || word.back() != '>') return false;
    const std::string_view digits = word.substr(1, word.size() - 2);
    if (digits.size() > MaxDigits) return false;
    int code = 0;
    for (const char digit : digits) {
        if (!IsDigit(digit)) return false;
        code = code * 10 + digit - '0';
    }
    fields.severity = code % 8;
    fields.facilityCode = code / 8;
    fields.facility = {};
    return true;
}

// facility.severity
bool ParsePriority(std::string_view word, Fields& fields) {
    if (ParseNumbered(word, fields)) return true;
    const std::size_t dot = word.find('.');
    if (dot == std::string_view::npos) return false;
    fields.facility = word.substr(0, dot);
    fields.facilityCode = Find(Facilities, fields.facility);
    fields.severity = Find(Severities, word.substr(dot + 1));
    return fields.facilityCode >= 0 && fields.severity >= 0;
}

// Cuts off the text up to a blank, and the blank. A text without a blank is the last word.
std::string_view CutWord(std::string_view& text) {
    const std::size_t blank = text.find(' ');
    const std::string_view word = text.substr(0, blank);
    text.remove_prefix(blank == std::string_view::npos ? text.size() : blank + 1);
    return word;
}

// An empty host leaves its blank behind.
bool ParseHostAndPriority(std::string_view& text, Fields& fields) {
    const std::string_view first = CutWord(text);
    if (ParsePriority(first, fields)) return true;
    fields.host = first;
    return ParsePriority(CutWord(text), fields);
}

bool IsTagCharacter(char c) {
    return c != ' ' && c != '\t' && c != '[' && c != ']' && c != ':';
}

// tag[pid]: message. Without a tag, all of it is the message.
void ParseTag(std::string_view text, Fields& fields) {
    constexpr std::size_t MaxPidDigits = 18;
    fields.message = text;
    std::size_t end = 0;
    while (end < text.size() && IsTagCharacter(text[end])) ++end;
    if (end == 0 || end == text.size()) return;
    const std::string_view tag = text.substr(0, end);
    std::optional<std::uint64_t> pid;
    if (text[end] == '[') {
        const std::size_t first = ++end;
        pid = 0;
        while (end < text.size() && IsDigit(text[end]) && end - first < MaxPidDigits) {
            pid = *pid * 10 + static_cast<std::uint64_t>(text[end++] - '0');
        }
        if (end == first || end == text.size() || text[end] != ']') return;
        ++end;
    }
    if (!text.substr(end).starts_with(": ")) return;
    fields.tag = tag;
    fields.pid = pid;
    fields.message = text.substr(end + 2);
}

}  // namespace

bool IsValid(const Date& date) {
    return date.month >= 1 && date.month <= 12 && date.day >= 1 &&
           date.day <= DaysIn(date.month, date.year) && date.hour >= 0 && date.hour <= 23 &&
           date.minute >= 0 && date.minute <= 59 && date.second >= 0 && date.second <= 59;
}

CivilTime ToCivil(const Date& date) {
    return DaysFromEpoch(date.year, date.month, date.day) * SecsPerDay + date.hour * 3600L +
           date.minute * 60L + date.second;
}

Date ToDate(CivilTime time) {
    const std::time_t seconds = time;
    std::tm fields{};
    if (gmtime_r(&seconds, &fields) == nullptr) return {};
    return {fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday,
            fields.tm_hour,        fields.tm_min,     fields.tm_sec};
}

CivilTime LocalTime(std::int64_t secondsSinceEpoch) {
    const std::time_t seconds = secondsSinceEpoch;
    std::tm fields{};
    if (localtime_r(&seconds, &fields) == nullptr) return secondsSinceEpoch;
    return ToCivil({fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday, fields.tm_hour,
                    fields.tm_min, fields.tm_sec});
}

std::int64_t EpochTime(CivilTime local) {
    const Date date = ToDate(local);
    std::tm fields{};
    fields.tm_year = date.year - 1900;
    fields.tm_mon = date.month - 1;
    fields.tm_mday = date.day;
    fields.tm_hour = date.hour;
    fields.tm_min = date.minute;
    fields.tm_sec = date.second;
    fields.tm_isdst = -1;
    return std::mktime(&fields);
}

Fields ParseLine(std::string_view line) {
    Fields fields;
    std::string_view rest = line;
    if (ParseStamp(line, fields)) {
        rest.remove_prefix(StampLength + 1);
        fields.hasForm = ParseHostAndPriority(rest, fields);
    }
    if (!fields.hasForm) {
        fields = {};
        fields.message = line;
        return fields;
    }
    ParseTag(rest, fields);
    return fields;
}

const char* SeverityName(int severity) {
    for (const Named& entry : Severities) {
        if (entry.code == severity) return entry.name.data();
    }
    return "";
}

std::optional<int> ParseSeverity(std::string_view name) {
    if (name.size() == 1 && name[0] >= '0' && name[0] <= '7') return name[0] - '0';
    const int code = Find(Severities, name);
    return code < 0 ? std::nullopt : std::optional<int>(code);
}

// A download may claim any time; only years of four digits are used.
YearGuess::YearGuess(std::int64_t modificationTime)
    : latest(LocalTime(std::clamp(modificationTime, FirstTime, LastTime)) + SecsPerDay),
      year(ToDate(latest).year) {}

// February 29 may be eight years back.
CivilTime YearGuess::TimeOf(const Fields& fields) const {
    constexpr int MaxYearsBack = 9;
    Date date{year, fields.month, fields.day, fields.hour, fields.minute, fields.second};
    for (int i = 0; i < MaxYearsBack; ++i, --date.year) {
        const CivilTime time = ToCivil(date);
        if (IsValid(date) && time <= latest) return time;
    }
    return latest;
}

}  // namespace Reader
