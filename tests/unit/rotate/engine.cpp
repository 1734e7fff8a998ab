// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "tests/unit/rotate/engine.h"

#include <utility>

#include "logging/logging.h"
#include "util/format.h"

namespace fs = std::filesystem;

namespace {

constexpr timespec SinceStart{.tv_sec = 42, .tv_nsec = 0};
constexpr timespec FarFuture{.tv_sec = 4'000'000'000, .tv_nsec = 0};

}  // namespace

void RotateTest::SetUp() {
    for (const fs::path& path : {Path("/perm/logs"), Path("/stand-in"), pidFile, syslogdScript}) {
        fs::remove_all(path);
    }
    fs::create_directories(archive);
    Logging::SetLogLevel(Logging::SeverityInfo);
    Faults::FixClock(SinceStart);
    Faults::FixTimeOfDay(FarFuture);
    Faults::SkipSleeps();
}

void RotateTest::OnNthCall(const std::string& function, int nth, std::function<void()> action) {
    Faults::OnCall(function, [callsLeft = nth, action = std::move(action)]() mutable {
        if (--callsLeft == 0) action();
    });
}

RotateTest::Texts RotateTest::TakeCallsOf(const std::string& function) {
    Texts found;
    for (const std::string& call : Faults::TakeCalls()) {
        if (call.starts_with(function + ' ')) found.push_back(call.substr(function.size() + 1));
    }
    return found;
}

Dir RotateTest::ReadArchive() const {
    Dir content;
    for (const auto& [name, compressed] : ReadDir(archive)) {
        content[name] = ReadXzFile(archive / name);
    }
    return content;
}

void RotateTest::ExpectOnlyArchived(const std::string& text) const {
    const std::string name = ArchFn(rotate.bootNum);
    EXPECT_DIR(syslogDir, {{"archive/", ""}});
    EXPECT_EQ(ReadArchive(), (Dir{{name, text}}));
    EXPECT_EQ(rotate.archDirSize, fs::file_size(archive / name));
}

std::string ArchFn(unsigned bootNum, unsigned second) {
    return Util::Format("messages.%03u.1970-01-01.00:00:%02u.txt.xz", bootNum, second);
}
