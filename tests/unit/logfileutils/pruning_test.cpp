// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// LogFileUtils::DeleteArchiveFiles.
#include <tuple>

#include "tests/support/mounts.h"
#include "tests/unit/logfileutils/fixture.h"

namespace fs = std::filesystem;

namespace {

constexpr unsigned short Max = 65535;
constexpr bool OldestFirst = true;
constexpr bool NewestFirst = false;

class PruningTest : public CatalogueTest {
protected:
    void ExpectLeft(const Names& names) {
        Dir expected;
        for (const std::string& name : names) expected[name] = name;
        EXPECT_EQ(ReadDir(archive), expected);
    }

    static LogLine Removal(const std::string& counts, const std::string& name) {
        return {LOG_DEBUG, "Deleted " + counts + ": " + name};
    }
    static LogLine ForeignRemoval(const std::string& name) {
        return {LOG_DEBUG, "Deleted non-archival file: " + name};
    }
    LogLine RemovalFailure(const std::string& name) {
        return {LOG_ERR, ::RemovalFailure(archive / name)};
    }
};

TEST_F(PruningTest, DeletesUpToEitherLimitFromEitherEnd) {
    const std::string a1 = ArchName(1, 1);
    const std::string b1 = ArchName(1, 2);
    const std::string a2 = ArchName(2, 1);
    const std::string a4 = ArchName(4, 1);
    const std::string b4 = ArchName(4, 2);
    const std::string c4 = ArchName(4, 3);
    const std::tuple<bool, unsigned short, unsigned short, Names> cases[] = {
        {OldestFirst, 0, Max, {a1, b1, a2, a4, b4, c4}},
        {OldestFirst, Max, 0, {a1, b1, a2, a4, b4, c4}},
        {OldestFirst, 0, 0, {a1, b1, a2, a4, b4, c4}},
        {OldestFirst, 1, Max, {b1, a2, a4, b4, c4}},
        {OldestFirst, 2, Max, {a2, a4, b4, c4}},
        {OldestFirst, 5, Max, {c4}},
        {OldestFirst, 6, Max, {}},
        {OldestFirst, 7, Max, {}},
        {OldestFirst, Max, 1, {a2, a4, b4, c4}},
        {OldestFirst, Max, 2, {a4, b4, c4}},
        {OldestFirst, Max, 3, {}},
        {OldestFirst, Max, Max, {}},
        {OldestFirst, 1, 1, {b1, a2, a4, b4, c4}},
        {OldestFirst, 3, 1, {a2, a4, b4, c4}},
        {OldestFirst, 3, 2, {a4, b4, c4}},
        {NewestFirst, 0, Max, {a1, b1, a2, a4, b4, c4}},
        {NewestFirst, Max, 0, {a1, b1, a2, a4, b4, c4}},
        {NewestFirst, 1, Max, {a1, b1, a2, a4, b4}},
        {NewestFirst, 5, Max, {a1}},
        {NewestFirst, 6, Max, {}},
        {NewestFirst, Max, 1, {a1, b1, a2}},
        {NewestFirst, Max, 2, {a1, b1}},
        {NewestFirst, Max, 3, {}},
        {NewestFirst, Max, Max, {}},
        {NewestFirst, 4, 1, {a1, b1, a2}},
    };
    for (const auto& [oldestFirst, maxFiles, maxReboots, left] : cases) {
        SCOPED_TRACE((oldestFirst ? "oldest, " : "newest, ") + std::to_string(maxFiles) + ", " +
                     std::to_string(maxReboots));
        MakeArchive({a1, b1, a2, a4, b4, c4});
        EXPECT_SUCCESS(catalogue.DeleteArchiveFiles(oldestFirst, maxFiles, maxReboots));
        ExpectLeft(left);
        log.Take();
    }
}

TEST_F(PruningTest, LogsTheRunningTotalsWithALetterForThePlural) {
    MakeArchive({ArchName(1), ArchName(2), ArchName(2, 1), ArchName(3)});
    EXPECT_SUCCESS(catalogue.DeleteArchiveFiles(OldestFirst, Max, Max));
    ExpectLines({Removal("1 file , 0 reboots", ArchName(1)),
                 Removal("2 files, 1 reboot ", ArchName(2)),
                 Removal("3 files, 1 reboot ", ArchName(2, 1)),
                 Removal("4 files, 2 reboots", ArchName(3))});

    MakeArchive({ArchName(1), ArchName(2)});
    EXPECT_SUCCESS(catalogue.DeleteArchiveFiles(NewestFirst, Max, Max));
    ExpectLines(
        {Removal("1 file , 0 reboots", ArchName(2)), Removal("2 files, 1 reboot ", ArchName(1))});
}

TEST_F(PruningTest, IsSilentAtTheUsualLevel) {
    Logging::SetLogLevel(Logging::SeverityInfo);
    MakeArchive({ArchName(1), "notes"});
    EXPECT_SUCCESS(catalogue.DeleteArchiveFiles(OldestFirst, Max, Max));
    ExpectLeft({});
}

TEST_F(PruningTest, AChangeFromBootZeroIsNotCounted) {
    MakeArchive({ArchName(0), ArchName(1), ArchName(2)});
    EXPECT_SUCCESS(catalogue.DeleteArchiveFiles(OldestFirst, Max, 1));
    ExpectLeft({ArchName(2)});
    ExpectLines(
        {Removal("1 file , 0 reboots", ArchName(0)), Removal("2 files, 0 reboots", ArchName(1))});

    MakeArchive({ArchName(0), ArchName(1)});
    EXPECT_SUCCESS(catalogue.DeleteArchiveFiles(NewestFirst, Max, 1));
    ExpectLeft({ArchName(0)});
    ExpectLines({Removal("1 file , 0 reboots", ArchName(1))});
}

TEST_F(PruningTest, AForeignFileOnTheWayIsDeletedAndNotCounted) {
    MakeArchive({"aaa", ArchName(1), "messages.txt.0", ArchName(2), "zzz"});
    EXPECT_SUCCESS(catalogue.DeleteArchiveFiles(OldestFirst, 1, 1));
    ExpectLeft({"messages.txt.0", ArchName(2), "zzz"});
    ExpectLines({ForeignRemoval("aaa"), Removal("1 file , 0 reboots", ArchName(1))});
}

TEST_F(PruningTest, AForeignFileThatSortsLastGoesFirstInAWalkFromTheNewest) {
    MakeArchive({ArchName(1), ArchName(2), "zzz"});
    EXPECT_SUCCESS(catalogue.DeleteArchiveFiles(NewestFirst, 1, 1));
    ExpectLeft({ArchName(1)});
    ExpectLines({ForeignRemoval("zzz"), Removal("1 file , 0 reboots", ArchName(2))});
}

TEST_F(PruningTest, ForeignFilesAloneAreAllDeleted) {
    MakeArchive({"aaa", "notes", "zzz"});
    EXPECT_SUCCESS(catalogue.DeleteArchiveFiles(OldestFirst, 1, 1));
    ExpectLeft({});
    ExpectLines({ForeignRemoval("aaa"), ForeignRemoval("notes"), ForeignRemoval("zzz")});
}

TEST_F(PruningTest, WithAZeroLimitEvenForeignFilesStay) {
    MakeArchive({"aaa", ArchName(1)});
    EXPECT_SUCCESS(catalogue.DeleteArchiveFiles(OldestFirst, 0, 1));
    EXPECT_SUCCESS(catalogue.DeleteArchiveFiles(OldestFirst, 1, 0));
    ExpectLeft({"aaa", ArchName(1)});
}

TEST_F(PruningTest, FoldersAndLinksToThemStay) {
    WriteFile(archive / ArchName(1) / "inside", "1");
    fs::create_symlink(ArchName(1), archive / "link");
    Archive({ArchName(2)});
    EXPECT_SUCCESS(catalogue.DeleteArchiveFiles(OldestFirst, Max, Max));
    EXPECT_DIR(archive, {{ArchName(1) + "/", ""}, {"link@", ArchName(1)}});
    EXPECT_DIR(archive / ArchName(1), {{"inside", "1"}});
    ExpectLines({Removal("1 file , 0 reboots", ArchName(2))});
}

TEST_F(PruningTest, AnArchiveFileWithoutABootNumberEndsTheWalk) {
    MakeArchive({ArchName(1), "messages.12x34.txt.xz", "messages.txt.xz", "zzz"});
    EXPECT_SUCCESS(catalogue.DeleteArchiveFiles(NewestFirst, Max, Max));
    ExpectLeft({ArchName(1), "messages.12x34.txt.xz", "messages.txt.xz"});
    ExpectLines({ForeignRemoval("zzz"), {LOG_ERR, "StringToInt() failure on txt."}});
}

TEST_F(PruningTest, AnEmptyArchiveIsASilentSuccess) {
    EXPECT_SUCCESS(catalogue.DeleteArchiveFiles(OldestFirst, Max, Max));
    EXPECT_SUCCESS(catalogue.DeleteArchiveFiles(NewestFirst, Max, Max));
}

TEST_F(PruningTest, AnArchiveThatCannotBeListedIsAFailureWhateverTheLimits) {
    ReplaceArchiveByAFile();
    EXPECT_FAILURE(catalogue.DeleteArchiveFiles(OldestFirst, Max, Max));
    ExpectLines({ListingFailure(ENOTDIR)});
    EXPECT_FAILURE(catalogue.DeleteArchiveFiles(NewestFirst, 0, 0));
    ExpectLines({ListingFailure(ENOTDIR)});
}

TEST_F(PruningTest, AnArchiveFileThatCannotBeRemovedEndsTheWalkWithoutAFailure) {
    MakeArchive({ArchName(1), ArchName(2), ArchName(3)});
    const Mounted over = Mounted::Over(archive / ArchName(2), archive / ArchName(2));
    EXPECT_SUCCESS(catalogue.DeleteArchiveFiles(OldestFirst, Max, Max));
    ExpectLeft({ArchName(2), ArchName(3)});
    ExpectLines({Removal("1 file , 0 reboots", ArchName(1)), RemovalFailure(ArchName(2)),
                 Removal("2 files, 1 reboot ", ArchName(2))});
}

TEST_F(PruningTest, AForeignFileThatCannotBeRemovedEndsTheWalkWithoutAFailure) {
    MakeArchive({"aaa", ArchName(1)});
    const Mounted over = Mounted::Over(archive / "aaa", archive / "aaa");
    EXPECT_SUCCESS(catalogue.DeleteArchiveFiles(OldestFirst, Max, Max));
    ExpectLeft({"aaa", ArchName(1)});
    ExpectLines({RemovalFailure("aaa"), ForeignRemoval("aaa")});
}

TEST_F(PruningTest, AReadOnlyArchiveLosesNothing) {
    MakeArchive({ArchName(1), ArchName(2)});
    const Mounted readOnly = Mounted::ReadOnly(archive);
    EXPECT_SUCCESS(catalogue.DeleteArchiveFiles(OldestFirst, Max, Max));
    ExpectLeft({ArchName(1), ArchName(2)});
    ExpectLines({RemovalFailure(ArchName(1)), Removal("1 file , 0 reboots", ArchName(1))});
}

}  // namespace
