// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// What a reading that is cancelled leaves undone.
#include <gmock/gmock.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <vector>

#include "daemon/moraine.h"
#include "reader/log.h"
#include "tests/support/files.h"

namespace {

class Cancelled : public testing::Test {
protected:
    void SetUp() override {
        std::filesystem::remove_all(Moraine::SyslogPathAbs);
        std::filesystem::create_directories(Moraine::ArchPathAbs);
        WriteFile(Moraine::SyslogPfe, "1\n2\n");
        ASSERT_SUCCESS(log.OpenDevice());
        ASSERT_SUCCESS(log.Read({}, [&](const Reader::Line& line) {
            first = line.GetCursor();
            return false;
        }));
        query.after = first;
        query.cancel = &cancel;
    }

    std::vector<std::string> reports;
    Reader::Log log{
        [this](const std::string& file, const std::string&) { reports.push_back(file); }};
    Reader::Cursor first;
    const std::atomic<bool> cancel = true;
    Reader::Query query;
    std::vector<std::string> lines;
    Reader::Take take = [this](const Reader::Line& line) {
        lines.emplace_back(line.text);
        return true;
    };
};

TEST_F(Cancelled, NothingIsSaidOfAPositionThatWasNotLookedFor) {
    EXPECT_TRUE(log.HasLine(first));
    EXPECT_FALSE(log.HasLine(first, &cancel));
    query.after->file = 0;
    std::uint64_t count = 0;
    EXPECT_SUCCESS(log.Read(query, take));
    EXPECT_SUCCESS(log.Count(query, count));
    EXPECT_EQ(lines, std::vector<std::string>());
    EXPECT_EQ(reports, std::vector<std::string>());
}

TEST_F(Cancelled, FollowingDoesNotBeginBehindWhatWasNotRead) {
    AppendToFile(Moraine::SyslogPfe, "3\n");
    EXPECT_SUCCESS(log.Follow(query, take, [] { return false; }));
    EXPECT_THAT(lines, testing::Not(testing::Contains("3")));
}

}  // namespace
