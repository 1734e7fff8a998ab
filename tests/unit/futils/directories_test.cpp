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
}

TEST_F(CreateDirTest, AnExistingFolderIsASuccessThatTouchesNothing) {
    MakeDir(folder, {{"dir/inside", "1"}, {"link@", "dir"}});
    const Mounted readOnly = Mounted::ReadOnly(folder);
    for (const char* name : {"dir", "dir/", "link"}) {
        bool tried = false;
        beforeNextMkdir = [&] { tried = true; };
        EXPECT_SUCCESS(Futils::CreateDir(folder / name));
        EXPECT_FALSE(tried) << name;
    }
    beforeNextMkdir = nullptr;
    EXPECT_DIR(folder / "dir", {{"inside", "1"}});
}

TEST_F(CreateDirTest, WhatTheFileSystemRefusesIsLogged) {
    MakeDir(folder, {{"file", "1"}, {"dangling@", "nowhere"}, {"link to file@", "file"}});
    for (const std::string name :
         {"missing/new", "file", "file/new", "dangling", "dangling/new", "link to file"}) {
        ExpectFailure(folder / name);
    }
    ExpectFailure("");
}

TEST_F(CreateDirTest, WhatCannotBeTestedIsTriedAndLogged) {
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

TEST_F(CreateDirTest, AnotherProcessCreatingItInBetweenIsAFailure) {
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
}

TEST_F(CreatePathTest, AnExistingFolderIsASuccessWithoutACommand) {
    MakeDir(folder, {{"dir/", ""}, {"link@", "dir"}});
    EXPECT_SUCCESS(Futils::CreatePath(folder / "dir"));
    EXPECT_SUCCESS(Futils::CreatePath(folder / "link"));
    EXPECT_EQ(Faults::TakeCalls(), std::vector<std::string>());
}

TEST_F(CreatePathTest, TheShellGetsThePathUnquoted) {
    EXPECT_SUCCESS(Futils::CreatePath("/perm/futils/a /perm/futils/b"));
    EXPECT_DIR(folder, {{"a/", ""}, {"b/", ""}});
}

TEST_F(CreatePathTest, AFailingCommandIsLoggedTwice) {
    MakeDir(folder, {{"file", "1"}, {"dangling@", "nowhere"}});
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

TEST_F(CreatePathTest, AnotherProcessCreatingItInBetweenDoesNoHarm) {
    Faults::OnCall("system", [this] { fs::create_directory(folder / "new"); });
    EXPECT_SUCCESS(Futils::CreatePath(folder / "new"));
}

class DirContentTest : public FutilsTest {
protected:
    // Calls `expectFailure` with each path that is no readable folder, and the reason.
    void ForEachThatIsNoFolder(
        const std::function<void(const fs::path&, const std::string&)>& expectFailure) const {
        MakeDir(folder,
                {{"file", "1"}, {"dangling@", "nowhere"}, {"loop@", "loop"}, {"closed/a", "1"}});
        fs::permissions(folder / "closed", fs::perms::none);
        const OrdinaryRights ordinary;
        const std::pair<fs::path, int> cases[] = {
            {folder / "missing", ENOENT}, {folder / "%s%n", ENOENT},
            {folder / "file", ENOTDIR},   {folder / "dangling", ENOENT},
            {folder / "loop", ELOOP},     {folder / "file/x", ENOTDIR},
            {folder / "closed", EACCES},  {"", ENOENT}};
        for (const auto& [dir, error] : cases) expectFailure(dir, CannotOpen(dir, error));
    }

    // One of each kind, with sizes that show which of them were counted.
    void MakeOneOfEachKind() {
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
    static void ExpectSize(const fs::path& dir, unsigned long expected) {
        unsigned long size = 4711;
        EXPECT_SUCCESS(Futils::GetDirSize(dir, size));
        EXPECT_EQ(size, expected);
    }

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
    ExpectSize(folder, 20 + 3 + 5000 + 3 + 20);
}

TEST_F(DirSizeTest, OfAnEmptyFolderIsZero) {
    ExpectSize(folder, 0);
}

TEST_F(DirSizeTest, DoesNotDescend) {
    MakeDir(folder, {{"inner/a", "1"}, {"inner/b", "1"}});
    ExpectSize(folder, 0);
}

TEST_F(DirSizeTest, MayExceedFourGiB) {
    WriteSparseFile(folder / "a", 3UL << 30);
    WriteSparseFile(folder / "b", 3UL << 30);
    ExpectSize(folder, 6UL << 30);
}

TEST_F(DirSizeTest, FollowsALinkToTheFolder) {
    MakeDir(folder, {{"real/a", "123"}, {"link@", "real"}});
    ExpectSize(folder / "link", 3);
}

TEST_F(DirSizeTest, OfWhatIsNoReadableFolderIsAFailure) {
    ForEachThatIsNoFolder(
        [this](const fs::path& dir, const std::string& reason) { ExpectFailure(dir, reason); });
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

    static void ExpectNames(const fs::path& dir, const Names& expected) {
        Names names{"old"};
        EXPECT_SUCCESS(Futils::GetFilesInDir(names, dir));
        EXPECT_EQ(names, expected);
    }

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
    ExpectNames(folder, {".hidden", "a", "b", "d", "empty", "twin of b"});
}

TEST_F(FilesInDirTest, OfAnEmptyFolderAreNone) {
    ExpectNames(folder, {});
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
    MakeDir(folder, {{"real/a", ""}, {"link@", "real"}});
    ExpectNames(folder / "link", {"a"});
    ExpectNames(folder / "real/", {"a"});
}

TEST_F(FilesInDirTest, OfWhatIsNoReadableFolderIsAFailure) {
    ForEachThatIsNoFolder(
        [this](const fs::path& dir, const std::string& reason) { ExpectFailure(dir, reason, {}); });
}

TEST_F(FilesInDirTest, AFailureOnTheWayLeavesTheNamesFoundUntilThen) {
    const Names found = MakeFilesAndALoop();
    ASSERT_FALSE(found.empty());
    ASSERT_LT(found.size(), 6U);
    ExpectFailure(folder, WalkReason("cannot get file status", folder / "loop", ELOOP), found);
}

}  // namespace
