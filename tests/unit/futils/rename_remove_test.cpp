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

class RenameRemoveTest : public FutilsTest {
protected:
    // Expect a failure that is logged in one line and changes nothing.
    void ExpectRenameFails(const fs::path& from, const fs::path& to) {
        SCOPED_TRACE(from.string() + " -> " + to.string());
        const Dir before = ReadDir(folder);
        EXPECT_FAILURE(Futils::Rename(from, to));
        ExpectError("Rename failure, reason: " + Reason([&] { fs::rename(from, to); }));
        EXPECT_EQ(ReadDir(folder), before);
    }
    void ExpectRemovalFails(const fs::path& pfn) {
        SCOPED_TRACE(pfn);
        const Dir before = ReadDir(folder);
        EXPECT_FAILURE(Futils::Remove(pfn));
        ExpectError(RemovalFailure(pfn));
        EXPECT_EQ(ReadDir(folder), before);
    }

    const fs::path file = folder / "file";
};

using RenameTest = RenameRemoveTest;
using RemoveTest = RenameRemoveTest;

TEST_F(RenameTest, MovesWhatIsNamedAndReplacesAFile) {
    MakeDir(folder, {{"file", "1"},
                     {"old", "2"},
                     {"dir/inside", "3"},
                     {"target", "4"},
                     {"link@", "target"},
                     {"dangling@", "nowhere"}});
    const std::pair<const char*, const char*> names[] = {
        {"file", "new"}, {"new", "old"},    {"old", "old"},
        {"dir", "dir2"}, {"link", "link2"}, {"dangling", "dangling2"}};
    for (const auto& [from, to] : names) EXPECT_SUCCESS(Futils::Rename(folder / from, folder / to));
    EXPECT_DIR(folder, {{"old", "1"},
                        {"dir2/", ""},
                        {"target", "4"},
                        {"link2@", "target"},
                        {"dangling2@", "nowhere"}});
    EXPECT_DIR(folder / "dir2", {{"inside", "3"}});
}

TEST_F(RenameTest, WhatTheFileSystemRefusesIsLogged) {
    MakeDir(folder, {{"file", "1"}, {"full/inside", "2"}, {"empty/", ""}, {"loop@", "loop"}});
    const std::pair<const char*, const char*> cases[] = {
        {"missing", "new"},      {"%s%n", "new"},        {"file", "missing/new"},
        {"file", "full"},        {"file", "empty"},      {"full", "file"},
        {"empty", "full"},       {"full", "full/inner"}, {"file", "file/new"},
        {"file/", "new"},        {"file", "new/"},       {"file/x", "new"},
        {"loop/x", "new"},       {"file", "loop/new"},   {"missing", "full/new"},
        {"full/missing", "new"},
    };
    for (const auto& [from, to] : cases) ExpectRenameFails(folder / from, folder / to);
    ExpectRenameFails(file, folder / std::string(256, 'n'));
    ExpectRenameFails("", folder / "new");
    ExpectRenameFails(file, "");
}

TEST_F(RenameTest, ToAnotherFileSystemFails) {
    MakeDir(folder, {{"file", "1"}, {"other/", ""}});
    const Mounted other = Mounted::Tmpfs(folder / "other", "64k");
    ExpectRenameFails(file, folder / "other" / "file");
}

TEST_F(RemoveTest, TakesJustWhatIsNamedIfItExists) {
    MakeDir(folder, {{"file", "1"},
                     {"target", "2"},
                     {"empty/", ""},
                     {"link@", "target"},
                     {"dangling@", "nowhere"},
                     {"loop@", "loop"}});
    for (const char* name :
         {"file", "empty", "link", "dangling", "loop", "missing", "missing/too"}) {
        EXPECT_SUCCESS(Futils::Remove(folder / name)) << name;
    }
    EXPECT_SUCCESS(Futils::Remove(""));
    EXPECT_DIR(folder, {{"target", "2"}});
}

TEST_F(RemoveTest, WhatTheFileSystemRefusesIsLogged) {
    MakeDir(folder, {{"file", "1"}, {"full/inside", "2"}, {"loop@", "loop"}});
    for (const char* name : {"full", "file/x", "file/", "loop/x"})
        ExpectRemovalFails(folder / name);
    ExpectRemovalFails(folder / std::string(256, 'n'));
    EXPECT_DIR(folder / "full", {{"inside", "2"}});
}

TEST_F(RenameRemoveTest, BothFailOnAReadOnlyFileSystem) {
    WriteFile(file, "1");
    const Mounted readOnly = Mounted::ReadOnly(folder);
    ExpectRenameFails(file, folder / "new");
    ExpectRemovalFails(file);
}

TEST_F(RenameRemoveTest, BothFailForAFileInUseByAMount) {
    MakeDir(folder, {{"file", "1"}, {"used", "2"}});
    const Mounted over = Mounted::Over(file, folder / "used");
    ExpectRenameFails(folder / "used", folder / "new");
    ExpectRenameFails(file, folder / "used");
    ExpectRemovalFails(folder / "used");
}

TEST_F(RenameRemoveTest, BothFailWithoutPermission) {
    WriteFile(file, "1");
    fs::permissions(folder, fs::perms::owner_read | fs::perms::owner_exec);
    const OrdinaryRights ordinary;
    ExpectRenameFails(file, folder / "new");
    ExpectRemovalFails(file);
}

TEST_F(RenameRemoveTest, BothLogAMediumError) {
    WriteFile(file, "1");
    Faults::Fail("rename", EIO);
    ExpectRenameFails(file, folder / "new");
    Faults::Fail("remove", EIO);
    ExpectRemovalFails(file);
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

}  // namespace
