// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The front end: bounded formatting, then one entry.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <string_view>

#include "logging/entry.h"
#include "logging/logging.h"

namespace {

constexpr std::string_view Elipsis = " ...";
constexpr std::string_view FormattingError = "Formatting error";

// An elided message fills it; the byte behind it ends the text for the C library.
constexpr std::size_t MaxMessage = 256;
using MessageText = std::array<char, MaxMessage + 1>;

void ElideTail(char* text, std::size_t length) {
    if (length < Elipsis.size()) return;
    std::copy(Elipsis.begin(), Elipsis.end(), text + length - Elipsis.size());
}

// Returns the message's length.
[[gnu::format(printf, 2, 0)]] std::size_t FormatMessage(MessageText& text, const char* format,
                                                        std::va_list args) {
    const int needed = std::vsnprintf(text.data(), MaxMessage, format, args);
    std::size_t length = MaxMessage;
    if (needed < 0) {
        length = FormattingError.copy(text.data(), MaxMessage);
    } else if (static_cast<std::size_t>(needed) < MaxMessage) {
        length = static_cast<std::size_t>(needed);
    } else {
        ElideTail(text.data(), MaxMessage);
    }
    text[length] = '\0';
    return length;
}

[[gnu::format(printf, 2, 0)]] void AddMessage(Logging::LOGGING_SEVERITY_LEVEL level,
                                              const char* format, std::va_list args) {
    MessageText text;
    (void)FormatMessage(text, format, args);
    Logging::AddEntry(level, text.data());
}

bool IsDropped(Logging::LOGGING_SEVERITY_LEVEL level) {
    return Logging::GetSevLev() < level;
}

}  // namespace

std::string Format(const char* format, std::va_list args) {
    MessageText text;
    const std::size_t length = FormatMessage(text, format, args);
    return {text.data(), length};
}

void Elide(std::string& text) {
    ElideTail(text.data(), text.size());
}

void Log::Crit(const char* format, ...) {
    if (IsDropped(Logging::SeverityCritical)) return;
    std::va_list args;
    va_start(args, format);
    AddMessage(Logging::SeverityCritical, format, args);
    va_end(args);
}

void Log::Error(const char* format, ...) {
    if (IsDropped(Logging::SeverityError)) return;
    std::va_list args;
    va_start(args, format);
    AddMessage(Logging::SeverityError, format, args);
    va_end(args);
}

void Log::Warn(const char* format, ...) {
    if (IsDropped(Logging::SeverityWarning)) return;
    std::va_list args;
    va_start(args, format);
    AddMessage(Logging::SeverityWarning, format, args);
    va_end(args);
}

void Log::Info(const char* format, ...) {
    if (IsDropped(Logging::SeverityInfo)) return;
    std::va_list args;
    va_start(args, format);
    AddMessage(Logging::SeverityInfo, format, args);
    va_end(args);
}

void Log::Debug(const char* format, ...) {
    if (IsDropped(Logging::SeverityDebug)) return;
    std::va_list args;
    va_start(args, format);
    AddMessage(Logging::SeverityDebug, format, args);
    va_end(args);
}
