// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The system's one way to report: printf-style messages, filtered by severity, that go to the
// system log as one entry each.
//
// The front end (namespace Log) formats into a fixed buffer and never allocates, so that a line
// comes out when memory has run out, too. The back end (namespace Logging) writes entries and holds
// the settings. Nothing here fails towards its caller. openlog is never called: identity, options
// and facility are the C library's defaults (the program's name, user).
#pragma once

#include <cstdarg>
#include <functional>
#include <string>

#include "util/format.h"

namespace Logging {

// The values are syslog's priorities.
enum LOGGING_SEVERITY_LEVEL : int {
    SeverityEmergency = 0,
    SeverityAlert = 1,
    SeverityCritical = 2,
    SeverityError = 3,
    SeverityWarning = 4,
    SeverityNotice = 5,
    SeverityInfo = 6,
    SeverityDebug = 7,
};

// Entries of a higher value than this level are dropped. The level starts at Info.
void SetLogLevel(LOGGING_SEVERITY_LEVEL level);
LOGGING_SEVERITY_LEVEL GetSevLev();

// When on, every emitted message is printed on standard output too, followed by "\n\r". Off at
// first.
void SetLogToStdout(bool enabled);

// Replaces `name` by the level's name ("Emergency" ... "Debug"); leaves it alone for a value that
// is no level.
void GetSeverityAsString(LOGGING_SEVERITY_LEVEL level, std::string& name);

// Writes `message` as it stands, whatever its length.
void AddEntryToSyslog(LOGGING_SEVERITY_LEVEL level, const std::string& message);

// Writes `message` behind "file:function(line) ": the base name of `file` and the function's name,
// as far as they are not null, and the line if there is either; a blank always comes before the
// message. With `toUserLog`, also hands level, date, time and the plain message to the callback.
void AddEntryWithLocation(LOGGING_SEVERITY_LEVEL level, bool toUserLog, const std::string& message,
                          const char* file, const char* function, int line);

// Level, date, time, message.
using UserLogCallback = std::function<void(LOGGING_SEVERITY_LEVEL, const std::string&,
                                           const std::string&, const std::string&)>;

// Registers the callback; an empty one unregisters.
void RegisterUserLogCallback(UserLogCallback callback);

// Calls the registered callback, if there is one. No severity filter applies.
void AddEntryToUserLog(LOGGING_SEVERITY_LEVEL level, const std::string& date,
                       const std::string& time, const std::string& message);

// Sets a function that is called before each entry that is emitted, to write entries whose turn
// comes first (null: none). A program whose signal handlers must not log notes its signals and
// reports them here. Entries that the function itself writes call it again.
void SetBeforeEntryHook(void (*hook)());

// Util's texts under the names of this module.
using Util::Format;
using Util::GetSystemDate;
using Util::GetSystemTime;

}  // namespace Logging

// The front end's bounded formatting: a message of at most 255 characters is whole; a longer one is
// its first 252 characters and " ...", 256 in all. An encoding error gives "Formatting error".
[[gnu::format(printf, 1, 0)]] std::string Format(const char* format, std::va_list args);

// Replaces the last four characters of `text` by " ..."; leaves a shorter text alone.
void Elide(std::string& text);

// The front end. A message above the level of Logging::SetLogLevel is not even formatted; there is
// deliberately no function for Emergency, Alert and Notice.
namespace Log {

[[gnu::format(printf, 1, 2)]] void Crit(const char* format, ...);
[[gnu::format(printf, 1, 2)]] void Error(const char* format, ...);
[[gnu::format(printf, 1, 2)]] void Warn(const char* format, ...);
[[gnu::format(printf, 1, 2)]] void Info(const char* format, ...);
[[gnu::format(printf, 1, 2)]] void Debug(const char* format, ...);

}  // namespace Log
