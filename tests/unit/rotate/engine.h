// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// What the engine's tests share: a device with an empty archive, 42 seconds after its seventh start
// and long after its files were touched; time that passes by sleeping only, and at once; and an
// engine whose state can be seen.
#pragma once

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "logging/logging.h"
#include "rotate/rotate.h"
#include "tests/support/faults.h"
#include "tests/support/files.h"
#include "tests/support/log_sink.h"
#include "util/format.h"

namespace fs = std::filesystem;

constexpr unsigned long SizeLimit = 1073741824;

struct Engine : Rotate {
    using Rotate::archDirSize;
    using Rotate::bootNum;
    using Rotate::numReboots;
};

// "messages.007.1970-01-01.00:00:42.txt.xz"
inline std::string ArchFn(unsigned bootNum, unsigned second = 42) {
    return Util::Format("messages.%03u.1970-01-01.00:00:%02u.txt.xz", bootNum, second);
}

class RotateTest : public testing::Test {
protected:
    using Path = fs::path;
    using Texts = std::vector<std::string>;

    RotateTest() {
        for (const Path& path : {Path("/perm/logs"), Path("/stand-in"), pidFile, syslogdScript}) {
            fs::remove_all(path);
        }
        fs::create_directories(archive);
        Logging::SetLogLevel(Logging::SeverityInfo);
        Faults::FixClock({.tv_sec = 42, .tv_nsec = 0});
        Faults::FixTimeOfDay({.tv_sec = 4'000'000'000, .tv_nsec = 0});
        Faults::SkipSleeps();
        rotate.bootNum = 7;
    }

    // Runs the action once, at the nth call of a function from now on, before the call.
    static void OnNthCall(const std::string& function, int nth, std::function<void()> action) {
        Faults::OnCall(function, [callsLeft = nth, action = std::move(action)]() mutable {
            if (--callsLeft == 0) action();
        });
    }

    // The recorded calls of one function, without its name.
    static Texts TakeCallsOf(const std::string& function) {
        Texts found;
        for (const std::string& call : Faults::TakeCalls()) {
            if (call.starts_with(function + ' ')) found.push_back(call.substr(function.size() + 1));
        }
        return found;
    }

    // Writes a file that was last changed at `time`.
    static void WriteFileAt(const Path& pfn, const std::string& text, timespec time) {
        WriteFile(pfn, text);
        const timespec times[]{time, time};
        ASSERT_EQ(utimensat(AT_FDCWD, pfn.c_str(), times, 0), 0);
    }

    // Writes files that hold their own names.
    static void WriteFiles(const Path& folder, const Texts& names) {
        for (const std::string& name : names) WriteFile(folder / name, name);
    }

    // An archive of these files, and no others, of which nothing is counted.
    void MakeArchive(const Texts& names = {}) {
        fs::remove_all(archive);
        fs::create_directory(archive);
        WriteFiles(archive, names);
        rotate.archDirSize = 0;
    }

    // The archive as it was before compression; and the texts alone, oldest first.
    Dir ReadArchive() const {
        Dir content;
        for (const auto& [name, compressed] : ReadDir(archive)) {
            content[name] = ReadXzFile(archive / name);
        }
        return content;
    }
    Texts ArchivedTexts() const {
        Texts texts;
        for (const auto& [name, text] : ReadArchive()) texts.push_back(text);
        return texts;
    }

    // The syslog directory holds the archive and these files.
    void ExpectLogs(Dir logs) const {
        logs["archive/"] = "";
        EXPECT_EQ(ReadDir(syslogDir), logs);
    }

    // The archive holds one file, made now, with this text, which is all that is counted.
    void ExpectArchived(const std::string& text) const {
        EXPECT_EQ(ReadArchive(), (Dir{{ArchFn(rotate.bootNum), text}}));
        EXPECT_EQ(rotate.archDirSize, fs::file_size(archive / ArchFn(rotate.bootNum)));
    }
    void ExpectOnlyArchived(const std::string& text) const {
        ExpectLogs({});
        ExpectArchived(text);
    }

    LogLine ArchivedLine(const Path& pfn, const std::string& seconds = "0.0",
                         unsigned second = 42) const {
        const Path archived = archive / ArchFn(7, second);
        return {LOG_INFO, "Archived '" + pfn.string() + "' to '" + archived.string() + "' in " +
                              seconds + " seconds."};
    }

    const Path syslogDir = "/perm/logs/syslog";
    const Path liveLog = syslogDir / "messages.txt";
    const Path tmpLog = syslogDir / "messages.txt.tmp";
    const Path rotation = syslogDir / "messages.txt.0";
    const Path nextRotation = syslogDir / "messages.txt.1";
    const Path archive = syslogDir / "archive";
    const Path pidFile = "/var/run/syslogd.pid";
    const Path syslogdScript = "/etc/init.d/S01syslogd-moraine";

    LogSink log;
    Engine rotate;
};
