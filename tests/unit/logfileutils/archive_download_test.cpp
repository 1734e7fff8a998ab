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
#include <tuple>

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

    const std::string a = ArchName(1);
    const std::string b = ArchName(2);
    const std::string c = ArchName(3);
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
    ExpectLines({Filling("oldest 10 files, or 20"), Added("1 file, 0 reboots", a),
                 Estimate("10.038 kiB"), Added("2 files, 1 reboot", b), Estimate("20.038 kiB"),
                 Added("3 files, 1 reboot", b2), Estimate("20.038 kiB"),
                 Added("4 files, 2 reboots", c), Estimate("20.038 kiB"), PackedLine(4)});

    EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, Newest, 1, Max), 1);
    ExpectLines({Filling("newest 1 files, or 65535"), Added("1 file, 0 reboots", c),
                 Estimate("10.038 kiB"), PackedLine(1)});
}

TEST_F(ArchiveDownloadTest, EndsAtTheLimitOfFilesOrBoots) {
    const std::string a1 = ArchName(1, 1);
    const std::string b1 = ArchName(1, 2);
    const std::string a2 = ArchName(2, 1);
    const std::string a4 = ArchName(4, 1);
    const std::string b4 = ArchName(4, 2);
    const std::string c4 = ArchName(4, 3);
    Archive({a1, b1, a2, a4, b4, c4});
    const std::tuple<bool, unsigned short, unsigned short, Names> cases[] = {
        {Oldest, 1, Max, {a1}},
        {Oldest, 2, Max, {a1, b1}},
        {Oldest, 5, Max, {a1, b1, a2, a4, b4}},
        {Oldest, 6, Max, {a1, b1, a2, a4, b4, c4}},
        {Oldest, 7, Max, {a1, b1, a2, a4, b4, c4}},
        {Oldest, Max, 1, {a1, b1}},
        {Oldest, Max, 2, {a1, b1, a2}},
        {Oldest, Max, 3, {a1, b1, a2, a4, b4, c4}},
        {Oldest, Max, 4, {a1, b1, a2, a4, b4, c4}},
        {Oldest, 1, 1, {a1}},
        {Oldest, 3, 1, {a1, b1}},
        {Newest, 1, Max, {c4}},
        {Newest, 3, Max, {c4, b4, a4}},
        {Newest, 5, Max, {c4, b4, a4, a2, b1}},
        {Newest, 6, Max, {c4, b4, a4, a2, b1, a1}},
        {Newest, Max, 1, {c4, b4, a4}},
        {Newest, Max, 2, {c4, b4, a4, a2}},
        {Newest, Max, 3, {c4, b4, a4, a2, b1, a1}},
        {Newest, Max, Max, {c4, b4, a4, a2, b1, a1}},
        {Newest, 4, 1, {c4, b4, a4}},
        {Newest, 2, 2, {c4, b4}},
    };
    for (const auto& [oldest, maxFiles, maxBootNums, packed] : cases) {
        SCOPED_TRACE((oldest ? "oldest, " : "newest, ") + std::to_string(maxFiles) + ", " +
                     std::to_string(maxBootNums));
        EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, oldest, maxFiles, maxBootNums),
                  static_cast<int>(packed.size()));
        EXPECT_EQ(Packed(), packed);
        EXPECT_EQ(TmpNames(), Names{"syslog.tar"});
    }
}

TEST_F(ArchiveDownloadTest, AZeroLimitPacksNothing) {
    Archive({a});
    for (const bool oldest : {Oldest, Newest}) {
        const std::string end = oldest ? "oldest" : "newest";
        EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, oldest, 0, 7), 0);
        ExpectLines({Filling(end + " 0 files, or 7"), PackedLine(0)});
        EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, oldest, 7, 0), 0);
        ExpectLines({Filling(end + " 7 files, or 0"), PackedLine(0)});
        EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, oldest, 0, 0), 0);
        ExpectLines({Filling(end + " 0 files, or 0"), PackedLine(0)});
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

TEST_F(ArchiveDownloadTest, EachFillCountsAnew) {
    Archive({a, b});
    for (int fill = 0; fill < 3; ++fill) {
        EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, Oldest, 1, 1), 1);
        EXPECT_EQ(Packed(), Names{a});
        EXPECT_EQ(catalogue.dlReboots, 0);
    }
}

TEST_F(ArchiveDownloadTest, AnEmptyArchiveGivesZeroAndNoLine) {
    fs::create_directory(archive / a);
    EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, Oldest, Max, Max), 0);
    EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, Newest, Max, Max), 0);
    ExpectNoLines();
    EXPECT_EQ(TmpNames(), Names());
}

TEST_F(ArchiveDownloadTest, AnArchiveThatCannotBeListedIsAFailure) {
    ReplaceArchiveByAFile();
    EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, Oldest, Max, Max), -1);
    ExpectLines({ListingFailure(ENOTDIR)});
    RemoveArchive();
    EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, Newest, 0, 0), -1);
    ExpectLines({ListingFailure(ENOENT)});
    EXPECT_EQ(TmpNames(), Names());
}

TEST_F(ArchiveDownloadTest, StrayFilesAreSkippedAndStay) {
    const Names strays = {"aaa", "messages.txt.0", "messages.txt.xz", "notes", "zzz"};
    Archive(strays);
    Archive({a, b});
    for (const bool oldest : {Oldest, Newest}) {
        EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, oldest, 2, 2), 2);
        EXPECT_EQ(Packed(), oldest ? (Names{a, b}) : (Names{b, a}));
    }
    EXPECT_EQ(ReadDir(archive).size(), strays.size() + 2);
    // Only the walk from the newest meets the file without a boot number before its limit.
    int unparsed = 0;
    for (const LogLine& line : log.Take()) {
        if (line == LogLine{LOG_ERR, "StringToInt() failure on txt."}) ++unparsed;
    }
    EXPECT_EQ(unparsed, 1);
}

TEST_F(ArchiveDownloadTest, StrayFilesAlonePackNothing) {
    Archive({"notes", "zzz"});
    EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, Oldest, Max, Max), 0);
    ExpectLines({Filling("oldest 65535 files, or 65535"), PackedLine(0)});
    EXPECT_EQ(catalogue.FillArchiveDownload(NewTar, Newest, Max, Max), 0);
    ExpectLines({Filling("newest 65535 files, or 65535"), PackedLine(0)});
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
    ExpectLines({Filling("oldest 65535 files, or 65535"), sizeFailure,
                 Added("1 file, 0 reboots", a), Estimate("10.038 kiB")});
    EXPECT_EQ(Packed(), Names{a});
}

struct SizeCase {
    unsigned long tarSize;  // 0: none
    unsigned long fileSize;
    int packed;
};

class DownloadSizeTest : public ArchiveDownloadTest, public testing::WithParamInterface<bool> {
protected:
    const bool oldest = GetParam();
};

INSTANTIATE_TEST_SUITE_P(FromEitherEnd, DownloadSizeTest, testing::Values(Oldest, Newest),
                         [](const auto& end) { return end.param ? "Oldest" : "Newest"; });

TEST_P(DownloadSizeTest, TheEstimateMayReachTheLimitAndNotExceedIt) {
    constexpr unsigned long LargestFile = MaxDownloadSize - TarOverhead;
    const SizeCase cases[] = {
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
    for (const SizeCase& sizes : cases) {
        SCOPED_TRACE(std::to_string(sizes.tarSize) + " + " + std::to_string(sizes.fileSize));
        fs::remove(tarFile);
        // Zeros are a tar file that holds nothing yet.
        if (sizes.tarSize != 0) WriteSparseFile(tarFile, sizes.tarSize);
        ArchiveSized(a, sizes.fileSize);
        EXPECT_EQ(catalogue.FillArchiveDownload(sizes.tarSize != 0, oldest, Max, Max),
                  sizes.packed);
        EXPECT_EQ(fs::exists(tarFile) ? Packed() : Names(), sizes.packed == 1 ? Names{a} : Names());
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
    ExpectLines({Filling(std::string(oldest ? "oldest" : "newest") + " 65535 files, or 65535"),
                 PackedLine(0)});
}

// What goes wrong on the way ends the fill and undoes nothing.
class DownloadFailureTest : public ArchiveDownloadTest {
protected:
    DownloadFailureTest() { Archive({a, b, c}); }

    int Fill() { return catalogue.FillArchiveDownload(NewTar, Oldest, Max, Max); }

    const LogLine filling = Filling("oldest 65535 files, or 65535");
};

TEST_F(DownloadFailureTest, ATarThatFailsAtOnceLeavesNoCopy) {
    StandIn("tar", "exit 2");
    EXPECT_EQ(Fill(), -1);
    ExpectLines({filling, CommandFailure(Create(a), 512), Added("1 file, 0 reboots", a),
                 Estimate("10.038 kiB")});
    EXPECT_EQ(TmpNames(), Names());
}

TEST_F(DownloadFailureTest, ATarThatFailsLaterKeepsWhatWasPacked) {
    StandIn("tar", "case $1 in --append) exit 1; esac; exec /usr/bin/tar \"$@\"");
    EXPECT_EQ(Fill(), -1);
    EXPECT_EQ(Packed(), Names{a});
    EXPECT_EQ(TmpNames(), Names{"syslog.tar"});
    ExpectLines({filling, Added("1 file, 0 reboots", a), Estimate("10.038 kiB"),
                 CommandFailure(Append(b), 256), Added("2 files, 1 reboot", b),
                 Estimate("20.038 kiB")});
}

TEST_F(DownloadFailureTest, WithoutAShellNothingIsPacked) {
    Faults::Fail("system", ENOMEM);
    EXPECT_EQ(Fill(), -1);
    EXPECT_EQ(TmpNames(), Names());
    EXPECT_EQ(log.Take()[1],
              (LogLine{LOG_ERR, "Unable to '" + Create(a) +
                                    "'.  Result: 32512, Error: 'Cannot allocate memory'"}));
}

// tar runs all the same, and takes what lies there; then the name is free for the next attempt.
TEST_F(DownloadFailureTest, AFileInTheWayOfACopyIsAFailureAndTakenAway) {
    WriteFile(tmp / a, "planted");
    const LogLine copyFailure = CopyFailure(archive / a, tmp / a);
    EXPECT_EQ(Fill(), -1);
    ExpectLines({filling, copyFailure, Added("1 file, 0 reboots", a), Estimate("10.038 kiB")});
    EXPECT_EQ(PackedContent(a), "planted");
    EXPECT_EQ(TmpNames(), Names{"syslog.tar"});

    EXPECT_EQ(Fill(), 3);
    EXPECT_EQ(PackedContent(a), a);
}

TEST_F(DownloadFailureTest, ALinkInTheWayOfACopyIsNotFollowed) {
    WriteFile("/perm/logs/victim", "untouched");
    fs::create_symlink("/perm/logs/victim", tmp / b);
    fs::create_symlink("/perm/logs/new", tmp / a);
    EXPECT_EQ(Fill(), 3);
    EXPECT_EQ(PackedContent(b), b);
    EXPECT_EQ(ReadFile("/perm/logs/victim"), "untouched");
    EXPECT_FALSE(fs::exists("/perm/logs/new"));
}

// Any user can make these, and root must neither write through them nor wait for them.
TEST_F(DownloadFailureTest, WhatAUserPlantedForTheTarFileIsRemoved) {
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
        for (const fs::path& name : {tmp / "syslog.tar", tmp / a}) {
            SCOPED_TRACE(name);
            fs::remove_all(tmp / "syslog.tar");
            plant(name);
            EXPECT_EQ(Fill(), 3);
            EXPECT_EQ(Packed(), (Names{a, b, c}));
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
    log.Take();
    const LogLines isPacked = {
        {LOG_ERR, "Another log download is being packed.  Try again when it is done."}};
    WriteFile("/perm/logs/syslog/messages.txt", "live\n");
    EXPECT_EQ(Fill(), -1);
    ExpectLines(isPacked);
    EXPECT_EQ(catalogue.PrepDefaultLogFileDownload(), -1);
    ExpectLines(isPacked);
    EXPECT_FALSE(catalogue.PrepSyslog());
    ExpectLines(isPacked);
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
    EXPECT_THAT(log.Take(), testing::Contains(LogLine{LOG_ERR,
                                                      "Packing more than one file takes a tar with "
                                                      "--append, GNU tar for example."}));
    EXPECT_EQ(Packed(), Names{a});
}

TEST_F(DownloadFailureTest, ACopyThatCannotBeRemovedIsLoggedAndNoFailure) {
    Faults::Fail("remove", EIO, 1);
    const LogLine removalFailure = {LOG_ERR, RemovalFailure(tmp / a)};
    Faults::Fail("remove", EIO, 1);
    EXPECT_EQ(Fill(), 3);
    EXPECT_EQ(Packed(), (Names{a, b, c}));
    EXPECT_EQ(TmpNames(), (Names{a, "syslog.tar"}));
    EXPECT_EQ(log.Take()[1], removalFailure);
}

TEST_F(DownloadFailureTest, ATmpWithoutRoomForTheCopyIsAFailureThatLeavesNoCopy) {
    const Mounted small = Mounted::Tmpfs("/tmp", "64k");
    ArchiveSized(a, 100 << 10);
    const LogLine copyFailure = CopyFailure(archive / a, tmp / a);
    fs::remove(tmp / a);
    EXPECT_EQ(Fill(), -1);
    ExpectLines({filling, copyFailure, CommandFailure(Create(a), 512),
                 Added("1 file, 0 reboots", a), Estimate("110.000 kiB")});
    EXPECT_FALSE(fs::exists(tmp / a));
}

TEST_F(DownloadFailureTest, ATmpWithoutRoomForTheTarFileIsAFailureThatLeavesNoCopy) {
    const Mounted small = Mounted::Tmpfs("/tmp", "64k");
    ArchiveSized(a, 40 << 10);
    EXPECT_EQ(Fill(), -1);
    ExpectLines({filling, CommandFailure(Create(a), 512), Added("1 file, 0 reboots", a),
                 Estimate("50.000 kiB")});
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
    ExpectLines({{LOG_ERR, "Exception in GetFilesInDir(/perm/logs/syslog/archive): " +
                               WalkReason("cannot get file status", archive / "loop", ELOOP)}});
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
    ExpectLines({sizeFailure, copyFailure, CommandFailure(Create(a), 512),
                 Added("1 file, 0 reboots", a), Estimate("10.000 kiB")});
    EXPECT_EQ(catalogue.dlFiles, 1);
    EXPECT_FALSE(catalogue.dlDone);
    EXPECT_FALSE(catalogue.dlTarExists);
}

TEST_F(OneFileTest, AFailedSizeIsAFailureThoughTheFileIsPacked) {
    Archive({a});
    catalogue.dlTarExists = true;
    const LogLine sizeFailure = SizeFailure(tarFile);
    EXPECT_FAILURE(catalogue.AddFileToTarballAfterCheckingLimits(a, 1));
    ExpectLines({sizeFailure, Added("1 file, 0 reboots", a), Estimate("10.038 kiB")});
    EXPECT_EQ(Packed(), Names{a});
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
    ExpectNoLines();

    const LogLine sizeFailure = SizeFailure(archive / c);
    EXPECT_FAILURE(catalogue.AddFileToTarballAfterCheckingLimits(c, 3));
    ExpectLines({sizeFailure});
    EXPECT_EQ(TmpNames(), Names());
}

TEST_F(OneFileTest, TheLastAllowedFileEndsTheFill) {
    catalogue.dlMaxFiles = 2;
    Archive({a, b});
    EXPECT_SUCCESS(catalogue.AddFileToTarballAfterCheckingLimits(a, 1));
    EXPECT_FALSE(catalogue.dlDone);
    EXPECT_SUCCESS(catalogue.AddFileToTarballAfterCheckingLimits(b, 2));
    EXPECT_TRUE(catalogue.dlDone);
}

TEST_F(OneFileTest, TheTarFileExistsOnceCopyAndCommandSucceeded) {
    Archive({a, b});
    WriteFile(tmp / a, "in the way");
    EXPECT_FAILURE(catalogue.AddFileToTarball(a, archive / a));
    EXPECT_FALSE(catalogue.dlTarExists);

    StandIn("tar", "exit 1");
    EXPECT_FAILURE(catalogue.AddFileToTarball(a, archive / a));
    EXPECT_FALSE(catalogue.dlTarExists);

    StandIn("tar", "exec /usr/bin/tar \"$@\"");
    EXPECT_SUCCESS(catalogue.AddFileToTarball(a, archive / a));
    EXPECT_TRUE(catalogue.dlTarExists);
    EXPECT_SUCCESS(catalogue.AddFileToTarball(b, archive / b));
    EXPECT_EQ(Packed(), (Names{a, b}));
}

TEST_F(OneFileTest, TheSummaryHasItsPluralsAsWords) {
    const std::tuple<unsigned short, unsigned short, const char*> cases[] = {
        {0, 0, "0 files, 0 reboots"},
        {1, 0, "1 file, 0 reboots"},
        {1, 1, "1 file, 1 reboot"},
        {2, 1, "2 files, 1 reboot"},
        {2, 2, "2 files, 2 reboots"},
        {11, 21, "11 files, 21 reboots"},
        {Max, Max, "65535 files, 65535 reboots"},
    };
    for (const auto& [files, reboots, counts] : cases) {
        catalogue.dlFiles = files;
        catalogue.dlReboots = reboots;
        catalogue.LogAtDebug(MaxDownloadSize, a);
        ExpectLines({Added(counts, a), Estimate("15.000 MiB")});
    }
    Logging::SetLogLevel(Logging::SeverityInfo);
    catalogue.LogAtDebug(1, a);
    ExpectNoLines();
}

class DownloadFileSizeTest : public DownloadTest {
protected:
    void ExpectTooLarge(const std::string& size) {
        EXPECT_FAILURE(catalogue.CheckDownloadFileSize());
        ExpectLines({{LOG_WARNING, "/tmp/syslog.tar size (" + size +
                                       ") exceeds download file size limit of 15.000 MiB"}});
    }
};

TEST_F(DownloadFileSizeTest, UpToTheLimitIsFine) {
    for (const unsigned long size : {0UL, 1UL, MaxDownloadSize - 1, MaxDownloadSize}) {
        WriteSparseFile(tarFile, size);
        EXPECT_SUCCESS(catalogue.CheckDownloadFileSize());
    }
    ExpectNoLines();
}

TEST_F(DownloadFileSizeTest, AboveTheLimitIsWarnedOf) {
    WriteSparseFile(tarFile, MaxDownloadSize + 1);
    ExpectTooLarge("15.000 MiB");
    WriteSparseFile(tarFile, 5UL << 30);
    ExpectTooLarge("5.000 GiB");
}

TEST_F(DownloadFileSizeTest, OfNoFileIsAFailure) {
    EXPECT_FAILURE(catalogue.CheckDownloadFileSize());
    ExpectLines({SizeFailure(tarFile)});
    fs::create_directory(tarFile);
    EXPECT_FAILURE(catalogue.CheckDownloadFileSize());
    ExpectLines({SizeFailure(tarFile)});
}

}  // namespace
