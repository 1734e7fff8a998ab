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

// Somebody else may be faster; no mount can show that.
extern "C" int mkdir(const char* path, mode_t mode) noexcept {
    static auto* const real =
        reinterpret_cast<int (*)(const char*, mode_t)>(dlsym(RTLD_NEXT, "mkdir"));
    if (beforeNextMkdir) std::exchange(beforeNextMkdir, nullptr)();
    return real(path, mode);
}

namespace {

std::string RawMkdirLine(const std::string& dir, int result, const char* error) {
    return "Unable to 'mkdir -p " + dir + "'.  Result: " + std::to_string(result) + ", Error: '" +
           error + "'";
}

class CreateDirTest : public FutilsTest {
protected:
    void ExpectFailure(const std::string& dir) {
        SCOPED_TRACE(dir);
        const Dir before = ReadDir(folder);
        EXPECT_FAILURE(Futils::CreateDir(dir));
        ExpectError("Exception in CreateDir(" + dir +
                    "): " + Reason([&] { fs::create_directory(dir); }));
        EXPECT_EQ(ReadDir(folder), before);
    }
};

TEST_F(CreateDirTest, CreatesOneLevel) {
    EXPECT_SUCCESS(Futils::CreateDir(folder / "new"));
    EXPECT_SUCCESS(Futils::CreateDir(folder / "new" / "inner"));
    EXPECT_SUCCESS(Futils::CreateDir(folder / "a 'b' \"c\" $d\n\xff"));
    EXPECT_DIR(folder, {{"new/", ""}, {"a 'b' \"c\" $d\n\xff/", ""}});
    EXPECT_DIR(folder / "new", {{"inner/", ""}});
    ExpectNoLines();
}

TEST_F(CreateDirTest, AnExistingFolderIsASuccessThatTouchesNothing) {
    WriteFile(folder / "dir" / "inside", "1");
    fs::create_symlink("dir", folder / "link");
    const Mounted readOnly = Mounted::ReadOnly(folder);
    for (const char* name : {"dir", "dir/", "link"}) {
        bool tried = false;
        beforeNextMkdir = [&] { tried = true; };
        EXPECT_SUCCESS(Futils::CreateDir(folder / name));
        EXPECT_FALSE(tried) << name;
    }
    beforeNextMkdir = nullptr;
    EXPECT_DIR(folder / "dir", {{"inside", "1"}});
    ExpectNoLines();
}

TEST_F(CreateDirTest, WhatTheFileSystemRefusesIsTold) {
    WriteFile(folder / "file", "1");
    fs::create_symlink("nowhere", folder / "dangling");
    fs::create_symlink("file", folder / "link to file");
    for (const std::string name :
         {"missing/new", "file", "file/new", "dangling", "dangling/new", "link to file"}) {
        ExpectFailure(folder / name);
    }
    ExpectFailure("");
}

TEST_F(CreateDirTest, WhatCannotBeTestedIsTriedAndTold) {
    fs::create_symlink("loop", folder / "loop");
    for (const fs::path& dir : {folder / "loop" / "new", folder / std::string(256, 'n')}) {
        const std::string untestable = Reason([&] { (void)fs::status(dir); });
        const std::string failure = Reason([&] { fs::create_directory(dir); });
        EXPECT_FAILURE(Futils::CreateDir(dir));
        EXPECT_EQ(
            log.Take(),
            (LogLines{
                {LOG_DEBUG, AsLogged("PathExists(" + dir.string() + ") exception: " + untestable)},
                {LOG_ERR, AsLogged("Exception in CreateDir(" + dir.string() + "): " + failure)}}));
    }
}

TEST_F(CreateDirTest, OnAReadOnlyFileSystemFails) {
    const Mounted readOnly = Mounted::ReadOnly(folder);
    ExpectFailure(folder / "new");
}

TEST_F(CreateDirTest, WithoutPermissionFails) {
    fs::permissions(folder, fs::perms::owner_read | fs::perms::owner_exec);
    const OrdinaryRights ordinary;
    ExpectFailure(folder / "new");
}

TEST_F(CreateDirTest, SomebodyElseCreatingItInBetweenIsAFailure) {
    beforeNextMkdir = [this] { fs::create_directory(folder / "new"); };
    EXPECT_FAILURE(Futils::CreateDir(folder / "new"));
    EXPECT_DIR(folder, {{"new/", ""}});
    ExpectError("Exception in CreateDir(" + (folder / "new").string() + "): nothing was created");
}

class CreatePathTest : public FutilsTest {
protected:
    // Expects the command to fail, and both lines.
    void ExpectFailure(const std::string& dir, int result) {
        SCOPED_TRACE(dir);
        Faults::OnCall("waitpid", [] { errno = EDOM; });
        const Dir before = ReadDir(folder);
        EXPECT_FAILURE(Futils::CreatePath(dir));
        EXPECT_EQ(
            log.Take(),
            (LogLines{{LOG_ERR, RawMkdirLine(dir, result, "Numerical argument out of domain")},
                      {LOG_ERR, "Unable to 'mkdir -p " + dir + "'."}}));
        EXPECT_EQ(ReadDir(folder), before);
    }
};

TEST_F(CreatePathTest, CreatesAllLevelsByOneCommand) {
    EXPECT_SUCCESS(Futils::CreatePath(folder / "a" / "b" / "c"));
    EXPECT_TRUE(fs::is_directory(folder / "a" / "b" / "c"));
    EXPECT_EQ(Faults::TakeCalls(),
              (std::vector<std::string>{"system mkdir -p /perm/futils/a/b/c"}));
    ExpectNoLines();
}

TEST_F(CreatePathTest, AnExistingFolderIsASuccessWithoutACommand) {
    fs::create_directory(folder / "dir");
    fs::create_symlink("dir", folder / "link");
    EXPECT_SUCCESS(Futils::CreatePath(folder / "dir"));
    EXPECT_SUCCESS(Futils::CreatePath(folder / "link"));
    EXPECT_EQ(Faults::TakeCalls(), std::vector<std::string>());
    ExpectNoLines();
}

TEST_F(CreatePathTest, TheShellGetsThePathUnquoted) {
    EXPECT_SUCCESS(Futils::CreatePath("/perm/futils/a /perm/futils/b"));
    EXPECT_DIR(folder, {{"a/", ""}, {"b/", ""}});
}

TEST_F(CreatePathTest, AFailingCommandIsToldTwice) {
    WriteFile(folder / "file", "1");
    fs::create_symlink("nowhere", folder / "dangling");
    for (const char* name : {"file", "file/new", "dangling", "dangling/new"}) {
        ExpectFailure(folder / name, 256);
    }
    ExpectFailure("", 256);
    ExpectFailure(folder / "'unclosed", 512);
}

TEST_F(CreatePathTest, OnAReadOnlyFileSystemFails) {
    const Mounted readOnly = Mounted::ReadOnly(folder);
    ExpectFailure(folder / "new", 256);
}

TEST_F(CreatePathTest, WithoutAShellFails) {
    Faults::Fail("system", ENOMEM);
    EXPECT_FAILURE(Futils::CreatePath(folder / "new"));
    EXPECT_EQ(log.Take(),
              (LogLines{{LOG_ERR, RawMkdirLine(folder / "new", 32512, "Cannot allocate memory")},
                        {LOG_ERR, "Unable to 'mkdir -p /perm/futils/new'."}}));
}

TEST_F(CreatePathTest, SomebodyElseCreatingItInBetweenDoesNoHarm) {
    Faults::OnCall("system", [this] { fs::create_directory(folder / "new"); });
    EXPECT_SUCCESS(Futils::CreatePath(folder / "new"));
    ExpectNoLines();
}

class DirContentTest : public FutilsTest {
protected:
    static constexpr struct {
        const char* name;
        int error;
    } NoFolders[] = {{"missing", ENOENT},  {"%s%n", ENOENT}, {"file", ENOTDIR},
                     {"dangling", ENOENT}, {"loop", ELOOP},  {"file/x", ENOTDIR}};

    // One of each kind, with sizes that tell which of them were counted.
    void MakeOneOfEachKind() {
        WriteFile(folder / "b", std::string(20, '.'));
        WriteFile(folder / "a", std::string(3, '.'));
        WriteFile(folder / "c" / "inside", std::string(100, '.'));
        WriteFile(folder / ".hidden", std::string(5000, '.'));
        WriteFile(folder / "empty");
        fs::create_symlink("a", folder / "d");
        fs::create_symlink("c", folder / "link to folder");
        fs::create_symlink("nowhere", folder / "dangling");
        ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);
        fs::create_symlink("fifo", folder / "link to fifo");
        fs::create_hard_link(folder / "b", folder / "twin of b");
    }

    // A folder that cannot be walked to its end: a link without an end stands in the middle.
    // Returns the names that the walk meets before it.
    std::set<std::string> MakeFilesAndALoop() {
        for (const char* name : {"1", "2", "3"}) WriteFile(folder / name, "1");
        fs::create_symlink("loop", folder / "loop");
        for (const char* name : {"4", "5", "6"}) WriteFile(folder / name, "1");
        std::set<std::string> names;
        for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
            if (entry.is_symlink()) break;
            names.insert(entry.path().filename());
        }
        return names;
    }
};

class DirSizeTest : public DirContentTest {
protected:
    void ExpectFailure(const fs::path& dir, const std::string& reason) {
        SCOPED_TRACE(dir);
        unsigned long size = 4711;
        EXPECT_FAILURE(Futils::GetDirSize(dir, size));
        EXPECT_EQ(size, 0U);
        ExpectError("GetDirSize failure on " + dir.string() + ": " + reason);
    }
};

TEST_F(DirSizeTest, AddsUpRegularFilesAndLinksToThem) {
    MakeOneOfEachKind();
    unsigned long size = 4711;
    EXPECT_SUCCESS(Futils::GetDirSize(folder, size));
    EXPECT_EQ(size, 20U + 3 + 5000 + 3 + 20);
    ExpectNoLines();
}

TEST_F(DirSizeTest, OfAnEmptyFolderIsZero) {
    unsigned long size = 4711;
    EXPECT_SUCCESS(Futils::GetDirSize(folder, size));
    EXPECT_EQ(size, 0U);
}

TEST_F(DirSizeTest, DoesNotDescend) {
    WriteFile(folder / "inner" / "a", "1");
    WriteFile(folder / "inner" / "b", "1");
    unsigned long size = 4711;
    EXPECT_SUCCESS(Futils::GetDirSize(folder, size));
    EXPECT_EQ(size, 0U);
}

TEST_F(DirSizeTest, MayExceedFourGiB) {
    WriteSparseFile(folder / "a", 3UL << 30);
    WriteSparseFile(folder / "b", 3UL << 30);
    unsigned long size = 0;
    EXPECT_SUCCESS(Futils::GetDirSize(folder, size));
    EXPECT_EQ(size, 6UL << 30);
}

TEST_F(DirSizeTest, FollowsALinkToTheFolder) {
    WriteFile(folder / "real" / "a", "123");
    fs::create_symlink("real", folder / "link");
    unsigned long size = 0;
    EXPECT_SUCCESS(Futils::GetDirSize(folder / "link", size));
    EXPECT_EQ(size, 3U);
}

TEST_F(DirSizeTest, OfWhatIsNoFolderIsAFailure) {
    WriteFile(folder / "file", "1");
    fs::create_symlink("nowhere", folder / "dangling");
    fs::create_symlink("loop", folder / "loop");
    for (const auto& [name, error] : NoFolders) {
        ExpectFailure(folder / name, CannotOpen(folder / name, error));
    }
    ExpectFailure("", CannotOpen("", ENOENT));
}

TEST_F(DirSizeTest, AnUnreadableFolderIsAFailure) {
    WriteFile(folder / "closed" / "a", "1");
    const fs::path closed = folder / "closed";
    fs::permissions(closed, fs::perms::none);
    const OrdinaryRights ordinary;
    ExpectFailure(closed, CannotOpen(closed, EACCES));
}

TEST_F(DirSizeTest, AFailureOnTheWayGivesZero) {
    ASSERT_FALSE(MakeFilesAndALoop().empty());
    ExpectFailure(folder, WalkReason("cannot get file status", folder / "loop", ELOOP));
}

TEST_F(DirSizeTest, AFileThatCannotBeSizedGivesZero) {
    WriteFile(folder / "listed only" / "a", "1");
    fs::permissions(folder / "listed only", fs::perms::owner_read);
    const OrdinaryRights ordinary;
    ExpectFailure(folder / "listed only",
                  WalkReason("cannot get file status", folder / "listed only" / "a", EACCES));
}

class FilesInDirTest : public DirContentTest {
protected:
    using Names = std::set<std::string>;

    void ExpectFailure(const std::string& dir, const std::string& reason, const Names& expected) {
        SCOPED_TRACE(dir);
        Names names{"old"};
        EXPECT_FAILURE(Futils::GetFilesInDir(names, dir));
        EXPECT_EQ(names, expected);
        ExpectError("Exception in GetFilesInDir(" + dir + "): " + reason);
    }
};

TEST_F(FilesInDirTest, AreTheBareNamesOfRegularFilesAndOfLinksToThem) {
    MakeOneOfEachKind();
    Names names{"old"};
    EXPECT_SUCCESS(Futils::GetFilesInDir(names, folder));
    EXPECT_EQ(names, (Names{".hidden", "a", "b", "d", "empty", "twin of b"}));
    ExpectNoLines();
}

TEST_F(FilesInDirTest, OfAnEmptyFolderAreNone) {
    Names names{"old"};
    EXPECT_SUCCESS(Futils::GetFilesInDir(names, folder));
    EXPECT_EQ(names, Names());
}

TEST_F(FilesInDirTest, ComeInByteOrder) {
    const std::vector<std::string> ordered = {"\n", " ",   "-",  ".a",   "10",   "9",   "A",
                                              "a",  "a b", "aa", "\x7f", "\x80", "\xff"};
    for (const std::string& name : ordered) WriteFile(folder / name);
    Names names;
    EXPECT_SUCCESS(Futils::GetFilesInDir(names, folder));
    EXPECT_EQ(std::vector<std::string>(names.begin(), names.end()), ordered);
}

TEST_F(FilesInDirTest, FollowsALinkToTheFolder) {
    WriteFile(folder / "real" / "a");
    fs::create_symlink("real", folder / "link");
    Names names;
    EXPECT_SUCCESS(Futils::GetFilesInDir(names, folder / "link"));
    EXPECT_SUCCESS(Futils::GetFilesInDir(names, (folder / "real").string() + "/"));
    EXPECT_EQ(names, Names{"a"});
}

TEST_F(FilesInDirTest, OfWhatIsNoFolderIsAFailure) {
    WriteFile(folder / "file", "1");
    fs::create_symlink("nowhere", folder / "dangling");
    fs::create_symlink("loop", folder / "loop");
    for (const auto& [name, error] : NoFolders) {
        ExpectFailure(folder / name, CannotOpen(folder / name, error), {});
    }
    ExpectFailure("", CannotOpen("", ENOENT), {});
}

TEST_F(FilesInDirTest, AnUnreadableFolderIsAFailure) {
    WriteFile(folder / "closed" / "a", "1");
    const fs::path closed = folder / "closed";
    fs::permissions(closed, fs::perms::none);
    const OrdinaryRights ordinary;
    ExpectFailure(closed, CannotOpen(closed, EACCES), {});
}

TEST_F(FilesInDirTest, AFailureOnTheWayLeavesTheNamesFoundUntilThen) {
    const Names found = MakeFilesAndALoop();
    ASSERT_FALSE(found.empty());
    ASSERT_LT(found.size(), 6U);
    ExpectFailure(folder, WalkReason("cannot get file status", folder / "loop", ELOOP), found);
}

}  // namespace
