// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Futils::Rename and Futils::Remove.
#include <cerrno>
#include <utility>

#include "futils/rename.h"
#include "tests/support/mounts.h"
#include "tests/support/ordinary_rights.h"
#include "tests/unit/futils/fixture.h"

namespace fs = std::filesystem;

namespace {

class RenameTest : public FutilsTest {
protected:
    // Expects a failure that is logged in one line and moves nothing.
    void ExpectFailure(const fs::path& from, const fs::path& to) {
        SCOPED_TRACE(from.string() + " -> " + to.string());
        const Dir before = ReadDir(folder);
        EXPECT_FAILURE(Futils::Rename(from, to));
        ExpectError("Rename failure, reason: " + Reason([&] { fs::rename(from, to); }));
        EXPECT_EQ(ReadDir(folder), before);
    }
};

TEST_F(RenameTest, MovesAFile) {
    WriteFile(folder / "a", "1");
    EXPECT_SUCCESS(Futils::Rename(folder / "a", folder / "b"));
    EXPECT_DIR(folder, {{"b", "1"}});
}

TEST_F(RenameTest, ReplacesAnExistingFile) {
    MakeDir(folder, {{"a", "1"}, {"b", "2"}});
    EXPECT_SUCCESS(Futils::Rename(folder / "a", folder / "b"));
    EXPECT_DIR(folder, {{"b", "1"}});
}

TEST_F(RenameTest, MovesAFolderWithItsContent) {
    WriteFile(folder / "a" / "inside", "1");
    EXPECT_SUCCESS(Futils::Rename(folder / "a", folder / "b"));
    EXPECT_DIR(folder / "b", {{"inside", "1"}});
}

TEST_F(RenameTest, MovesALinkAndNotItsTarget) {
    MakeDir(folder, {{"target", "1"}, {"link@", "target"}, {"dangling@", "nowhere"}});
    EXPECT_SUCCESS(Futils::Rename(folder / "link", folder / "link2"));
    EXPECT_SUCCESS(Futils::Rename(folder / "dangling", folder / "dangling2"));
    EXPECT_DIR(folder, {{"target", "1"}, {"link2@", "target"}, {"dangling2@", "nowhere"}});
}

TEST_F(RenameTest, OntoItselfChangesNothing) {
    WriteFile(folder / "a", "1");
    EXPECT_SUCCESS(Futils::Rename(folder / "a", folder / "a"));
    EXPECT_DIR(folder, {{"a", "1"}});
}

TEST_F(RenameTest, WhatTheFileSystemRefusesIsLogged) {
    MakeDir(folder, {{"file", "1"}, {"full/inside", "2"}, {"empty/", ""}, {"loop@", "loop"}});

    const std::string tooLong(256, 'n');
    const std::pair<const char*, std::string> cases[] = {
        {"missing", "new"},      {"%s%n", "new"},         {"file", "missing/new"},
        {"file", "full"},        {"file", "empty"},       {"full", "file"},
        {"empty", "full"},       {"full", "full/inner"},  {"file", "file/new"},
        {"file/", "new"},        {"file", "new/"},        {"file/x", "new"},
        {"loop/x", "new"},       {"file", "loop/new"},    {"file", tooLong},
        {"missing", "full/new"}, {"full/missing", "new"},
    };
    for (const auto& [from, to] : cases) ExpectFailure(folder / from, folder / to);
    ExpectFailure("", folder / "new");
    ExpectFailure(folder / "file", "");
}

TEST_F(RenameTest, ToAnotherFileSystemFails) {
    MakeDir(folder, {{"file", "1"}, {"other/", ""}});
    const Mounted other = Mounted::Tmpfs(folder / "other", "64k");
    ExpectFailure(folder / "file", folder / "other" / "file");
}

TEST_F(RenameTest, OnAReadOnlyFileSystemFails) {
    WriteFile(folder / "file", "1");
    const Mounted readOnly = Mounted::ReadOnly(folder);
    ExpectFailure(folder / "file", folder / "new");
}

TEST_F(RenameTest, OfOrOntoAFileInUseByAMountFails) {
    MakeDir(folder, {{"file", "1"}, {"used", "2"}});
    const Mounted over = Mounted::Over(folder / "file", folder / "used");
    ExpectFailure(folder / "used", folder / "new");
    ExpectFailure(folder / "file", folder / "used");
}

TEST_F(RenameTest, WithoutPermissionFails) {
    WriteFile(folder / "file", "1");
    fs::permissions(folder, fs::perms::owner_read | fs::perms::owner_exec);
    const OrdinaryRights ordinary;
    ExpectFailure(folder / "file", folder / "new");
}

TEST_F(RenameTest, AMediumErrorIsLogged) {
    WriteFile(folder / "file", "1");
    Faults::Fail("rename", EIO);
    ExpectFailure(folder / "file", folder / "new");
}

// With and without the kernel's help.
class RenameNoReplaceTest : public FutilsTest, public testing::WithParamInterface<int> {
protected:
    void SetUp() override {
        if (GetParam() != 0) Faults::Fail("renameat2", GetParam());
    }
};
INSTANTIATE_TEST_SUITE_P(, RenameNoReplaceTest, testing::Values(0, EINVAL, ENOSYS));

using Futils::RenameResult;

TEST_P(RenameNoReplaceTest, Renames) {
    WriteFile(folder / "a", "1");
    EXPECT_EQ(Futils::RenameNoReplace(folder / "a", folder / "b"), RenameResult::Renamed);
    EXPECT_DIR(folder, {{"b", "1"}});
}

TEST_P(RenameNoReplaceTest, ReplacesNothing) {
    MakeDir(folder, {{"a", "1"}, {"b", "2"}, {"c@", "nowhere"}, {"d/", ""}});
    for (const char* name : {"b", "c", "d"}) {
        SCOPED_TRACE(name);
        EXPECT_EQ(Futils::RenameNoReplace(folder / "a", folder / name), RenameResult::TargetExists);
    }
    EXPECT_DIR(folder, {{"a", "1"}, {"b", "2"}, {"c@", "nowhere"}, {"d/", ""}});
}

TEST_P(RenameNoReplaceTest, LogsAFailureAsRenameDoes) {
    EXPECT_EQ(Futils::RenameNoReplace(folder / "a", folder / "b"), RenameResult::Failed);
    ExpectError("Rename failure, reason: " +
                Reason([this] { fs::rename(folder / "a", folder / "b"); }));
    EXPECT_EQ(Futils::TryRenameNoReplace(folder / "a", folder / "b"), ENOENT);
}

class RemoveTest : public FutilsTest {
protected:
    // Expects a failure that is logged in one line and removes nothing.
    void ExpectFailure(const fs::path& pfn) {
        SCOPED_TRACE(pfn);
        const Dir before = ReadDir(folder);
        EXPECT_FAILURE(Futils::Remove(pfn));
        ExpectError("Remove failure for " + pfn.string() + ": " + Reason([&] { fs::remove(pfn); }));
        EXPECT_EQ(ReadDir(folder), before);
    }
};

TEST_F(RemoveTest, TakesJustTheFileThatIsNamed) {
    MakeDir(folder, {{"a", "1"}, {"b", "2"}});
    EXPECT_SUCCESS(Futils::Remove(folder / "a"));
    EXPECT_DIR(folder, {{"b", "2"}});
}

TEST_F(RemoveTest, TakesAnEmptyFolder) {
    fs::create_directory(folder / "empty");
    EXPECT_SUCCESS(Futils::Remove(folder / "empty"));
    EXPECT_DIR(folder, {});
}

TEST_F(RemoveTest, TakesALinkAndNotItsTarget) {
    MakeDir(folder,
            {{"target", "1"}, {"link@", "target"}, {"dangling@", "nowhere"}, {"loop@", "loop"}});
    for (const char* link : {"link", "dangling", "loop"}) {
        SCOPED_TRACE(link);
        EXPECT_SUCCESS(Futils::Remove(folder / link));
    }
    EXPECT_DIR(folder, {{"target", "1"}});
}

TEST_F(RemoveTest, OfWhatDoesNotExistIsASilentSuccess) {
    EXPECT_SUCCESS(Futils::Remove(folder / "missing"));
    EXPECT_SUCCESS(Futils::Remove(folder / "missing" / "too"));
    EXPECT_SUCCESS(Futils::Remove(""));
}

TEST_F(RemoveTest, WhatTheFileSystemRefusesIsLogged) {
    MakeDir(folder, {{"file", "1"}, {"full/inside", "2"}, {"loop@", "loop"}});
    const std::string tooLong(256, 'n');
    for (const std::string& name : {std::string("full"), std::string("file/x"),
                                    std::string("file/"), std::string("loop/x"), tooLong}) {
        ExpectFailure(folder / name);
    }
    EXPECT_DIR(folder / "full", {{"inside", "2"}});
}

TEST_F(RemoveTest, OnAReadOnlyFileSystemFails) {
    WriteFile(folder / "file", "1");
    const Mounted readOnly = Mounted::ReadOnly(folder);
    ExpectFailure(folder / "file");
}

TEST_F(RemoveTest, OfAFileInUseByAMountFails) {
    MakeDir(folder, {{"file", "1"}, {"used", "2"}});
    const Mounted over = Mounted::Over(folder / "file", folder / "used");
    ExpectFailure(folder / "used");
}

TEST_F(RemoveTest, WithoutPermissionFails) {
    WriteFile(folder / "file", "1");
    fs::permissions(folder, fs::perms::owner_read | fs::perms::owner_exec);
    const OrdinaryRights ordinary;
    ExpectFailure(folder / "file");
}

TEST_F(RemoveTest, AMediumErrorIsLogged) {
    WriteFile(folder / "file", "1");
    Faults::Fail("remove", EIO);
    ExpectFailure(folder / "file");
}

}  // namespace
