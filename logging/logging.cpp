// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The back end: severity filter, sinks and settings.
#include "logging/logging.h"

#include <syslog.h>

#include <array>
#include <cstdio>
#include <string_view>
#include <utility>

#include "logging/entry.h"

namespace Logging {

namespace {

LOGGING_SEVERITY_LEVEL _minLogLevel = SeverityInfo;
bool _enableLoggingToStdout = false;
UserLogCallback _userLogCallback;
void (*beforeEntryHook)() = nullptr;

}  // namespace

void SetLogLevel(LOGGING_SEVERITY_LEVEL level) {
    _minLogLevel = level;
}

LOGGING_SEVERITY_LEVEL GetSevLev() {
    return _minLogLevel;
}

void SetLogToStdout(bool enabled) {
    _enableLoggingToStdout = enabled;
}

void SetBeforeEntryHook(void (*hook)()) {
    beforeEntryHook = hook;
}

void GetSeverityAsString(LOGGING_SEVERITY_LEVEL level, std::string& name) {
    static constexpr std::array<const char*, 8> Names{"Emergency", "Alert",  "Critical", "Error",
                                                      "Warning",   "Notice", "Info",     "Debug"};
    const auto index = static_cast<std::size_t>(level);
    if (index < Names.size()) name = Names[index];
}

void AddEntry(LOGGING_SEVERITY_LEVEL level, const char* message) {
    if (level > _minLogLevel) return;
    if (beforeEntryHook != nullptr) beforeEntryHook();
    syslog(level, "%s", message);
    if (_enableLoggingToStdout) std::printf("%s\n\r", message);
}

void AddEntryToSyslog(LOGGING_SEVERITY_LEVEL level, const std::string& message) {
    AddEntry(level, message.c_str());
}

void AddEntryWithLocation(LOGGING_SEVERITY_LEVEL level, bool toUserLog, const std::string& message,
                          const char* file, const char* function, int line) {
    std::string entry;
    if (file != nullptr) {
        const std::string_view path = file;
        entry = path.substr(path.rfind('/') + 1);
    }
    if (function != nullptr) entry.append(":").append(function);
    if (!entry.empty()) entry.append("(").append(std::to_string(line)).append(")");
    AddEntryToSyslog(level, entry.append(" ").append(message));

    if (toUserLog) AddEntryToUserLog(level, GetSystemDate(), GetSystemTime(), message);
}

void AddEntryToUserLog(LOGGING_SEVERITY_LEVEL level, const std::string& date,
                       const std::string& time, const std::string& message) {
    if (_userLogCallback) _userLogCallback(level, date, time, message);
}

void RegisterUserLogCallback(UserLogCallback callback) {
    _userLogCallback = std::move(callback);
}

}  // namespace Logging
