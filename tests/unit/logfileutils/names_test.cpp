// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The grammar of file names: what is an archive file, what a rotation, and of which boot.
#include <algorithm>
#include <utility>

#include "logfileutils/names.h"
#include "tests/support/memory.h"
#include "tests/unit/logfileutils/fixture.h"

namespace {

using namespace std::string_literals;

class NamesTest : public CatalogueTest {
protected:
    static constexpr unsigned short Untouched = 4711;

    void ExpectBootNum(const std::string& name, unsigned short expected) {
        SCOPED_TRACE(name);
        unsigned short bootNum = Untouched;
        EXPECT_SUCCESS(LogFileUtils::GetFnBootNum(name, bootNum));
        EXPECT_EQ(bootNum, expected);
    }
};

TEST_F(NamesTest, ArchiveFilesBeginWithTheStemAndEndInXz) {
    for (const std::string name :
         {"messages.007.1970-01-01.00:14:07.txt.xz", "messages.1000.1970-01-01.00:14:07.txt.xz",
          "messages.000.1970-01-01.00:00:00.txt.xz", "messages.xz", "messages.txt.xz",
          "messages.anything.xz", "messages.007.a b\n\xff.xz", "messages..xz", "messages.xz.xz",
          "messages.007.1970-01-01.00:14:07.txt.xz."}) {  // nothing follows the last dot
        EXPECT_TRUE(LogFileUtils::IsArchiveFileName(name)) << name;
    }
}

TEST_F(NamesTest, EverythingElseIsNoArchiveFile) {
    for (const std::string name :
         {"", ".", "..", "...", "messages", "messages.", "xz", ".xz", "..xz", "xz.messages",
          "messages.txt", "messages.txt.tmp", "notes", "zzz"}) {
        EXPECT_FALSE(LogFileUtils::IsArchiveFileName(name)) << name;
    }
    for (const std::string& end : {""s, ".gz"s, ".xz.tmp"s, ".xz.."s, ".xz~"s, ".xz\0"s, ".xz "s,
                                   ".xzz"s, ".x"s, ".XZ"s, ".lxz"s, ". xz"s, "xz"s}) {
        const std::string name = "messages.007.1970-01-01.00:14:07.txt" + end;
        EXPECT_FALSE(LogFileUtils::IsArchiveFileName(name)) << name;
    }
    for (const std::string& stem :
         {"Messages"s, "message"s, "messages2"s, " messages"s, "messages "s, ".messages"s,
          "messages/"s, "messages\0"s, "/perm/logs/syslog/archive/messages"s, "./messages"s}) {
        const std::string name = stem + ".007.1970-01-01.00:14:07.txt.xz";
        EXPECT_FALSE(LogFileUtils::IsArchiveFileName(name)) << name;
    }
}

TEST_F(NamesTest, TheBootNumberIsTheSecondFieldOfAnyName) {
    const std::pair<std::string, unsigned short> fields[] = {
        {"007", 7},       {"1000", 1000},
        {"000", 0},       {"0", 0},
        {"-0", 0},        {"1", 1},
        {"999", 999},     {"65534", 65534},
        {"65535", 65535}, {"0000000000000000000000065535", 65535},
        {"+7", 7},        {"  7  ", 7},
        {"\t7", 7},       {"12abc", 12},
        {"0x10", 0},      {"010", 10}};
    for (const auto& [field, bootNum] : fields) {
        ExpectBootNum("messages." + field + ".1970-01-01.00:14:07.txt.xz", bootNum);
    }
    for (const char* name : {"messages.7.xz", "messages.7", "messages.7.", "anything.7", ".7"}) {
        ExpectBootNum(name, 7);
    }
}

TEST_F(NamesTest, AFieldThatIsNoBootNumberIsAFailure) {
    for (const std::string field :
         {"txt", "", " ", "-1", "-65535", "65536", "65537", "70000", "99999", "4294967297",
          "99999999999999999999", "abc", "x1", "-", "+", "--1", "+-1", "\xff", "%s%n"}) {
        SCOPED_TRACE(field);
        unsigned short bootNum = Untouched;
        EXPECT_FAILURE(LogFileUtils::GetFnBootNum("messages." + field + ".xz", bootNum));
        EXPECT_EQ(bootNum, 0);
        EXPECT_LOG(Error("StringToInt() failure on " + field + "."));
    }
}

TEST_F(NamesTest, ANameWithoutFieldsCountsAsBootZeroAndIsLogged) {
    for (const std::string name : {"notes", "messages", "messages.", "", ".", "7", "%s%n"}) {
        ExpectBootNum(name, 0);
        EXPECT_LOG(Error(name + " is not a logging archive file."));
    }
}

TEST_F(NamesTest, RotationsHaveTxtLastButOne) {
    for (const std::string name :
         {"messages.txt.0", "messages.txt.9", "messages.txt.12", "messages.txt.xz",
          "messages.txt.tmp", "messages.txt.a b", "messages.x.txt.0", "messages.txt.txt.0",
          "messages.007.1970-01-01.00:14:07.txt.xz", "messages.txt.0.", "messages.txt..",
          "messages.txt.TXT", "messages.txt.txt2"}) {
        EXPECT_TRUE(LogFileUtils::IsSyslogRotFn(name)) << name;
    }
}

TEST_F(NamesTest, EverythingElseIsNoRotation) {
    for (const std::string name :
         {"", ".", "..", "archive", "messages", "messages.", "messages.0", "messages..0",
          "messages.txt", "messages.txt.", "messages.txt.txt", "messages.0.txt", "messages.txt.0.1",
          "messages.txt.0.tmp", "messages.txt.0.xz", "messages.txt0", "txt.0"}) {
        EXPECT_FALSE(LogFileUtils::IsSyslogRotFn(name)) << name;
    }
    for (const std::string& field : {"TXT"s, "tx"s, "txtt"s, " txt"s, "txt\0"s, "log"s}) {
        const std::string name = "messages." + field + ".0";
        EXPECT_FALSE(LogFileUtils::IsSyslogRotFn(name)) << name;
    }
    for (const std::string stem : {"", "txt", "Messages", "message", "messages2", " messages",
                                   "messages/", "/perm/logs/syslog/messages"}) {
        const std::string name = stem + ".txt.0";
        EXPECT_FALSE(LogFileUtils::IsSyslogRotFn(name)) << name;
    }
}

TEST_F(NamesTest, WhatIsBuiltIsReadBack) {
    for (const unsigned bootNum : {1U, 9U, 10U, 99U, 100U, 999U, 1000U, 9999U, 65535U}) {
        const std::string name = Catalogue::ArchiveName(bootNum, "1970-01-01.00:00:59");
        EXPECT_TRUE(LogFileUtils::IsArchiveFileName(name)) << name;
        ExpectBootNum(name, static_cast<unsigned short>(bootNum));
    }
}

TEST_F(NamesTest, ByteOrderIsOldestFirstUpToBoot999) {
    Names names;
    for (unsigned bootNum = 1; bootNum <= 999; ++bootNum) {
        for (const char* time : {"1970-01-01.23:59:59", "1970-01-02.00:00:00"}) {
            names.push_back(Catalogue::ArchiveName(bootNum, time));
        }
    }
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
    EXPECT_LT(Catalogue::ArchiveName(1000, "1970-01-01.00:00:00"), names.back());
}

TEST_F(NamesTest, ANameThatCannotBeCutForLackOfMemoryIsLoggedAndIsNothing) {
    const std::string name = "messages.txt.xz";
    unsigned short bootNum = Untouched;
    {
        const ScarceMemory memory(0);
        EXPECT_FALSE(LogFileUtils::IsArchiveFileName(name));
        EXPECT_FALSE(LogFileUtils::IsSyslogRotFn(name));
        EXPECT_FAILURE(LogFileUtils::GetFnBootNum(name, bootNum));
    }
    EXPECT_EQ(bootNum, 0);
    const LogLine line{LOG_ERR, "Slice() failure on messages.txt.xz."};
    EXPECT_LOG(line, line, line);
}

}  // namespace
