// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Commands and files of the machine.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>
#include <utility>

#include "tests/support/files.h"
#include "util/util.h"

namespace fs = std::filesystem;

namespace {

TEST(ReadStdOutFromSystemCallTest, ReturnsAllOfTheOutputWhateverTheExitStatus) {
    const std::pair<const char*, const char*> cases[] = {
        {"echo one", "one\n"},
        {"printf one", "one"},
        {"printf 'one\\ntwo\\n\\nthree'", "one\ntwo\n\nthree"},
        {"printf '%s|' a 'b c'; echo done", "a|b c|done\n"},
        {"true", ""},
        {"", ""},
        {"printf '\\n'", "\n"},
        {"echo one; exit 3", "one\n"},
        {"false", ""},
        {"echo one; kill -9 $$", "one\n"},
    };
    for (const auto& [command, output] : cases) {
        EXPECT_EQ(Util::ReadStdOutFromSystemCall(command), output) << command;
    }
}

// The pieces that are read hold 127 characters.
TEST(ReadStdOutFromSystemCallTest, LinesMayHaveAnyLength) {
    const fs::path pfn = "/tmp/command-output";
    for (const unsigned long length : {126, 127, 128, 254, 255, 381, 100000}) {
        SCOPED_TRACE(length);
        std::string output = Noise(length);
        std::replace(output.begin(), output.end(), '\n', ' ');
        for (const char* rest : {"", "\n", "another line\nend"}) {
            output += rest;
            WriteFile(pfn, output);
            EXPECT_EQ(Util::ReadStdOutFromSystemCall("cat /tmp/command-output"), output);
        }
    }
}

TEST(ReadStdOutFromSystemCallTest, StandardErrorIsNotTaken) {
    testing::internal::CaptureStderr();
    const std::string output = Util::ReadStdOutFromSystemCall("echo error >&2; echo one");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "error\n");
    EXPECT_EQ(output, "one\n");
}

TEST(ReadStdOutFromSystemCallTest, TheCommandHasEnded) {
    EXPECT_EQ(Util::ReadStdOutFromSystemCall("echo one"), "one\n");
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST(ReadStdOutFromSystemCallTest, ACommandThatCannotBeStartedGivesNothing) {
    rlimit files{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &files), 0);
    const rlimit none{0, files.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const std::string output = Util::ReadStdOutFromSystemCall("echo one");
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &files), 0);
    EXPECT_EQ(output, "");
    EXPECT_EQ(Util::ReadStdOutFromSystemCall("echo one"), "one\n");
}

TEST(CheckIfFileExistsTest, AFileOfAnyKindExistsIfItCanBeReached) {
    const fs::path folder = "/tmp/exists";
    fs::create_directory(folder);
    MakeDir(folder, {{"file", ""},
                     {"folder/", ""},
                     {"pipe?", ""},
                     {"link@", "file"},
                     {"link-to-link@", "link"},
                     {"dangling@", "missing"},
                     {"loop@", "loop"}});
    for (const char* name : {"file", "folder", "folder/", "pipe", "link", "link-to-link"}) {
        EXPECT_TRUE(Util::CheckIfFileExists((folder / name).c_str())) << name;
    }
    EXPECT_TRUE(Util::CheckIfFileExists("/"));
    EXPECT_TRUE(Util::CheckIfFileExists("/dev/null"));

    const std::string tooLong(300, 'x');
    for (const char* name :
         {"missing", "missing/file", "file/", "file/below", "dangling", "loop", tooLong.c_str()}) {
        EXPECT_FALSE(Util::CheckIfFileExists((folder / name).c_str())) << name;
    }
    EXPECT_FALSE(Util::CheckIfFileExists(""));
}

}  // namespace
