// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Futils::PathExists and Futils::FileExists, which answer the question asked: nothing that exists
// or not, and no kind of file, is an error to them.
#include <sys/stat.h>

#include <functional>

#include "tests/support/ordinary_rights.h"
#include "tests/unit/futils/fixture.h"

namespace fs = std::filesystem;

namespace {

class ExistenceTest : public FutilsTest {
protected:
    // Expects that both answer no, and tell the reason at Debug and at no higher level.
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
    WriteFile(folder / "file", "1");
    WriteFile(folder / "empty file");
    fs::create_directory(folder / "dir");
    fs::create_symlink("file", folder / "link to file");
    fs::create_symlink("dir", folder / "link to dir");
    fs::create_symlink("link to file", folder / "link to link to file");
    fs::create_symlink("link to dir", folder / "link to link to dir");
    fs::create_symlink("nowhere", folder / "dangling link");
    ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
    fs::create_symlink("fifo", folder / "link to fifo");
    fs::create_symlink("/dev/null", folder / "link to device");

    const struct {
        const char* name;
        bool isPath;
        bool isFile;
    } cases[] = {
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
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(Futils::PathExists(folder / c.name), c.isPath);
        EXPECT_EQ(Futils::FileExists(folder / c.name), c.isFile);
    }
    EXPECT_FALSE(Futils::PathExists(""));
    EXPECT_FALSE(Futils::FileExists(""));
    ExpectNoLines();
}

TEST_F(ExistenceTest, ALinkThatLeadsBackToItselfCannotBeTested) {
    fs::create_symlink("loop", folder / "loop");
    ExpectUntestable(folder / "loop");
    ExpectUntestable(folder / "loop" / "inside");
}

TEST_F(ExistenceTest, ANameLongerThanTheFileSystemAllowsCannotBeTested) {
    EXPECT_FALSE(Futils::FileExists(folder / std::string(255, 'n')));
    ExpectNoLines();
    ExpectUntestable(folder / std::string(256, 'n'));
}

TEST_F(ExistenceTest, AFileInAFolderThatMayNotBeSearchedCannotBeTested) {
    WriteFile(folder / "closed" / "file", "1");
    fs::create_directory(folder / "closed" / "dir");
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
    ExpectNoLines();
}

}  // namespace
