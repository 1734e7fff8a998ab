// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Packing archive files into the tar file.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <iterator>
#include <utility>

#include "tests/support/mounts.h"
#include "tests/unit/logfileutils/download_fixture.h"

namespace fs = std::filesystem;

namespace {

constexpr bool NewTar = false;
constexpr bool TarExists = true;
constexpr bool Oldest = true;
constexpr bool Newest = false;

class ArchiveDownloadTest : public DownloadTest {
protected:
    static LogLine Filling(const std::string& what) {
        return {LOG_INFO, "Filling log download tarball with archive files. Adding " + what +
                              " boot numbers at most."};
    }
    static LogLine FillingAll(bool oldest) {
        return Filling(oldest ? "oldest 65535 files, or 65535" : "newest 65535 files, or 65535");
    }
    static LogLine PackedLine(int count) {
        return {LOG_INFO, "Log download file packed with " + std::to_string(count) + " logs."};
    }
    static LogLine Added(const std::string& counts, const std::string& name) {
        return {LOG_DEBUG, "Added " + counts + ", to /tmp/syslog.tar: " + name};
    }
    static LogLine Estimate(const std::string& size) {
        return {LOG_DEBUG, "Est. download size: " + size + "\n"};
    }

    // A file of the archive that costs nothing, whatever its size.
    void ArchiveSized(const std::string& name, unsigned long size) {
        WriteSparseFile(archive / name, size);
    }
};

TEST_F(ArchiveDownloadTest, PacksFromTheOldestOrTheNewestOn) {
    Archive({a, b, c});
    for (const bool oldest : {Oldest, Newest}) {
        EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, oldest, 10, 20), 3);
        EXPECT_EQ(Packed(), oldest ? (Names{a, b, c}) : (Names{c, b, a}));
        for (const std::string& name : {a, b, c}) EXPECT_EQ(PackedContent(name), name);
        EXPECT_EQ(TmpNames(), Names{"syslog.tar"});
        EXPECT_EQ(ReadDir(archive), (Dir{{a, a}, {b, b}, {c, c}}));
    }
}

TEST_F(ArchiveDownloadTest, CopiesPacksAndRemovesOneFileAfterTheOther) {
    Archive({a, b});
    EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, Oldest, Max, Max), 2);
    EXPECT_EQ(Faults::TakeCalls(), (Names{"system " + Create(a), "remove /tmp/" + a,
                                          "system " + Append(b), "remove /tmp/" + b}));
}

TEST_F(ArchiveDownloadTest, LogsWhatItDoesAndWhatItDid) {
    const std::string b2 = ArchName(2, 1);
    Archive({a, b, b2, c});
    EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, Oldest, 10, 20), 4);
    // tar files grow by records of 10 KiB.
    EXPECT_LOG(Filling("oldest 10 files, or 20"), Added("1 file, 0 reboots", a),
               Estimate("10.038 kiB"), Added("2 files, 1 reboot", b), Estimate("20.038 kiB"),
               Added("3 files, 1 reboot", b2), Estimate("20.038 kiB"),
               Added("4 files, 2 reboots", c), Estimate("20.038 kiB"), PackedLine(4));

    EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, Newest, 1, Max), 1);
    EXPECT_LOG(Filling("newest 1 files, or 65535"), Added("1 file, 0 reboots", c),
               Estimate("10.038 kiB"), PackedLine(1));
}

TEST_F(ArchiveDownloadTest, EndsAtTheLimitOfFilesOrBoots) {
    const Names all = {ArchName(1, 1), ArchName(1, 2), ArchName(2, 1),
                       ArchName(4, 1), ArchName(4, 2), ArchName(4, 3)};
    constexpr struct {
        bool oldest;
        unsigned short maxFiles, maxBootNums;
        int packed;
    } Cases[] = {
        {Oldest, 1, Max, 1}, {Oldest, 2, Max, 2}, {Oldest, 5, Max, 5},   {Oldest, 6, Max, 6},
        {Oldest, 7, Max, 6}, {Oldest, Max, 1, 2}, {Oldest, Max, 2, 3},   {Oldest, Max, 3, 6},
        {Oldest, Max, 4, 6}, {Oldest, 1, 1, 1},   {Oldest, 3, 1, 2},     {Newest, 1, Max, 1},
        {Newest, 3, Max, 3}, {Newest, 5, Max, 5}, {Newest, 6, Max, 6},   {Newest, Max, 1, 3},
        {Newest, Max, 2, 4}, {Newest, Max, 3, 6}, {Newest, Max, Max, 6}, {Newest, 4, 1, 3},
        {Newest, 2, 2, 2},
    };
    Archive(all);
    for (const auto& [oldest, maxFiles, maxBootNums, packed] : Cases) {
        SCOPED_TRACE(testing::Message()
                     << (oldest ? "oldest, " : "newest, ") << maxFiles << ", " << maxBootNums);
        EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, oldest, maxFiles, maxBootNums), packed);
        EXPECT_EQ(Packed(), oldest ? Names(all.begin(), all.begin() + packed)
                                   : Names(all.rbegin(), all.rbegin() + packed));
        EXPECT_EQ(TmpNames(), Names{"syslog.tar"});
    }
}

TEST_F(ArchiveDownloadTest, AZeroLimitPacksNothing) {
    Archive({a});
    for (const bool oldest : {Oldest, Newest}) {
        const std::string end = oldest ? "oldest" : "newest";
        EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, oldest, 0, 7), 0);
        EXPECT_LOG(Filling(end + " 0 files, or 7"), PackedLine(0));
        EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, oldest, 7, 0), 0);
        EXPECT_LOG(Filling(end + " 7 files, or 0"), PackedLine(0));
        EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, oldest, 0, 0), 0);
        EXPECT_LOG(Filling(end + " 0 files, or 0"), PackedLine(0));
    }
    EXPECT_EQ(TmpNames(), Names());
    EXPECT_EQ(Faults::TakeCalls(), Names());
}

TEST_F(ArchiveDownloadTest, AChangeFromBootZeroIsNotCounted) {
    const std::string zero = ArchName(0);
    Archive({zero, a, b});
    EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, Oldest, Max, 1), 2);
    EXPECT_EQ(Packed(), (Names{zero, a}));
    EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, Newest, Max, 2), 2);
    EXPECT_EQ(Packed(), (Names{b, a}));
}

TEST_F(ArchiveDownloadTest, AFillTakesTheRangeThatItIsGiven) {
    Archive({a, b, c});
    const std::set<std::string> names = catalogue.GetArchiveFileList();
    EXPECT_EQ(catalogue.FillArchDl(NewTar, std::next(names.crbegin()), names.crend(), Max, Max), 2);
    EXPECT_EQ(Packed(), (Names{b, a}));
    EXPECT_EQ(catalogue.FillArchDl(TarExists, names.cbegin(), std::next(names.cbegin()), Max, Max),
              1);
    EXPECT_EQ(Packed(), (Names{b, a, a}));
    EXPECT_EQ(catalogue.FillArchDl(NewTar, names.cend(), names.cend(), Max, Max), 0);
}

TEST_F(ArchiveDownloadTest, AnEmptyArchiveGivesZeroAndNoLine) {
    fs::create_directory(archive / a);
    for (const bool oldest : {Oldest, Newest}) {
        EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, oldest, Max, Max), 0);
        EXPECT_LOG();
    }
    EXPECT_EQ(TmpNames(), Names());
}

TEST_F(ArchiveDownloadTest, AnArchiveThatCannotBeListedIsAFailure) {
    ReplaceArchiveByAFile();
    EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, Oldest, Max, Max), -1);
    EXPECT_LOG(ListingFailure(ENOTDIR));
    RemoveArchive();
    EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, Newest, 0, 0), -1);
    EXPECT_LOG(ListingFailure(ENOENT));
    EXPECT_EQ(TmpNames(), Names());
}

TEST_F(ArchiveDownloadTest, StrayFilesAreSkippedAndStay) {
    const Names strays = {"aaa", "messages.txt.0", "messages.txt.xz", "notes", "zzz"};
    Archive(strays);
    Archive({a, b});
    const LogLine noBootNum{LOG_ERR, "StringToInt() failure on txt."};
    for (const bool oldest : {Oldest, Newest}) {
        EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, oldest, 2, 2), 2);
        EXPECT_EQ(Packed(), oldest ? (Names{a, b}) : (Names{b, a}));
        // Only the walk from the newest meets the file without a boot number before its limit.
        EXPECT_EQ(testing::Matches(testing::Contains(noBootNum))(log.Take()), oldest == Newest);
    }
    EXPECT_EQ(ReadDir(archive).size(), strays.size() + 2);
}

TEST_F(ArchiveDownloadTest, StrayFilesAlonePackNothing) {
    Archive({"notes", "zzz"});
    for (const bool oldest : {Oldest, Newest}) {
        EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, oldest, Max, Max), 0);
        EXPECT_LOG(FillingAll(oldest), PackedLine(0));
    }
    EXPECT_EQ(TmpNames(), Names());
}

TEST_F(ArchiveDownloadTest, AnOldTarFileIsReplacedUnlessTheCallerSaysToAppend) {
    Archive({a, b, c});
    EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, Oldest, 1, Max), 1);
    EXPECT_EQ(Packed(), Names{a});
    EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, Newest, 1, Max), 1);
    EXPECT_EQ(Packed(), Names{c});
    EXPECT_EQ(catalogue.FillArchiveDownload(TarExists, Oldest, 2, Max), 2);
    EXPECT_EQ(Packed(), (Names{c, a, b}));
    EXPECT_EQ(catalogue.FillArchiveDownload(TarExists, Newest, 1, Max), 1);
    EXPECT_EQ(Packed(), (Names{c, a, b, c}));
}

TEST_F(ArchiveDownloadTest, AMissingTarFileThatTheCallerSaysExistsIsAFailureButTried) {
    Archive({a, b});
    const LogLine sizeFailure = SizeFailure(tarFile);
    EXPECT_EQ(catalogue.FillArchiveDownload(TarExists, Oldest, Max, Max), -1);
    EXPECT_EQ(Faults::TakeCalls(), (Names{"system " + Append(a), "remove /tmp/" + a}));
    EXPECT_LOG(FillingAll(Oldest), sizeFailure, Added("1 file, 0 reboots", a),
               Estimate("10.038 kiB"));
    EXPECT_EQ(Packed(), Names{a});
}

class DownloadSizeTest : public ArchiveDownloadTest, public testing::WithParamInterface<bool> {
protected:
    const bool oldest = GetParam();
};

INSTANTIATE_TEST_SUITE_P(FromEitherEnd, DownloadSizeTest, testing::Values(Oldest, Newest),
                         [](const auto& end) { return end.param ? "Oldest" : "Newest"; });

TEST_P(DownloadSizeTest, TheEstimateMayReachTheLimitAndNotExceedIt) {
    constexpr unsigned long LargestFile = MaxDownloadSize - TarOverhead;
    constexpr struct {
        unsigned long tarSize;  // 0: none
        unsigned long fileSize;
        int packed;
    } Cases[] = {
        {0, LargestFile - 1, 1},
        {0, LargestFile, 1},
        {0, LargestFile + 1, 0},
        {0, MaxDownloadSize, 0},
        {0, MaxDownloadSize + 1, 0},
        {0, 20UL << 20, 0},
        {0, 5UL << 30, 0},
        {10240, LargestFile - 10241, 1},
        {10240, LargestFile - 10240, 1},
        {10240, LargestFile - 10239, 0},
        {LargestFile, 0, 1},
        {LargestFile, 1, 0},
        {LargestFile + 512, 0, 0},
        {20UL << 20, 0, 0},
    };
    for (const auto& [tarSize, fileSize, packed] : Cases) {
        SCOPED_TRACE(std::to_string(tarSize) + " + " + std::to_string(fileSize));
        fs::remove(tarFile);
        // Zeros are a tar file that holds nothing yet.
        if (tarSize != 0) WriteSparseFile(tarFile, tarSize);
        ArchiveSized(a, fileSize);
        EXPECT_EQ(catalogue.FillArchiveDownload(tarSize != 0, oldest, Max, Max), packed);
        EXPECT_EQ(fs::exists(tarFile) ? Packed() : Names(), packed == 1 ? Names{a} : Names());
        EXPECT_FALSE(fs::exists(tmp / a));
    }
}

TEST_P(DownloadSizeTest, TheTarFilesOwnGrowthCounts) {
    for (const std::string& name : {a, b, c}) ArchiveSized(name, 6UL << 20);
    EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, oldest, Max, Max), 2);
    EXPECT_EQ(Packed(), oldest ? (Names{a, b}) : (Names{c, b}));
    EXPECT_LE(fs::file_size(tarFile), MaxDownloadSize);
}

TEST_P(DownloadSizeTest, ALargeFileIsNeverSkippedForASmallerOneBehindIt) {
    ArchiveSized(a, 1);
    ArchiveSized(b, 20UL << 20);
    ArchiveSized(c, 1);
    EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, oldest, Max, Max), 1);
    EXPECT_EQ(Packed(), Names{oldest ? a : c});
}

TEST_P(DownloadSizeTest, AFileThatDoesNotFitLeavesNoTrace) {
    ArchiveSized(a, 20UL << 20);
    EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, oldest, Max, Max), 0);
    EXPECT_EQ(TmpNames(), Names());
    EXPECT_EQ(Faults::TakeCalls(), Names());
    EXPECT_LOG(FillingAll(oldest), PackedLine(0));
}

// What goes wrong on the way ends the fill and undoes nothing.
class DownloadFailureTest : public ArchiveDownloadTest {
protected:
    DownloadFailureTest() { Archive({a, b, c}); }

    int Fill() { return catalogue.FillArchiveDownload(NewTar, Oldest, Max, Max); }

    const LogLine filling = FillingAll(Oldest);
    const LogLine firstAdded = Added("1 file, 0 reboots", a);
};

TEST_F(DownloadFailureTest, ATarThatFailsAtOnceLeavesNoCopy) {
    StandIn("tar", "exit 2");
    EXPECT_EQ(Fill(), -1);
    EXPECT_LOG(filling, CommandFailure(Create(a), 512), firstAdded, Estimate("10.038 kiB"));
    EXPECT_EQ(TmpNames(), Names());
}

TEST_F(DownloadFailureTest, ATarThatFailsLaterKeepsWhatWasPacked) {
    StandIn("tar", "case $1 in --append) exit 1; esac; exec /usr/bin/tar \"$@\"");
    EXPECT_EQ(Fill(), -1);
    EXPECT_EQ(Packed(), Names{a});
    EXPECT_EQ(TmpNames(), Names{"syslog.tar"});
    EXPECT_LOG(filling, firstAdded, Estimate("10.038 kiB"), CommandFailure(Append(b), 256),
               Added("2 files, 1 reboot", b), Estimate("20.038 kiB"));
}

TEST_F(DownloadFailureTest, WithoutAShellNothingIsPacked) {
    Faults::Fail("system", ENOMEM);
    EXPECT_EQ(Fill(), -1);
    EXPECT_EQ(TmpNames(), Names());
    EXPECT_THAT(log.Take()[1], Error("Unable to '" + Create(a) +
                                     "'.  Result: 32512, Error: 'Cannot allocate memory'"));
}

// tar runs all the same, and takes what lies there; then the name is free for the next attempt.
TEST_F(DownloadFailureTest, AFileInTheWayOfACopyIsAFailureAndTakenAway) {
    WriteFile(tmp / a, "planted");
    const LogLine copyFailure = CopyFailure(archive / a, tmp / a);
    EXPECT_EQ(Fill(), -1);
    EXPECT_LOG(filling, copyFailure, firstAdded, Estimate("10.038 kiB"));
    EXPECT_EQ(PackedContent(a), "planted");
    EXPECT_EQ(TmpNames(), Names{"syslog.tar"});

    EXPECT_EQ(Fill(), 3);
    EXPECT_EQ(PackedContent(a), a);
}

// Any user can make these, and root must neither write through them nor wait for them.
TEST_F(DownloadFailureTest, WhatAUserPlantedIsRemoved) {
    WriteFile("/perm/logs/victim", "untouched");
    const std::function<void(const fs::path&)> plants[]{
        [](const fs::path& name) { fs::create_symlink("/perm/logs/victim", name); },
        [](const fs::path& name) { fs::create_symlink("/perm/logs/new", name); },
        [](const fs::path& name) {
            WriteFile("/tmp/victim", "untouched");
            fs::create_hard_link("/tmp/victim", name);
        },
        [](const fs::path& name) { ASSERT_EQ(mkfifo(name.c_str(), 0666), 0); },
        [](const fs::path& name) { WriteFile(name / "folder" / "file", "planted"); },
        [](const fs::path& name) {
            WriteFile(name, "planted");
            ASSERT_EQ(chown(name.c_str(), 65534, 65534), 0);
        },
    };
    for (const auto& plant : plants) {
        for (const fs::path& name : {tarFile, tmp / a, tmp / b}) {
            SCOPED_TRACE(name);
            fs::remove_all(tarFile);
            plant(name);
            EXPECT_EQ(Fill(), 3);
            EXPECT_EQ(Packed(), (Names{a, b, c}));
            EXPECT_EQ(PackedContent(a) + PackedContent(b), a + b);
            EXPECT_EQ(fs::exists("/tmp/victim") ? ReadFile("/tmp/victim") : "untouched",
                      "untouched");
            fs::remove("/tmp/victim");
            EXPECT_EQ(TmpNames(), Names{"syslog.tar"});
        }
    }
    EXPECT_EQ(ReadFile("/perm/logs/victim"), "untouched");
    EXPECT_FALSE(fs::exists("/perm/logs/new"));
}

TEST_F(DownloadFailureTest, WhatCannotBeRemovedIsAFailure) {
    fs::create_directory(tmp / "syslog.tar");
    const Mounted mounted = Mounted::Tmpfs(tmp / "syslog.tar", "64k");
    EXPECT_EQ(Fill(), -1);
    EXPECT_THAT(log.Take()[1].text, testing::StartsWith("Remove failure for /tmp/syslog.tar: "));
}

TEST_F(DownloadFailureTest, OneDownloadIsPackedAtATime) {
    const int theirs = open("/var/run/vandis-moraine-download.lock", O_RDWR | O_CREAT, 0600);
    ASSERT_EQ(flock(theirs, LOCK_EX), 0);
    WriteFile(liveLog, "live\n");
    EXPECT_EQ(Fill(), -1);
    EXPECT_EQ(catalogue.PrepDefaultLogFileDownload(), -1);
    EXPECT_FALSE(catalogue.PrepSyslog());
    const LogLine isPacked{LOG_ERR,
                           "Another log download is being packed.  Try again when it is done."};
    EXPECT_LOG(isPacked, isPacked, isPacked);
    EXPECT_EQ(TmpNames(), Names());
    (void)close(theirs);
    EXPECT_EQ(Fill(), 3);
}

// BusyBox's tar is one.
TEST_F(DownloadFailureTest, ATarWithoutAppendIsNamed) {
    StandIn("tar",
            "case $1 in --help) echo 'Usage: tar c|x|t [-f TARFILE]'; exit 1;; --append) exit 1;; "
            "esac; exec /usr/bin/tar \"$@\"");
    EXPECT_EQ(Fill(), -1);
    EXPECT_THAT(log.Take(), testing::Contains(Error("Packing more than one file takes a tar with "
                                                    "--append, GNU tar for example.")));
    EXPECT_EQ(Packed(), Names{a});
}

TEST_F(DownloadFailureTest, ACopyThatCannotBeRemovedIsLoggedAndNoFailure) {
    Faults::Fail("remove", EIO);
    const std::string removalFailure = RemovalFailure(tmp / a);
    Faults::Fail("remove", EIO, 1);
    EXPECT_EQ(Fill(), 3);
    EXPECT_EQ(Packed(), (Names{a, b, c}));
    EXPECT_EQ(TmpNames(), (Names{a, "syslog.tar"}));
    EXPECT_THAT(log.Take()[1], Error(removalFailure));
}

TEST_F(DownloadFailureTest, ATmpWithoutRoomForCopyOrTarFileIsAFailureThatLeavesNoCopy) {
    const Mounted small = Mounted::Tmpfs("/tmp", "64k");
    ArchiveSized(a, 100 << 10);
    const LogLine copyFailure = CopyFailure(archive / a, tmp / a);
    fs::remove(tmp / a);
    EXPECT_EQ(Fill(), -1);
    EXPECT_LOG(filling, copyFailure, CommandFailure(Create(a), 512), firstAdded,
               Estimate("110.000 kiB"));
    EXPECT_FALSE(fs::exists(tmp / a));

    ArchiveSized(a, 40 << 10);
    EXPECT_EQ(Fill(), -1);
    EXPECT_LOG(filling, CommandFailure(Create(a), 512), firstAdded, Estimate("50.000 kiB"));
    EXPECT_FALSE(fs::exists(tmp / a));
}

TEST_F(DownloadFailureTest, AReadOnlyTmpIsAFailure) {
    const Mounted readOnly = Mounted::ReadOnly("/tmp");
    EXPECT_EQ(Fill(), -1);
    EXPECT_EQ(TmpNames(), Names());
}

TEST_F(DownloadFailureTest, AnArchiveFileThatCannotBeReadIsAFailure) {
    fs::remove(archive / b);
    fs::create_symlink("loop", archive / "loop");
    EXPECT_EQ(Fill(), -1);
    EXPECT_LOG(Error("Exception in GetFilesInDir(/perm/logs/syslog/archive): " +
                     WalkReason("cannot get file status", archive / "loop", ELOOP)));
}

// One file of a fill.
class OneFileTest : public ArchiveDownloadTest {
protected:
    OneFileTest() {
        catalogue.dlMaxBootNums = Max;
        catalogue.dlMaxFiles = Max;
    }
};

TEST_F(OneFileTest, AFileThatVanishedIsAFailureButTried) {
    const LogLine sizeFailure = SizeFailure(archive / a);
    const LogLine copyFailure = CopyFailure(archive / a, tmp / a);
    EXPECT_FAILURE(catalogue.AddFileToTarballAfterCheckingLimits(a, 1));
    EXPECT_LOG(sizeFailure, copyFailure, CommandFailure(Create(a), 512),
               Added("1 file, 0 reboots", a), Estimate("10.000 kiB"));
    EXPECT_EQ(catalogue.dlFiles, 1);
    EXPECT_FALSE(catalogue.dlDone);
    EXPECT_FALSE(catalogue.dlTarExists);
}

TEST_F(OneFileTest, ThatExceedsTheBootLimitIsSizedAndNotPacked) {
    catalogue.dlMaxBootNums = 1;
    catalogue.dlPrevBootNum = 1;
    Archive({b});
    EXPECT_SUCCESS(catalogue.AddFileToTarballAfterCheckingLimits(b, 2));
    EXPECT_TRUE(catalogue.dlDone);
    EXPECT_EQ(catalogue.dlReboots, 1);
    EXPECT_EQ(catalogue.dlPrevBootNum, 2);
    EXPECT_EQ(catalogue.dlFiles, 0);
    EXPECT_LOG();

    const LogLine sizeFailure = SizeFailure(archive / c);
    EXPECT_FAILURE(catalogue.AddFileToTarballAfterCheckingLimits(c, 3));
    EXPECT_LOG(sizeFailure);
    EXPECT_EQ(TmpNames(), Names());
}

TEST_F(OneFileTest, TheTarFileExistsOnceCopyAndCommandSucceeded) {
    Archive({a});
    WriteFile(tmp / a, "in the way");
    EXPECT_FAILURE(catalogue.AddFileToTarball(a, archive / a));
    EXPECT_FALSE(catalogue.dlTarExists);

    StandIn("tar", "exit 1");
    EXPECT_FAILURE(catalogue.AddFileToTarball(a, archive / a));
    EXPECT_FALSE(catalogue.dlTarExists);

    StandIn("tar", "exec /usr/bin/tar \"$@\"");
    EXPECT_SUCCESS(catalogue.AddFileToTarball(a, archive / a));
    EXPECT_TRUE(catalogue.dlTarExists);
}

TEST_F(OneFileTest, TheSummaryHasItsPluralsAsWords) {
    constexpr struct {
        unsigned short files, reboots;
        const char* counts;
    } Cases[] = {{0, 0, "0 files, 0 reboots"},
                 {1, 0, "1 file, 0 reboots"},
                 {1, 1, "1 file, 1 reboot"},
                 {2, 1, "2 files, 1 reboot"},
                 {2, 2, "2 files, 2 reboots"},
                 {11, 21, "11 files, 21 reboots"},
                 {Max, Max, "65535 files, 65535 reboots"}};
    for (const auto& [files, reboots, counts] : Cases) {
        catalogue.dlFiles = files;
        catalogue.dlReboots = reboots;
        catalogue.LogAtDebug(MaxDownloadSize, a);
        EXPECT_LOG(Added(counts, a), Estimate("15.000 MiB"));
    }
    Logging::SetLogLevel(Logging::SeverityInfo);
    catalogue.LogAtDebug(1, a);
    EXPECT_LOG();
}

using DownloadFileSizeTest = DownloadTest;

TEST_F(DownloadFileSizeTest, UpToTheLimitIsFine) {
    for (const unsigned long size : {0UL, 1UL, MaxDownloadSize - 1, MaxDownloadSize}) {
        WriteSparseFile(tarFile, size);
        EXPECT_SUCCESS(catalogue.CheckDownloadFileSize());
    }
    EXPECT_LOG();
}

TEST_F(DownloadFileSizeTest, AboveTheLimitIsWarnedOf) {
    const std::pair<unsigned long, std::string> sizes[] = {{MaxDownloadSize + 1, "15.000 MiB"},
                                                           {5UL << 30, "5.000 GiB"}};
    for (const auto& [size, text] : sizes) {
        WriteSparseFile(tarFile, size);
        EXPECT_FAILURE(catalogue.CheckDownloadFileSize());
        EXPECT_LOG(Warning("/tmp/syslog.tar size (" + text +
                           ") exceeds download file size limit of 15.000 MiB"));
    }
}

TEST_F(DownloadFileSizeTest, OfNoFileIsAFailure) {
    EXPECT_FAILURE(catalogue.CheckDownloadFileSize());
    EXPECT_LOG(SizeFailure(tarFile));
    fs::create_directory(tarFile);
    EXPECT_FAILURE(catalogue.CheckDownloadFileSize());
    EXPECT_LOG(SizeFailure(tarFile));
}

}  // namespace
