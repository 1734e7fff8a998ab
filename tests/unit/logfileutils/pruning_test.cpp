// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// LogFileUtils::DeleteArchiveFiles.
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

    // Prunes an archive that holds `before`, and expects what is left.
    void ExpectPruned(const Names& before, bool oldestFirst, unsigned short maxFiles,
                      unsigned short maxReboots, const Names& left) {
        MakeArchive(before);
        EXPECT_SUCCESS(catalogue.DeleteArchiveFiles(oldestFirst, maxFiles, maxReboots));
        ExpectLeft(left);
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
    const Names all = {ArchName(1, 1), ArchName(1, 2), ArchName(2, 1),
                       ArchName(4, 1), ArchName(4, 2), ArchName(4, 3)};
    constexpr struct {
        bool oldestFirst;
        unsigned short maxFiles, maxReboots;
        int deleted;
    } Cases[] = {
        {OldestFirst, 0, Max, 0}, {OldestFirst, Max, 0, 0}, {OldestFirst, 0, 0, 0},
        {OldestFirst, 1, Max, 1}, {OldestFirst, 2, Max, 2}, {OldestFirst, 5, Max, 5},
        {OldestFirst, 6, Max, 6}, {OldestFirst, 7, Max, 6}, {OldestFirst, Max, 1, 2},
        {OldestFirst, Max, 2, 3}, {OldestFirst, Max, 3, 6}, {OldestFirst, Max, Max, 6},
        {OldestFirst, 1, 1, 1},   {OldestFirst, 3, 1, 2},   {OldestFirst, 3, 2, 3},
        {NewestFirst, 0, Max, 0}, {NewestFirst, Max, 0, 0}, {NewestFirst, 1, Max, 1},
        {NewestFirst, 5, Max, 5}, {NewestFirst, 6, Max, 6}, {NewestFirst, Max, 1, 3},
        {NewestFirst, Max, 2, 4}, {NewestFirst, Max, 3, 6}, {NewestFirst, Max, Max, 6},
        {NewestFirst, 4, 1, 3},
    };
    for (const auto& [oldestFirst, maxFiles, maxReboots, deleted] : Cases) {
        SCOPED_TRACE(testing::Message()
                     << (oldestFirst ? "oldest, " : "newest, ") << maxFiles << ", " << maxReboots);
        ExpectPruned(all, oldestFirst, maxFiles, maxReboots,
                     oldestFirst ? Names(all.begin() + deleted, all.end())
                                 : Names(all.begin(), all.end() - deleted));
        EXPECT_EQ(log.Take().size(), static_cast<std::size_t>(deleted));
    }
}

TEST_F(PruningTest, LogsTheRunningTotalsAtDebugWithALetterForThePlural) {
    ExpectPruned({ArchName(1), ArchName(2), ArchName(2, 1), ArchName(3)}, OldestFirst, Max, Max,
                 {});
    EXPECT_LOG(
        Removal("1 file , 0 reboots", ArchName(1)), Removal("2 files, 1 reboot ", ArchName(2)),
        Removal("3 files, 1 reboot ", ArchName(2, 1)), Removal("4 files, 2 reboots", ArchName(3)));

    ExpectPruned({ArchName(1), ArchName(2)}, NewestFirst, Max, Max, {});
    EXPECT_LOG(Removal("1 file , 0 reboots", ArchName(2)),
               Removal("2 files, 1 reboot ", ArchName(1)));

    Logging::SetLogLevel(Logging::SeverityInfo);
    ExpectPruned({ArchName(1), "notes"}, OldestFirst, Max, Max, {});
    EXPECT_LOG();
}

TEST_F(PruningTest, AChangeFromBootZeroIsNotCounted) {
    ExpectPruned({ArchName(0), ArchName(1), ArchName(2)}, OldestFirst, Max, 1, {ArchName(2)});
    EXPECT_LOG(Removal("1 file , 0 reboots", ArchName(0)),
               Removal("2 files, 0 reboots", ArchName(1)));
    ExpectPruned({ArchName(0), ArchName(1)}, NewestFirst, Max, 1, {ArchName(0)});
    EXPECT_LOG(Removal("1 file , 0 reboots", ArchName(1)));
}

TEST_F(PruningTest, ForeignFilesOnTheWayAreDeletedAndNotCounted) {
    ExpectPruned({"aaa", ArchName(1), "messages.txt.0", ArchName(2), "zzz"}, OldestFirst, 1, 1,
                 {"messages.txt.0", ArchName(2), "zzz"});
    EXPECT_LOG(ForeignRemoval("aaa"), Removal("1 file , 0 reboots", ArchName(1)));
    ExpectPruned({ArchName(1), ArchName(2), "zzz"}, NewestFirst, 1, 1, {ArchName(1)});
    EXPECT_LOG(ForeignRemoval("zzz"), Removal("1 file , 0 reboots", ArchName(2)));
    ExpectPruned({"aaa", "notes", "zzz"}, OldestFirst, 1, 1, {});
    EXPECT_LOG(ForeignRemoval("aaa"), ForeignRemoval("notes"), ForeignRemoval("zzz"));
}

TEST_F(PruningTest, WithAZeroLimitEvenForeignFilesStay) {
    const Names names = {"aaa", ArchName(1)};
    ExpectPruned(names, OldestFirst, 0, 1, names);
    ExpectPruned(names, OldestFirst, 1, 0, names);
}

TEST_F(PruningTest, FoldersAndLinksToThemStay) {
    WriteFile(archive / ArchName(1) / "inside", "1");
    fs::create_symlink(ArchName(1), archive / "link");
    Archive({ArchName(2)});
    EXPECT_SUCCESS(catalogue.DeleteArchiveFiles(OldestFirst, Max, Max));
    EXPECT_DIR(archive, {{ArchName(1) + "/", ""}, {"link@", ArchName(1)}});
    EXPECT_DIR(archive / ArchName(1), {{"inside", "1"}});
    EXPECT_LOG(Removal("1 file , 0 reboots", ArchName(2)));
}

TEST_F(PruningTest, AnArchiveFileWithoutABootNumberEndsTheWalk) {
    ExpectPruned({ArchName(1), "messages.12x34.txt.xz", "messages.txt.xz", "zzz"}, NewestFirst, Max,
                 Max, {ArchName(1), "messages.12x34.txt.xz", "messages.txt.xz"});
    EXPECT_LOG(ForeignRemoval("zzz"), Error("StringToInt() failure on txt."));
}

TEST_F(PruningTest, AnEmptyArchiveIsASilentSuccess) {
    ExpectPruned({}, OldestFirst, Max, Max, {});
    ExpectPruned({}, NewestFirst, Max, Max, {});
}

TEST_F(PruningTest, AnArchiveThatCannotBeListedIsAFailureWhateverTheLimits) {
    ReplaceArchiveByAFile();
    EXPECT_FAILURE(catalogue.DeleteArchiveFiles(OldestFirst, Max, Max));
    EXPECT_LOG(ListingFailure(ENOTDIR));
    EXPECT_FAILURE(catalogue.DeleteArchiveFiles(NewestFirst, 0, 0));
    EXPECT_LOG(ListingFailure(ENOTDIR));
}

TEST_F(PruningTest, AnArchiveFileThatCannotBeRemovedEndsTheWalkWithoutAFailure) {
    MakeArchive({ArchName(1), ArchName(2), ArchName(3)});
    const Mounted over = Mounted::Over(archive / ArchName(2), archive / ArchName(2));
    EXPECT_SUCCESS(catalogue.DeleteArchiveFiles(OldestFirst, Max, Max));
    ExpectLeft({ArchName(2), ArchName(3)});
    EXPECT_LOG(Removal("1 file , 0 reboots", ArchName(1)), RemovalFailure(ArchName(2)),
               Removal("2 files, 1 reboot ", ArchName(2)));
}

TEST_F(PruningTest, AForeignFileThatCannotBeRemovedEndsTheWalkWithoutAFailure) {
    MakeArchive({"aaa", ArchName(1)});
    const Mounted over = Mounted::Over(archive / "aaa", archive / "aaa");
    EXPECT_SUCCESS(catalogue.DeleteArchiveFiles(OldestFirst, Max, Max));
    ExpectLeft({"aaa", ArchName(1)});
    EXPECT_LOG(RemovalFailure("aaa"), ForeignRemoval("aaa"));
}

TEST_F(PruningTest, AReadOnlyArchiveLosesNothing) {
    MakeArchive({ArchName(1), ArchName(2)});
    const Mounted readOnly = Mounted::ReadOnly(archive);
    EXPECT_SUCCESS(catalogue.DeleteArchiveFiles(OldestFirst, Max, Max));
    ExpectLeft({ArchName(1), ArchName(2)});
    EXPECT_LOG(RemovalFailure(ArchName(1)), Removal("1 file , 0 reboots", ArchName(1)));
}

}  // namespace
