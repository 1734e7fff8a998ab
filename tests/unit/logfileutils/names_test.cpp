// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The grammar of file names: what is an archive file, what a rotation, and of which boot.
#include <algorithm>

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
    const Names accepted = {
        "messages.007.1970-01-01.00:14:07.txt.xz",
        "messages.1000.1970-01-01.00:14:07.txt.xz",
        "messages.000.1970-01-01.00:00:00.txt.xz",
        "messages.xz",
        "messages.txt.xz",
        "messages.anything.xz",
        "messages.007.a b\n\xff.xz",
        "messages..xz",
        "messages.xz.xz",
        "messages.007.1970-01-01.00:14:07.txt.xz.",  // nothing follows the last dot
    };
    for (const std::string& name : accepted) {
        EXPECT_TRUE(LogFileUtils::IsArchiveFileName(name)) << name;
    }
    ExpectNoLines();
}

TEST_F(NamesTest, EverythingElseIsNoArchiveFile) {
    const Names rejected = {
        "",
        ".",
        "..",
        "...",
        "messages",
        "messages.",
        "xz",
        ".xz",
        "..xz",
        "xz.messages",
        "messages.txt",
        "messages.txt.tmp",
        "messages.007.1970-01-01.00:14:07.txt",
        "messages.007.1970-01-01.00:14:07.txt.gz",
        "messages.007.1970-01-01.00:14:07.txt.xz.tmp",
        "messages.007.1970-01-01.00:14:07.txt.xz..",
        "messages.007.1970-01-01.00:14:07.txt.xz~",
        "messages.007.1970-01-01.00:14:07.txt.xz\0"s,
        "messages.007.1970-01-01.00:14:07.txt.xz ",
        "messages.007.1970-01-01.00:14:07.txt.xzz",
        "messages.007.1970-01-01.00:14:07.txt.x",
        "messages.007.1970-01-01.00:14:07.txt.XZ",
        "messages.007.1970-01-01.00:14:07.txt.lxz",
        "messages.007.1970-01-01.00:14:07.txt. xz",
        "messages.007.1970-01-01.00:14:07.txtxz",
        "Messages.007.1970-01-01.00:14:07.txt.xz",
        "message.007.1970-01-01.00:14:07.txt.xz",
        "messages2.007.1970-01-01.00:14:07.txt.xz",
        " messages.007.1970-01-01.00:14:07.txt.xz",
        "messages .007.1970-01-01.00:14:07.txt.xz",
        ".messages.007.1970-01-01.00:14:07.txt.xz",
        "messages/.007.1970-01-01.00:14:07.txt.xz",
        "messages\0.007.1970-01-01.00:14:07.txt.xz"s,
        "/perm/logs/syslog/archive/messages.007.1970-01-01.00:14:07.txt.xz",
        "./messages.007.1970-01-01.00:14:07.txt.xz",
        "notes",
        "zzz",
    };
    for (const std::string& name : rejected) {
        EXPECT_FALSE(LogFileUtils::IsArchiveFileName(name)) << name;
    }
    ExpectNoLines();
}

TEST_F(NamesTest, TheBootNumberIsTheSecondFieldOfAnyName) {
    const struct {
        const char* name;
        unsigned short bootNum;
    } cases[] = {
        {"messages.007.1970-01-01.00:14:07.txt.xz", 7},
        {"messages.1000.1970-01-01.00:14:07.txt.xz", 1000},
        {"messages.000.1970-01-01.00:14:07.txt.xz", 0},
        {"messages.0.xz", 0},
        {"messages.-0.xz", 0},
        {"messages.1.xz", 1},
        {"messages.999.xz", 999},
        {"messages.65534.xz", 65534},
        {"messages.65535.xz", 65535},
        {"messages.0000000000000000000000065535.xz", 65535},
        {"messages.+7.xz", 7},
        {"messages.  7  .xz", 7},
        {"messages.\t7.xz", 7},
        {"messages.12abc.xz", 12},
        {"messages.0x10.xz", 0},
        {"messages.010.xz", 10},
        {"messages.7", 7},
        {"messages.7.", 7},
        {"anything.7", 7},
        {".7", 7},
    };
    for (const auto& c : cases) ExpectBootNum(c.name, c.bootNum);
    ExpectNoLines();
}

TEST_F(NamesTest, AFieldThatIsNoBootNumberIsAFailure) {
    const char* const fields[] = {"txt",
                                  "",
                                  " ",
                                  "-1",
                                  "-65535",
                                  "65536",
                                  "65537",
                                  "70000",
                                  "99999",
                                  "4294967297",
                                  "99999999999999999999",
                                  "abc",
                                  "x1",
                                  "-",
                                  "+",
                                  "--1",
                                  "+-1",
                                  "\xff",
                                  "%s%n"};
    for (const std::string field : fields) {
        SCOPED_TRACE(field);
        unsigned short bootNum = Untouched;
        EXPECT_FAILURE(LogFileUtils::GetFnBootNum("messages." + field + ".xz", bootNum));
        EXPECT_EQ(bootNum, 0);
        ExpectLines({{LOG_ERR, "StringToInt() failure on " + field + "."}});
    }
}

TEST_F(NamesTest, ANameWithoutFieldsCountsAsBootZeroAndIsTold) {
    for (const std::string name : {"notes", "messages", "messages.", "", ".", "7", "%s%n"}) {
        ExpectBootNum(name, 0);
        ExpectLines({{LOG_ERR, name + " is not a logging archive file."}});
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
    ExpectNoLines();
}

TEST_F(NamesTest, EverythingElseIsNoRotation) {
    const Names rejected = {
        "",
        ".",
        "..",
        "messages",
        "messages.",
        "messages.0",
        "messages..0",
        "messages.txt",
        "messages.txt.",
        "messages.txt.txt",
        "messages.0.txt",
        "messages.txt.0.1",
        "messages.txt.0.tmp",
        "messages.txt.0.xz",
        "messages.txt0",
        "messages.TXT.0",
        "messages.tx.0",
        "messages.txtt.0",
        "messages. txt.0",
        "txt.0",
        ".txt.0",
        "txt.txt.0",
        "Messages.txt.0",
        "message.txt.0",
        "messages2.txt.0",
        " messages.txt.0",
        "messages/.txt.0",
        "messages.log.0",
        "/perm/logs/syslog/messages.txt.0",
        "messages.txt\0.0"s,
        "archive",
    };
    for (const std::string& name : rejected) {
        EXPECT_FALSE(LogFileUtils::IsSyslogRotFn(name)) << name;
    }
    ExpectNoLines();
}

TEST_F(NamesTest, WhatIsBuiltIsReadBack) {
    for (const unsigned bootNum : {1U, 9U, 10U, 99U, 100U, 999U, 1000U, 9999U, 65535U}) {
        const std::string name = ArchName(bootNum, 59);
        EXPECT_TRUE(LogFileUtils::IsArchiveFileName(name)) << name;
        ExpectBootNum(name, static_cast<unsigned short>(bootNum));
    }
    ExpectNoLines();
}

TEST_F(NamesTest, ByteOrderIsOldestFirstUpToBoot999) {
    Names names;
    for (unsigned bootNum = 1; bootNum <= 999; ++bootNum) {
        for (const unsigned second : {0U, 9U, 10U, 59U}) names.push_back(ArchName(bootNum, second));
    }
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
    EXPECT_LT(ArchName(1000), names.back());
}

TEST_F(NamesTest, ANameThatCannotBeCutForLackOfMemoryIsToldAndIsNothing) {
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
    ExpectLines({line, line, line});
}

}  // namespace
