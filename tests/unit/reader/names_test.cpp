// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Which file is what, and the order of rotations.
#include "reader/names.h"

#include <gtest/gtest.h>

namespace {

using Reader::Kind;
using Reader::Name;
using Reader::ParseArchiveName;
using Reader::ParseName;

TEST(ArchiveName, HasABoot) {
    const Name name = ParseArchiveName("messages.013.1970-01-01.00:14:07.txt.xz");
    EXPECT_EQ(name.form, Name::Form::Log);
    EXPECT_EQ(name.kind, Kind::Archive);
    EXPECT_EQ(name.boot, 13U);
    EXPECT_EQ(name.rest, ".1970-01-01.00:14:07.txt.xz");
    EXPECT_EQ(ParseArchiveName("messages.65535.x.xz").boot, 65535U);
}

TEST(ArchiveName, WithoutANumberIsMisnamed) {
    for (const char* const name : {"messages.65536.x.txt.xz", "messages.-1.x.txt.xz", "messages.xz",
                                   "messages.1a.x.txt.xz", "messages..x.txt.xz", "messages.txt.xz",
                                   "messages.99999999999999999999.x.xz", "messages. 1.x.txt.xz"}) {
        EXPECT_EQ(ParseArchiveName(name).form, Name::Form::Misnamed) << name;
    }
    for (const char* const name :
         {"message.1.x.txt.xz", "messages.1.x.txt", "messages", "manifest.json",
          "messages.1.x.txt.xz.tmp", "", ".messages.1.xz"}) {
        EXPECT_EQ(ParseArchiveName(name).form, Name::Form::Foreign) << name;
    }
}

TEST(ArchiveName, IsFullWithDateAndTime) {
    EXPECT_TRUE(Reader::IsFullArchiveName("messages.013.1970-01-01.00:14:07.txt.xz"));
    EXPECT_FALSE(Reader::IsFullArchiveName("messages.013.1970-01-01.00:14:7.txt.xz"));
    EXPECT_FALSE(Reader::IsFullArchiveName("messages.013.xz"));
}

TEST(WaitingName, IsLiveInterruptedOrRotation) {
    EXPECT_EQ(ParseName("messages.txt").kind, Kind::Live);
    EXPECT_FALSE(ParseName("messages.txt").isCompressed);
    EXPECT_TRUE(ParseName("messages.txt.xz").isCompressed);
    EXPECT_EQ(ParseName("messages.txt.xz").kind, Kind::Live);
    EXPECT_EQ(ParseName("messages.txt.tmp").kind, Kind::Interrupted);
    EXPECT_EQ(ParseName("messages.txt.tmp.xz").kind, Kind::Interrupted);
    EXPECT_EQ(ParseName("messages.txt.3.xz").rest, "3");
    EXPECT_EQ(ParseName("messages.txt.old").kind, Kind::Rotation);
    EXPECT_EQ(ParseName("messages.013.x.txt.xz").kind, Kind::Archive);
    for (const char* const name : {"messages.txt.", "messages.txt.3.bak", "messages.0",
                                   "messages.txtx", "Messages.txt", "archive"}) {
        EXPECT_EQ(ParseName(name).form, Name::Form::Foreign) << name;
    }
}

TEST(RotationOrder, IsHighestNumberFirst) {
    EXPECT_TRUE(Reader::IsOlderRotation("9", "0"));
    EXPECT_TRUE(Reader::IsOlderRotation("10", "9"));
    EXPECT_FALSE(Reader::IsOlderRotation("9", "10"));
    EXPECT_TRUE(Reader::IsOlderRotation("old", "99"));  // no number: before all numbers
    EXPECT_TRUE(Reader::IsOlderRotation("b", "a"));     // descending
    EXPECT_TRUE(Reader::IsOlderRotation("99999999999999999999", "9"));
    EXPECT_FALSE(Reader::IsOlderRotation("3", "3"));
}

}  // namespace
