// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// What the tests of the file utilities share: an empty folder, and every log line down to Debug. A
// test fails if it leaves a line unread, or a file open.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <system_error>

#include "futils/futils.h"
#include "logging/logging.h"
#include "tests/support/faults.h"
#include "tests/support/files.h"
#include "tests/support/log_sink.h"
#include "tests/support/reason.h"

struct CloseStream {
    void operator()(std::FILE* stream) const { (void)std::fclose(stream); }
};
using Stream = std::unique_ptr<std::FILE, CloseStream>;

// A daemon's standard input may be closed, and a file get descriptor 0. While this object lives,
// descriptor 0 is the next one that is given out.
class FreeDescriptorZero {
public:
    FreeDescriptorZero() { (void)close(0); }
    FreeDescriptorZero(const FreeDescriptorZero&) = delete;
    FreeDescriptorZero& operator=(const FreeDescriptorZero&) = delete;
    ~FreeDescriptorZero() {
        (void)dup2(standardInput, 0);
        (void)close(standardInput);
    }

private:
    const int standardInput = dup(0);
};

class FutilsTest : public testing::Test {
protected:
    FutilsTest() {
        Logging::SetLogLevel(Logging::SeverityDebug);
        std::filesystem::remove_all(folder);
        std::filesystem::create_directories(folder);
        (void)Faults::TakeCalls();
    }

    void TearDown() override {
        ExpectNoLines();
        ExpectNothingOpen();
    }

    void ExpectNoLines() { EXPECT_LOG(); }
    void ExpectLine(int severity, const std::string& text) {
        EXPECT_EQ(log.Take(), (LogLines{{severity, AsLogged(text)}}));
    }
    void ExpectError(const std::string& text) { ExpectLine(LOG_ERR, text); }

    // Expects that no file, folder or stream below the folder is still open.
    void ExpectNothingOpen() {
        for (const auto& descriptor : std::filesystem::directory_iterator("/proc/self/fd")) {
            std::error_code gone;  // as is the one of this walk
            const std::string target = std::filesystem::read_symlink(descriptor, gone);
            EXPECT_FALSE(target.starts_with(folder.native())) << target;
        }
    }

    const std::filesystem::path folder = "/perm/futils";
    LogSink log;
};
