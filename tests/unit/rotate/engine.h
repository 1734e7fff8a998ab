// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// What the engine's tests share: a device with an empty archive, 42 seconds after its start and
// long after its files were touched; time that passes by sleeping only, and at once; and an engine
// whose state can be seen.
#pragma once

#include <gmock/gmock.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "rotate/rotate.h"
#include "tests/support/faults.h"
#include "tests/support/files.h"
#include "tests/support/log_sink.h"

constexpr unsigned long SizeLimit = 1073741824;

struct Engine : Rotate {
    using Rotate::archDirSize;
    using Rotate::bootNum;
    using Rotate::numReboots;
};

class RotateTest : public testing::Test {
protected:
    using Path = std::filesystem::path;
    using Texts = std::vector<std::string>;

    void SetUp() override;

    // Runs the action once, at the nth call of a function from now on, before the call.
    static void OnNthCall(const std::string& function, int nth, std::function<void()> action);

    // The recorded calls of one function, without its name.
    static Texts TakeCallsOf(const std::string& function);

    // The archive as it was before compression.
    Dir ReadArchive() const;

    // The archive holds one file, made now, with this text; the syslog directory holds nothing
    // else.
    void ExpectOnlyArchived(const std::string& text) const;

    const Path syslogDir = "/perm/logs/syslog";
    const Path liveLog = syslogDir / "messages.txt";
    const Path tmpLog = syslogDir / "messages.txt.tmp";
    const Path archive = syslogDir / "archive";
    const Path pidFile = "/var/run/syslogd.pid";
    const Path syslogdScript = "/etc/init.d/S01syslogd-moraine";

    LogSink log;
    Engine rotate;
};

// "messages.007.1970-01-01.00:00:42.txt.xz"
std::string ArchFn(unsigned bootNum, unsigned second = 42);

// A line whose text is matched.
inline testing::Matcher<LogLine> Line(int severity, const testing::Matcher<std::string>& text) {
    return testing::AllOf(testing::Field("severity", &LogLine::severity, severity),
                          testing::Field("text", &LogLine::text, text));
}
