// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// A line of the log and its fields, in the form in which BusyBox syslogd writes it:
//
//   Nov 21 17:48:08 device user.err app[812]: text
//   |               |      |   |    |   |     `- message
//   |               |      |   |    |   `- process; may be missing
//   |               |      |   |    `- tag; may be missing with its colon: the message is the rest
//   |               |      |   `- severity
//   |               |      `- facility; without a name it is <102> together with the severity
//   |               `- host; may be missing
//   `- local time without a year
//
// A line of any other form is a message and nothing else.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace Reader {

// Seconds from 1970-01-01 00:00:00 of a local calendar, without time zone and daylight saving time:
// a line carries neither.
using CivilTime = std::int64_t;

struct Date {
    int year = 1970;
    int month = 1;  // 1 to 12
    int day = 1;
    int hour = 0;
    int minute = 0;
    int second = 0;
};

CivilTime ToCivil(const Date& date);
Date ToDate(CivilTime time);
bool IsValid(const Date& date);

// The local calendar at a moment, and the other way round.
CivilTime LocalTime(std::int64_t secondsSinceEpoch);
std::int64_t EpochTime(CivilTime local);

// The fields of a line. Texts point into the line.
struct Fields {
    bool hasForm = false;  // else only `message` is set
    int month = 0, day = 0, hour = 0, minute = 0, second = 0;
    std::string_view host;      // may be empty
    std::string_view facility;  // its name, or the digits of <102>
    int facilityCode = 0;       // 0 to 23 and above
    int severity = 0;           // 0 (emerg) to 7 (debug)
    std::string_view tag;       // may be empty
    std::optional<std::uint64_t> pid;
    std::string_view message;
};

Fields ParseLine(std::string_view line);

// The names of the severities as they are printed: "emerg", "alert", "crit", "err", "warning", ...
const char* SeverityName(int severity);
// Also "panic", "error", "warn" and "0" to "7".
std::optional<int> ParseSeverity(std::string_view name);

// The years of a file's lines: the latest in which the line is at most one day later than the
// file's last change.
class YearGuess {
public:
    explicit YearGuess(std::int64_t modificationTime);
    CivilTime TimeOf(const Fields& fields) const;

    // No line of the file is later than that.
    CivilTime Latest() const { return latest; }
    CivilTime ModificationTime() const { return latest - 86400; }

private:
    CivilTime latest;
    int year;
};

}  // namespace Reader
