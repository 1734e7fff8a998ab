// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Futils::PathExists and Futils::FileExists: neither a missing file nor any kind of file is an
// error.
#include <tuple>

#include "tests/support/ordinary_rights.h"
#include "tests/unit/futils/fixture.h"

namespace fs = std::filesystem;

namespace {

class ExistenceTest : public FutilsTest {
protected:
    // Expects that both answer no, and log the reason at Debug.
    void ExpectUntestable(const std::string& pfn) {
        SCOPED_TRACE(pfn);
        const std::string reason = Reason([&] { (void)fs::status(pfn); });
        EXPECT_FALSE(Futils::PathExists(pfn));
        ExpectLine(LOG_DEBUG, "PathExists(" + pfn + ") exception: " + reason);
        EXPECT_FALSE(Futils::FileExists(pfn));
        ExpectLine(LOG_DEBUG, "FileExists(" + pfn + ") exception: " + reason);
    }
};

TEST_F(ExistenceTest, EachAsksForItsOwnKindAndFollowsLinks) {
    MakeDir(folder, {{"file", "1"},
                     {"empty file", ""},
                     {"dir/", ""},
                     {"link to file@", "file"},
                     {"link to dir@", "dir"},
                     {"link to link to file@", "link to file"},
                     {"link to link to dir@", "link to dir"},
                     {"dangling link@", "nowhere"},
                     {"fifo?", ""},
                     {"link to fifo@", "fifo"},
                     {"link to device@", "/dev/null"}});

    const std::tuple<const char*, bool, bool> cases[] = {
        {"file", false, true},
        {"empty file", false, true},
        {"link to file", false, true},
        {"link to link to file", false, true},
        {"dir", true, false},
        {"dir/", true, false},
        {"dir/..", true, false},
        {"link to dir", true, false},
        {"link to dir/", true, false},
        {"link to link to dir", true, false},
        {"missing", false, false},
        {"missing/", false, false},
        {"missing/too", false, false},
        {"dangling link", false, false},
        {"dangling link/", false, false},
        {"file/", false, false},
        {"file/x", false, false},
        {"link to file/", false, false},
        {"fifo", false, false},
        {"link to fifo", false, false},
        {"link to device", false, false},
    };
    for (const auto& [name, isPath, isFile] : cases) {
        SCOPED_TRACE(name);
        EXPECT_EQ(Futils::PathExists(folder / name), isPath);
        EXPECT_EQ(Futils::FileExists(folder / name), isFile);
    }
    EXPECT_FALSE(Futils::PathExists(""));
    EXPECT_FALSE(Futils::FileExists(""));
}

TEST_F(ExistenceTest, WhatCannotBeTestedDoesNotExist) {
    MakeDir(folder, {{"loop@", "loop"}, {"closed/file", "1"}});
    fs::create_directory(folder / "closed" / "dir");
    ExpectUntestable(folder / "loop");
    ExpectUntestable(folder / "loop" / "inside");
    EXPECT_FALSE(Futils::FileExists(folder / std::string(255, 'n')));
    ExpectNoLines();
    ExpectUntestable(folder / std::string(256, 'n'));

    fs::permissions(folder / "closed", fs::perms::owner_read);
    const OrdinaryRights ordinary;
    ExpectUntestable(folder / "closed" / "file");
    ExpectUntestable(folder / "closed" / "dir");
}

TEST_F(ExistenceTest, AtTheUsualLevelTheyLogNothing) {
    Logging::SetLogLevel(Logging::SeverityInfo);
    fs::create_symlink("loop", folder / "loop");
    EXPECT_FALSE(Futils::PathExists(folder / "loop"));
    EXPECT_FALSE(Futils::FileExists(folder / "loop"));
}

}  // namespace
