// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// A test of the logging: lines arrive at a sink, and the settings of a program's start come back.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "logging/logging.h"
#include "tests/support/log_sink.h"

class LoggingTest : public testing::Test {
protected:
    ~LoggingTest() override {
        Logging::SetLogLevel(Logging::SeverityInfo);
        Logging::SetLogToStdout(false);
        Logging::RegisterUserLogCallback(nullptr);
        Logging::SetBeforeEntryHook(nullptr);
    }

    LogSink log;
};

inline Logging::LOGGING_SEVERITY_LEVEL Level(int value) {
    return static_cast<Logging::LOGGING_SEVERITY_LEVEL>(value);
}

// A text in which no piece occurs twice.
inline std::string NumberedText(std::size_t length) {
    std::string text;
    for (int number = 0; text.size() < length; ++number) text += std::to_string(number) + ' ';
    text.resize(length);
    return text;
}

// What cannot be encoded in the C locale.
inline const wchar_t* const Unencodable = L"\u0100";
