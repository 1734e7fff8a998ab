// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// DirectoryWalk, on file systems that list no kinds, and while files come and go.
#include "futils/directory_walk.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <cerrno>
#include <optional>

#include "tests/support/ordinary_rights.h"
#include "tests/unit/futils/fixture.h"

namespace fs = std::filesystem;

namespace {

bool kindsAreHidden = false;
std::optional<int> readableEntries;  // before one failure; unset: all

}  // namespace

// A file system need not know an entry's kind, and a medium can fail halfway.
extern "C" dirent* readdir(DIR* stream) {
    static auto* const real = reinterpret_cast<dirent* (*)(DIR*)>(dlsym(RTLD_NEXT, "readdir"));
    if (readableEntries && (*readableEntries)-- == 0) {
        readableEntries.reset();
        errno = EIO;
        return nullptr;
    }
    dirent* const entry = real(stream);
    if (entry != nullptr && kindsAreHidden) entry->d_type = DT_UNKNOWN;
    return entry;
}

namespace {

using Futils::DirectoryWalk;

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
    MakeDir(folder,
            {{"file", ""}, {"dir/", ""}, {"dangling@", "nowhere"}, {".hidden", ""}, {"...", ""}});
    std::multiset<std::string> names;
    DirectoryWalk walk(folder.c_str());
    while (walk.Next()) names.insert(walk.Name());
    EXPECT_EQ(names, (std::multiset<std::string>{"...", ".hidden", "dangling", "dir", "file"}));
    EXPECT_FALSE(walk.Next());
}

TEST_F(DirectoryWalkTest, KnowsRegularFilesWithAndWithoutTheListing) {
    MakeDir(folder, {{"file", "123"},
                     {"link@", "file"},
                     {"dir/", ""},
                     {"link to dir@", "dir"},
                     {"dangling@", "nowhere"},
                     {"dangling below a file@", "file/x"},
                     {"fifo?", ""}});

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

TEST_F(DirectoryWalkTest, ReadsNoStatusOfAKindThatIsListed) {
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
