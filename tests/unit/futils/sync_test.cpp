// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Futils::Sync, which keeps an archived log from being lost with the power.
#include <sys/stat.h>

#include <cerrno>

#include "tests/support/mounts.h"
#include "tests/support/ordinary_rights.h"
#include "tests/unit/futils/fixture.h"

namespace fs = std::filesystem;

namespace {

class SyncTest : public FutilsTest {
protected:
    using Calls = std::vector<std::string>;

    void ExpectFailure(const fs::path& pfn, const std::string& reason) {
        SCOPED_TRACE(pfn);
        EXPECT_FAILURE(Futils::Sync(pfn));
        ExpectError("Unable to sync " + pfn.string() + ": " + reason);
    }
};

TEST_F(SyncTest, SyncsJustTheFileOrFolderThatIsNamed) {
    MakeDir(folder, {{"a b", "1"}, {"other", "1"}, {"link@", "a b"}});
    EXPECT_SUCCESS(Futils::Sync(folder / "a b"));
    EXPECT_SUCCESS(Futils::Sync(folder));
    EXPECT_SUCCESS(Futils::Sync(folder / "link"));
    EXPECT_EQ(Faults::TakeCalls(),
              (Calls{"fsync /perm/futils/a b", "fsync /perm/futils", "fsync /perm/futils/a b"}));
}

TEST_F(SyncTest, DescriptorZeroIsAsGoodAsAny) {
    WriteFile(folder / "a", "1");
    const FreeDescriptorZero zero;
    errno = ENOENT;
    EXPECT_SUCCESS(Futils::Sync(folder / "a"));
    EXPECT_EQ(Faults::TakeCalls(), Calls{"fsync /perm/futils/a"});
}

TEST_F(SyncTest, WhatDoesNotExistHasNothingToLose) {
    fs::create_symlink("nowhere", folder / "dangling");
    for (const fs::path& pfn :
         {folder / "missing", folder / "missing" / "too", folder / "dangling"}) {
        SCOPED_TRACE(pfn);
        EXPECT_SUCCESS(Futils::Sync(pfn));
    }
    EXPECT_EQ(Faults::TakeCalls(), Calls());
}

TEST_F(SyncTest, WritesNothingSoThatReadOnlyFilesAreFine) {
    WriteFile(folder / "a", "1");
    const Mounted readOnly = Mounted::ReadOnly(folder);
    EXPECT_SUCCESS(Futils::Sync(folder / "a"));
    EXPECT_SUCCESS(Futils::Sync(folder));
}

TEST_F(SyncTest, WhatCannotBeOpenedIsAFailure) {
    MakeDir(folder, {{"file", "1"}, {"loop@", "loop"}});
    ExpectFailure(folder / "file" / "x", "Not a directory");
    ExpectFailure(folder / "loop", "Too many levels of symbolic links");
    ExpectFailure(folder / std::string(256, 'n'), "File name too long");

    WriteFile(folder / "secret", "1");
    fs::permissions(folder / "secret", fs::perms::none);
    const OrdinaryRights ordinary;
    ExpectFailure(folder / "secret", "Permission denied");
}

TEST_F(SyncTest, AMediumErrorIsAFailure) {
    WriteFile(folder / "file", "1");
    Faults::Fail("fsync", EIO);
    ExpectFailure(folder / "file", "Input/output error");
    ExpectFailure(folder, "Input/output error");
    // Only a missing path is excused, not a call that gives the same reason.
    Faults::Fail("fsync", ENOENT);
    ExpectFailure(folder / "file", "No such file or directory");
}

TEST_F(SyncTest, WhatItsFileSystemCannotSyncIsASuccess) {
    WriteFile(folder / "file", "1");
    Faults::Fail("fsync", EINVAL);
    EXPECT_SUCCESS(Futils::Sync(folder / "file"));
}

TEST_F(SyncTest, AFifoIsNoTrap) {
    ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
    EXPECT_SUCCESS(Futils::Sync(folder / "fifo"));
}

}  // namespace
