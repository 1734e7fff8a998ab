// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Futils::CopyFile.
#include <tuple>

#include "tests/support/mounts.h"
#include "tests/support/ordinary_rights.h"
#include "tests/unit/futils/fixture.h"

namespace fs = std::filesystem;

namespace {

class CopyFileTest : public FutilsTest {
protected:
    // Expects a failure that is logged in one line, with the source's bare name `shown`, and leaves
    // everything as it was.
    void ExpectFailure(const std::string& from, const std::string& to, const std::string& shown) {
        SCOPED_TRACE(from + " -> " + to);
        const Dir before = ReadDir(folder);
        EXPECT_FAILURE(Futils::CopyFile(from, to));
        ExpectError("Unable to copy " + shown + ", reason: " + Reason([&] { fs::copy(from, to); }));
        EXPECT_EQ(ReadDir(folder), before);
    }
};

TEST_F(CopyFileTest, CopiesEveryByteAndKeepsTheSource) {
    for (const std::string& content :
         {std::string(), std::string("1"), std::string("a\0b\r\n\xff", 6), Noise(1 << 20)}) {
        WriteFile(folder / "from", content);
        EXPECT_SUCCESS(Futils::CopyFile(folder / "from", folder / "to"));
        EXPECT_TRUE(ReadDir(folder) == (Dir{{"from", content}, {"to", content}}));
        fs::remove(folder / "to");
    }
}

TEST_F(CopyFileTest, ALinkIsFollowed) {
    MakeDir(folder, {{"target", "1"}, {"link@", "target"}});
    EXPECT_SUCCESS(Futils::CopyFile(folder / "link", folder / "to"));
    EXPECT_DIR(folder, {{"target", "1"}, {"link@", "target"}, {"to", "1"}});
}

TEST_F(CopyFileTest, AnExistingDestinationIsNeverOverwrittenNorADanglingLinkFollowed) {
    MakeDir(folder, {{"from", "1"}, {"to", "22"}, {"dangling@", "elsewhere"}});
    for (const char* to : {"to", "from", "dangling"}) {
        ExpectFailure(folder / "from", folder / to, "from");
    }
}

TEST_F(CopyFileTest, WhatTheFileSystemRefusesIsLogged) {
    MakeDir(folder, {{"file", "1"},
                     {"dir/inside", "2"},
                     {"loop@", "loop"},
                     {"dangling@", "nowhere"},
                     {"fifo?", ""}});

    const std::string tooLong(256, 'n');
    const std::tuple<const char*, std::string, const char*> cases[] = {
        {"missing", "new", "missing"},
        {"missing/deep", "new", "deep"},
        {"dir/missing", "new", "missing"},
        {"%s%n", "new", "%s%n"},
        {"a \"b\" c", "new", "a \"b\" c"},
        {"dangling", "new", "dangling"},
        {"loop", "new", "loop"},
        {"file/x", "new", "x"},
        {"file/", "new", ""},
        {"fifo", "new", "fifo"},
        {"file", "missing/new", "file"},
        {"file", "file/new", "file"},
        {"file", "loop", "file"},
        {"file", "loop/new", "file"},
        {"file", "fifo", "file"},
        {"dir", "file", "dir"},
        {"file", tooLong, "file"},
    };
    for (const auto& [from, to, shown] : cases) ExpectFailure(folder / from, folder / to, shown);
    ExpectFailure("", folder / "new", "");
    ExpectFailure(folder / "file", "", "file");
}

TEST_F(CopyFileTest, OntoAReadOnlyFileSystemFails) {
    WriteFile(folder / "from", "1");
    const Mounted readOnly = Mounted::ReadOnly(folder);
    ExpectFailure(folder / "from", folder / "to", "from");
}

TEST_F(CopyFileTest, AnUnreadableSourceFails) {
    WriteFile(folder / "secret", "1");
    fs::permissions(folder / "secret", fs::perms::none);
    const OrdinaryRights ordinary;
    const std::string from = folder / "secret";
    const std::string to = folder / "to";
    EXPECT_FAILURE(Futils::CopyFile(from, to));
    ExpectError("Unable to copy secret, reason: " + Reason([&] { fs::copy(from, to); }));
    EXPECT_FALSE(fs::exists(to));
}

TEST_F(CopyFileTest, OntoAFullFileSystemFailsAndLeavesWhatWasCopied) {
    const std::string content = Noise(100 << 10);
    WriteFile(folder / "from", content);
    fs::create_directory(folder / "small");
    const Mounted small = Mounted::Tmpfs(folder / "small", "64k");
    const fs::path to = folder / "small" / "to";
    const std::string reason = Reason([&] { fs::copy(folder / "from", to); });
    fs::remove(to);

    EXPECT_FAILURE(Futils::CopyFile(folder / "from", to));
    ExpectError("Unable to copy from, reason: " + reason);
    EXPECT_EQ(ReadFile(to), content.substr(0, 64 << 10));
}

}  // namespace
