// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "daemon/moraine.h"
#include "reader/log.h"
#include "tests/support/files.h"

namespace {

TEST(VerifyTest, AFileThatTheDaemonDeletesMeanwhileIsNotDamaged) {
    const std::filesystem::path file =
        Moraine::ArchPathAbs / "messages.001.1970-01-01.00:00:01.txt.xz";
    std::filesystem::create_directories(Moraine::ArchPathAbs);
    WriteFile(file, "no xz");
    Reader::Log log([](const std::string&, const std::string&) {});
    ASSERT_SUCCESS(log.OpenDevice());
    ASSERT_EQ(log.NumSources(), 1U);
    EXPECT_FALSE(log.Verify(0).isGone);
    EXPECT_NE(log.Verify(0).damage, "");

    std::filesystem::remove(file);
    const Reader::Log::Check check = log.Verify(0);
    EXPECT_TRUE(check.isGone);
    EXPECT_FALSE(check.isUnreadable);
    EXPECT_EQ(check.damage, "");
}

}  // namespace
