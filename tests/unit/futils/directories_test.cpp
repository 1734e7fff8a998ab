// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Creating, measuring and listing folders.
#include <dlfcn.h>
#include <sys/stat.h>

#include <cerrno>
#include <functional>
#include <utility>

#include "tests/support/mounts.h"
#include "tests/support/ordinary_rights.h"
#include "tests/unit/futils/fixture.h"

namespace fs = std::filesystem;

namespace {

std::function<void()> beforeNextMkdir;

}  // namespace

// Another process may be faster; no mount can show that.
extern "C" int mkdir(const char* path, mode_t mode) noexcept {
    static auto* const real =
        reinterpret_cast<int (*)(const char*, mode_t)>(dlsym(RTLD_NEXT, "mkdir"));
    if (beforeNextMkdir) std::exchange(beforeNextMkdir, nullptr)();
    return real(path, mode);
}

namespace {

class CreateTest : public FutilsTest {
protected:
    // Expects CreateDir to fail with one line and to change nothing.
    void ExpectDirFails(const std::string& dir) {
        SCOPED_TRACE(dir);
        const Dir before = ReadDir(folder);
        EXPECT_FAILURE(Futils::CreateDir(dir));
        ExpectError("Exception in CreateDir(" + dir +
                    "): " + Reason([&] { fs::create_directory(dir); }));
        EXPECT_EQ(ReadDir(folder), before);
    }

    // Expects CreatePath to fail with both lines and to change nothing.
    void ExpectPathFails(const std::string& dir, int result,
                         const std::string& error = "Numerical argument out of domain") {
        SCOPED_TRACE(dir);
        Faults::OnCall("waitpid", [] { errno = EDOM; });
        const Dir before = ReadDir(folder);
        EXPECT_FAILURE(Futils::CreatePath(dir));
        EXPECT_LOG(Error("Unable to 'mkdir -p " + dir + "'.  Result: " + std::to_string(result) +
                         ", Error: '" + error + "'"),
                   Error("Unable to 'mkdir -p " + dir + "'."));
        EXPECT_EQ(ReadDir(folder), before);
    }
};

using CreateDirTest = CreateTest;
using CreatePathTest = CreateTest;

TEST_F(CreateTest, AnExistingFolderIsASuccessThatTouchesNothing) {
    MakeDir(folder, {{"dir/inside", "1"}, {"link@", "dir"}});
    const Mounted readOnly = Mounted::ReadOnly(folder);
    bool tried = false;
    beforeNextMkdir = [&] { tried = true; };
    for (const char* name : {"dir", "dir/", "link"}) {
        EXPECT_SUCCESS(Futils::CreateDir(folder / name));
        EXPECT_SUCCESS(Futils::CreatePath(folder / name));
    }
    beforeNextMkdir = nullptr;
    EXPECT_FALSE(tried);
    EXPECT_EQ(Faults::TakeCalls(), std::vector<std::string>());
    EXPECT_DIR(folder / "dir", {{"inside", "1"}});
}

TEST_F(CreateTest, OnAReadOnlyFileSystemFails) {
    const Mounted readOnly = Mounted::ReadOnly(folder);
    ExpectDirFails(folder / "new");
    ExpectPathFails(folder / "new", 256);
}

TEST_F(CreateDirTest, CreatesOneLevel) {
    EXPECT_SUCCESS(Futils::CreateDir(folder / "new"));
    EXPECT_SUCCESS(Futils::CreateDir(folder / "new" / "inner"));
    EXPECT_SUCCESS(Futils::CreateDir(folder / "a 'b' \"c\" $d\n\xff"));
    EXPECT_DIR(folder, {{"new/", ""}, {"a 'b' \"c\" $d\n\xff/", ""}});
    EXPECT_DIR(folder / "new", {{"inner/", ""}});
}

TEST_F(CreateDirTest, WhatTheFileSystemRefusesIsLogged) {
    MakeDir(folder, {{"file", "1"}, {"dangling@", "nowhere"}, {"link to file@", "file"}});
    for (const char* name :
         {"missing/new", "file", "file/new", "dangling", "dangling/new", "link to file"}) {
        ExpectDirFails(folder / name);
    }
    ExpectDirFails("");
}

TEST_F(CreateDirTest, WhatCannotBeTestedIsTriedAndLogged) {
    fs::create_symlink("loop", folder / "loop");
    for (const std::string dir : {folder / "loop" / "new", folder / std::string(256, 'n')}) {
        const std::string untestable = Reason([&] { (void)fs::status(dir); });
        const std::string failure = Reason([&] { fs::create_directory(dir); });
        EXPECT_FAILURE(Futils::CreateDir(dir));
        EXPECT_LOG(Debug(AsLogged("PathExists(" + dir + ") exception: " + untestable)),
                   Error(AsLogged("Exception in CreateDir(" + dir + "): " + failure)));
    }
}

TEST_F(CreateDirTest, WithoutPermissionFails) {
    fs::permissions(folder, fs::perms::owner_read | fs::perms::owner_exec);
    const OrdinaryRights ordinary;
    ExpectDirFails(folder / "new");
}

TEST_F(CreateDirTest, AnotherProcessCreatingItInBetweenIsAFailure) {
    beforeNextMkdir = [this] { fs::create_directory(folder / "new"); };
    EXPECT_FAILURE(Futils::CreateDir(folder / "new"));
    EXPECT_DIR(folder, {{"new/", ""}});
    ExpectError("Exception in CreateDir(/perm/futils/new): nothing was created");
}

TEST_F(CreatePathTest, CreatesAllLevelsByOneCommand) {
    EXPECT_SUCCESS(Futils::CreatePath(folder / "a" / "b" / "c"));
    EXPECT_TRUE(fs::is_directory(folder / "a" / "b" / "c"));
    EXPECT_EQ(Faults::TakeCalls(),
              (std::vector<std::string>{"system mkdir -p /perm/futils/a/b/c"}));
}

TEST_F(CreatePathTest, TheShellGetsThePathUnquoted) {
    EXPECT_SUCCESS(Futils::CreatePath("/perm/futils/a /perm/futils/b"));
    EXPECT_DIR(folder, {{"a/", ""}, {"b/", ""}});
}

TEST_F(CreatePathTest, AFailingCommandIsLoggedTwice) {
    MakeDir(folder, {{"file", "1"}, {"dangling@", "nowhere"}});
    for (const char* name : {"file", "file/new", "dangling", "dangling/new"}) {
        ExpectPathFails(folder / name, 256);
    }
    ExpectPathFails("", 256);
    ExpectPathFails(folder / "'unclosed", 512);
    Faults::Fail("system", ENOMEM);  // There is no shell.
    ExpectPathFails(folder / "new", 32512, "Cannot allocate memory");
}

TEST_F(CreatePathTest, AnotherProcessCreatingItInBetweenDoesNoHarm) {
    Faults::OnCall("system", [this] { fs::create_directory(folder / "new"); });
    EXPECT_SUCCESS(Futils::CreatePath(folder / "new"));
}

// GetDirSize and GetFilesInDir.
class DirContentTest : public FutilsTest {
protected:
    using Names = std::set<std::string>;

    static void ExpectContent(const fs::path& dir, unsigned long expectedSize,
                              const Names& expectedNames) {
        unsigned long size = 4711;
        EXPECT_SUCCESS(Futils::GetDirSize(dir, size));
        EXPECT_EQ(size, expectedSize);
        Names names{"old"};
        EXPECT_SUCCESS(Futils::GetFilesInDir(names, dir));
        EXPECT_EQ(names, expectedNames);
    }

    void ExpectNoSize(const fs::path& dir, const std::string& reason) {
        unsigned long size = 4711;
        EXPECT_FAILURE(Futils::GetDirSize(dir, size));
        EXPECT_EQ(size, 0U);
        ExpectError("GetDirSize failure on " + dir.string() + ": " + reason);
    }

    // Expects both to fail. `found` is what was found until then.
    void ExpectFailure(const fs::path& dir, const std::string& reason, const Names& found) {
        SCOPED_TRACE(dir);
        ExpectNoSize(dir, reason);
        Names names{"old"};
        EXPECT_FAILURE(Futils::GetFilesInDir(names, dir));
        EXPECT_EQ(names, found);
        ExpectError("Exception in GetFilesInDir(" + dir.string() + "): " + reason);
    }
};

TEST_F(DirContentTest, IsRegularFilesAndLinksToThem) {
    // The sizes show which of them were counted.
    WriteFile(folder / "b", std::string(20, '.'));
    WriteFile(folder / "a", std::string(3, '.'));
    WriteFile(folder / "c" / "inside", std::string(100, '.'));
    WriteFile(folder / ".hidden", std::string(5000, '.'));
    MakeDir(folder, {{"empty", ""},
                     {"d@", "a"},
                     {"link to folder@", "c"},
                     {"dangling@", "nowhere"},
                     {"fifo?", ""},
                     {"link to fifo@", "fifo"}});
    fs::create_hard_link(folder / "b", folder / "twin of b");
    ExpectContent(folder, 20 + 3 + 5000 + 3 + 20, {".hidden", "a", "b", "d", "empty", "twin of b"});
}

TEST_F(DirContentTest, OfAnEmptyFolderIsNothing) {
    ExpectContent(folder, 0, {});
}

TEST_F(DirContentTest, MayExceedFourGiB) {
    WriteSparseFile(folder / "a", 3UL << 30);
    WriteSparseFile(folder / "b", 3UL << 30);
    ExpectContent(folder, 6UL << 30, {"a", "b"});
}

TEST_F(DirContentTest, IsFoundBehindALinkToTheFolder) {
    MakeDir(folder, {{"real/a", "123"}, {"link@", "real"}});
    ExpectContent(folder / "link", 3, {"a"});
    ExpectContent(folder / "real/", 3, {"a"});
}

TEST_F(DirContentTest, OfWhatIsNoReadableFolderIsAFailure) {
    MakeDir(folder,
            {{"file", "1"}, {"dangling@", "nowhere"}, {"loop@", "loop"}, {"closed/a", "1"}});
    fs::permissions(folder / "closed", fs::perms::none);
    const OrdinaryRights ordinary;
    const std::pair<fs::path, int> cases[] = {
        {folder / "missing", ENOENT}, {folder / "%s%n", ENOENT},
        {folder / "file", ENOTDIR},   {folder / "dangling", ENOENT},
        {folder / "loop", ELOOP},     {folder / "file/x", ENOTDIR},
        {folder / "closed", EACCES},  {"", ENOENT}};
    for (const auto& [dir, error] : cases) ExpectFailure(dir, CannotOpen(dir, error), {});
}

// A link without an end stands in the middle of the walk.
TEST_F(DirContentTest, AFailureOnTheWayLeavesNoSizeAndTheNamesFoundUntilThen) {
    for (const char* name : {"1", "2", "3"}) WriteFile(folder / name, "1");
    fs::create_symlink("loop", folder / "loop");
    for (const char* name : {"4", "5", "6"}) WriteFile(folder / name, "1");
    Names found;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        if (entry.is_symlink()) break;
        found.insert(entry.path().filename());
    }
    ASSERT_FALSE(found.empty());
    ASSERT_LT(found.size(), 6U);
    ExpectFailure(folder, WalkReason("cannot get file status", folder / "loop", ELOOP), found);
}

TEST_F(DirContentTest, OfAFileThatCannotBeSizedIsNoSize) {
    const fs::path dir = folder / "listed only";
    WriteFile(dir / "a", "1");
    fs::permissions(dir, fs::perms::owner_read);
    const OrdinaryRights ordinary;
    ExpectNoSize(dir, WalkReason("cannot get file status", dir / "a", EACCES));
}

}  // namespace
