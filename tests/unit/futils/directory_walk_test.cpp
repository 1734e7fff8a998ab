// DirectoryWalk, on file systems that tell less than the usual ones, and while files come and go.
#include "futils/directory_walk.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstdarg>
#include <optional>

#include "tests/support/ordinary_rights.h"
#include "tests/unit/futils/fixture.h"

namespace fs = std::filesystem;

namespace {

bool kindsAreHidden = false;
std::optional<int> readableEntries;  // before one failure; unset: all

// The length of the first `count` entries of a listing, or of all.
long LengthOf(const char* entries, long length, int count) {
    long end = 0;
    for (; end < length && count > 0; --count) {
        end += reinterpret_cast<const dirent*>(entries + end)->d_reclen;
    }
    return end;
}

void HideKinds(char* entries, long length) {
    for (long place = 0; place < length;) {
        auto* const entry = reinterpret_cast<dirent*>(entries + place);
        entry->d_type = DT_UNKNOWN;
        place += entry->d_reclen;
    }
}

}  // namespace

// A file system need not tell an entry's kind, and a medium can fail halfway. As the C library's
// own it takes all the arguments that there may be, so that the sanitizer must not look.
extern "C" [[gnu::no_sanitize_address]] long syscall(long number, ...) noexcept {
    static auto* const real = reinterpret_cast<long (*)(long, ...)>(dlsym(RTLD_NEXT, "syscall"));
    std::va_list args;
    va_start(args, number);
    long values[6];
    for (long& value : values) value = va_arg(args, long);
    va_end(args);
    const auto [first, second, third, fourth, fifth, sixth] = values;
    if (number != SYS_getdents64) return real(number, first, second, third, fourth, fifth, sixth);

    if (readableEntries == 0) {
        readableEntries.reset();
        errno = EIO;
        return -1;
    }
    auto* const entries = reinterpret_cast<char*>(second);
    long length = real(number, first, second, third);
    if (length > 0 && kindsAreHidden) HideKinds(entries, length);
    if (length > 0 && readableEntries) {
        length = LengthOf(entries, length, *readableEntries);
        readableEntries = 0;
    }
    return length;
}

namespace {

class DirectoryWalkTest : public FutilsTest {
protected:
    ~DirectoryWalkTest() override {
        kindsAreHidden = false;
        readableEntries.reset();
    }

    // Lets the walk step to the entry of that name.
    static void StepTo(DirectoryWalk& walk, const std::string& name) {
        while (walk.Next()) {
            if (walk.Name() == name) return;
        }
        ADD_FAILURE() << "no entry " << name;
    }
};

TEST_F(DirectoryWalkTest, MeetsEveryEntryOnceButNeitherItselfNorItsParent) {
    WriteFile(folder / "file");
    fs::create_directory(folder / "dir");
    fs::create_symlink("nowhere", folder / "dangling");
    WriteFile(folder / ".hidden");
    WriteFile(folder / "...");
    std::multiset<std::string> names;
    DirectoryWalk walk(folder.c_str());
    while (walk.Next()) names.insert(walk.Name());
    EXPECT_EQ(names, (std::multiset<std::string>{"...", ".hidden", "dangling", "dir", "file"}));
    EXPECT_FALSE(walk.Next());
}

TEST_F(DirectoryWalkTest, TellsRegularFilesWhetherTheListingDoesOrNot) {
    WriteFile(folder / "file", "123");
    fs::create_symlink("file", folder / "link");
    fs::create_directory(folder / "dir");
    fs::create_symlink("dir", folder / "link to dir");
    fs::create_symlink("nowhere", folder / "dangling");
    fs::create_symlink("file/x", folder / "dangling below a file");
    ASSERT_EQ(mkfifo((folder / "fifo").c_str(), 0600), 0);

    for (const bool hidden : {false, true}) {
        SCOPED_TRACE(hidden);
        kindsAreHidden = hidden;
        std::set<std::string> regular;
        DirectoryWalk walk(folder.c_str());
        while (walk.Next()) {
            EXPECT_EQ(walk.RegularFileSize().has_value(), walk.IsRegularFile()) << walk.Name();
            if (!walk.IsRegularFile()) continue;
            regular.insert(walk.Name());
            EXPECT_EQ(walk.RegularFileSize(), 3U);
        }
        EXPECT_EQ(regular, (std::set<std::string>{"file", "link"}));
    }
}

TEST_F(DirectoryWalkTest, WhatTheListingTellsIsNotAskedAgain) {
    fs::create_directories(folder / "listed only" / "dir");
    fs::permissions(folder / "listed only", fs::perms::owner_read);
    const OrdinaryRights ordinary;
    const fs::path dir = folder / "listed only";
    DirectoryWalk walk(dir.c_str());
    StepTo(walk, "dir");
    EXPECT_FALSE(walk.IsRegularFile());
    EXPECT_EQ(walk.RegularFileSize(), std::nullopt);
}

TEST_F(DirectoryWalkTest, AFileThatWentAwaySinceItWasListedHasNoSize) {
    WriteFile(folder / "file", "123");
    DirectoryWalk walk(folder.c_str());
    StepTo(walk, "file");
    fs::remove(folder / "file");
    EXPECT_EQ(walk.RegularFileSize(), std::nullopt);
}

TEST_F(DirectoryWalkTest, AFolderThatIsRenamedMeanwhileIsWalkedOn) {
    const fs::path dir = folder / "dir";
    WriteFile(dir / "file", "123");
    DirectoryWalk walk(dir.c_str());
    StepTo(walk, "file");
    fs::rename(dir, folder / "new name");
    EXPECT_EQ(walk.RegularFileSize(), 3U);
}

TEST_F(DirectoryWalkTest, AFolderThatIsRemovedMeanwhileIsAtItsEnd) {
    const fs::path dir = folder / "dir";
    fs::create_directory(dir);
    DirectoryWalk walk(dir.c_str());
    fs::remove(dir);
    EXPECT_FALSE(walk.Next());
}

TEST_F(DirectoryWalkTest, AListingThatComesInManyPiecesIsWhole) {
    std::set<std::string> expected;
    for (int i = 0; i < 2000; ++i) {
        const std::string name = std::to_string(i) + std::string(i % 200, '.');
        WriteFile(folder / name);
        expected.insert(name);
    }
    std::set<std::string> names;
    EXPECT_SUCCESS(Futils::GetFilesInDir(names, folder));
    EXPECT_EQ(names, expected);
}

TEST_F(DirectoryWalkTest, DescriptorZeroIsAsGoodAsAny) {
    WriteFile(folder / "file", "123");
    const FreeDescriptorZero zero;
    DirectoryWalk walk(folder.c_str());
    StepTo(walk, "file");
    EXPECT_EQ(walk.RegularFileSize(), 3U);
}

TEST_F(DirectoryWalkTest, LeavesNothingOpen) {
    WriteFile(folder / "file");
    { DirectoryWalk notWalked(folder.c_str()); }
    {
        DirectoryWalk walk(folder.c_str());
        while (walk.Next()) (void)walk.RegularFileSize();
    }
    EXPECT_THROW(DirectoryWalk("/perm/futils/missing"), fs::filesystem_error);
    ExpectNothingOpen();
}

TEST_F(DirectoryWalkTest, AMediumErrorHalfwayIsNoEnd) {
    for (const char* name : {"1", "2", "3"}) WriteFile(folder / name, "1");
    const std::string reason = WalkReason("cannot read directory", folder, EIO);

    readableEntries = 4;  // Two may be the folder itself and its parent.
    unsigned long size = 4711;
    EXPECT_FAILURE(Futils::GetDirSize(folder, size));
    EXPECT_EQ(size, 0U);
    ExpectError("GetDirSize failure on /perm/futils: " + reason);

    readableEntries = 4;
    std::set<std::string> names;
    EXPECT_FAILURE(Futils::GetFilesInDir(names, folder));
    EXPECT_FALSE(names.empty());
    ExpectError("Exception in GetFilesInDir(/perm/futils): " + reason);
}

}  // namespace
