// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Reads log lines where they arrive: at /dev/log, so that priority, tag and text are what a syslog
// daemon would get.
#pragma once

#include <gmock/gmock.h>
#include <sys/syslog.h>

#include <initializer_list>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

struct LogLine {
    int severity;
    std::string text;

    bool operator==(const LogLine&) const = default;
    friend std::ostream& operator<<(std::ostream& out, const LogLine& line) {
        return out << '<' << line.severity << "> " << line.text;
    }
};

using LogLines = std::vector<LogLine>;

// Matchers of a line by its severity and its text.
testing::Matcher<LogLine> Error(const testing::Matcher<std::string>& text);
testing::Matcher<LogLine> Warning(const testing::Matcher<std::string>& text);
testing::Matcher<LogLine> Info(const testing::Matcher<std::string>& text);
testing::Matcher<LogLine> Debug(const testing::Matcher<std::string>& text);

testing::Matcher<const LogLines&> LinesAre(std::initializer_list<testing::Matcher<LogLine>> lines);

// The lines that arrived at the sink `log` since it was read last: these, and no others.
#define EXPECT_LOG(...) EXPECT_THAT(log.Take(), LinesAre({__VA_ARGS__}))

class LogSink {
public:
    LogSink();
    ~LogSink();
    LogSink(const LogSink&) = delete;
    LogSink& operator=(const LogSink&) = delete;

    // The lines that arrived since the last call, oldest first. Fails the test for a line of
    // another facility than user or another tag than `tag`.
    LogLines Take();

    // The datagrams as they arrived since the last call, headers and all.
    std::vector<std::string> TakeRaw();

    // The tag that lines must carry: this program's name.
    std::string tag;

private:
    void KeepReading();
    void Receive();

    int fd;
    std::mutex mutex;  // guards the datagrams, and their order
    std::vector<std::string> datagrams;
    std::thread reader;
};
