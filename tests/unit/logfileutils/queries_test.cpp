// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Queries about the archive and the syslog directory.
#include <dlfcn.h>
#include <sys/stat.h>

#include <cerrno>
#include <tuple>
#include <utility>

#include "tests/support/ordinary_rights.h"
#include "tests/unit/logfileutils/fixture.h"

namespace fs = std::filesystem;

namespace {

std::string failingPath;
int looksBefore = 0;  // that do not fail

}  // namespace

// A file that is there when it is looked for and cannot be sized then: no mount can show that.
extern "C" int stat(const char* path, struct stat* status) noexcept {
    static auto* const real =
        reinterpret_cast<int (*)(const char*, struct stat*)>(dlsym(RTLD_NEXT, "stat"));
    if (failingPath != path || looksBefore-- > 0) return real(path, status);
    errno = EIO;
    return -1;
}

namespace {

constexpr unsigned short Untouched = 4711;

using ArchDirSizeTest = CatalogueTest;

TEST_F(ArchDirSizeTest, CountsEveryRegularFile) {
    WriteFile(archive / ArchName(1), "123");
    MakeDir(archive, {{"notes", "4567"}, {"folder/inside", "89"}});
    WriteFile(liveLog, "not in the archive");
    unsigned long size = Untouched;
    EXPECT_SUCCESS(catalogue.GetArchDirSize(size));
    EXPECT_EQ(size, 7U);
}

TEST_F(ArchDirSizeTest, OfAnArchiveThatCannotBeReadIsAFailureAndZero) {
    RemoveArchive();
    unsigned long size = Untouched;
    EXPECT_FAILURE(catalogue.GetArchDirSize(size));
    EXPECT_EQ(size, 0U);
    EXPECT_LOG(
        Error("GetDirSize failure on /perm/logs/syslog/archive: " + CannotOpen(archive, ENOENT)));
}

class CountTest : public CatalogueTest {
protected:
    using Query = bool (LogFileUtils::*)(unsigned short&) const;

    void ExpectCount(Query query, unsigned short expected) {
        unsigned short count = Untouched;
        EXPECT_SUCCESS((catalogue.*query)(count));
        EXPECT_EQ(count, expected);
    }
    void ExpectFailure(Query query) {
        unsigned short count = Untouched;
        EXPECT_FAILURE((catalogue.*query)(count));
        EXPECT_EQ(count, 0);
    }
};

TEST_F(CountTest, ArchiveFilesAreRegularFilesWithAnArchiveName) {
    ExpectCount(&LogFileUtils::GetNumArchFiles, 0);
    Archive({ArchName(1), ArchName(1, 1), ArchName(1000), "messages.xz", "notes", "messages.txt.0",
             ArchName(2) + ".tmp"});
    MakeDir(
        archive,
        {{ArchName(3) + "/", ""}, {ArchName(4) + "@", "notes"}, {ArchName(5) + "@", "nowhere"}});
    ExpectCount(&LogFileUtils::GetNumArchFiles, 5);
}

TEST_F(CountTest, RotationsAreRegularFilesWithARotationsName) {
    ExpectCount(&LogFileUtils::GetNumSyslogRots, 0);
    MakeDir(syslogDir, {{"messages.txt", ""},
                        {"messages.txt.0", ""},
                        {"messages.txt.9", ""},
                        {"messages.txt.tmp", ""},
                        {"messages.0", ""},
                        {"other.txt.0", ""},
                        {"messages.txt.1/", ""},
                        {"archive/messages.txt.2", ""}});
    ExpectCount(&LogFileUtils::GetNumSyslogRots, 3);
}

TEST_F(CountTest, OfAFolderThatCannotBeListedIsAFailureAndZero) {
    ReplaceArchiveByAFile();
    ExpectFailure(&LogFileUtils::GetNumArchFiles);
    EXPECT_LOG(ListingFailure(ENOTDIR));

    fs::remove_all(syslogDir);
    ExpectFailure(&LogFileUtils::GetNumSyslogRots);
    EXPECT_LOG(
        Error("Exception in GetFilesInDir(/perm/logs/syslog): " + CannotOpen(syslogDir, ENOENT)));
}

class SyslogStatsTest : public CatalogueTest {
protected:
    SyslogStatsTest() {
        Faults::OnCall("clock_gettime", [this] { Faults::FixClock({++clockReadings, 42}); });
    }
    ~SyslogStatsTest() override {
        Faults::Clear();
        failingPath.clear();
    }

    void ExpectStats(unsigned long size, time_t seconds, unsigned short numRots) {
        EXPECT_EQ(stats.size, size);
        EXPECT_EQ(stats.timeStamp.tv_sec, seconds);
        EXPECT_EQ(stats.timeStamp.tv_nsec, 42);
        EXPECT_EQ(stats.numRots, numRots);
    }

    time_t clockReadings = 0;
    SyslogStats_s stats{Untouched, {Untouched, Untouched}, Untouched};
};

TEST_F(SyslogStatsTest, AreSizeNumberAndTheTimeWhenBothWereKnown) {
    WriteFile(liveLog, "12345");
    MakeDir(syslogDir, {{"messages.txt.0", ""}, {"messages.txt.1", ""}});
    EXPECT_SUCCESS(catalogue.GetSyslogStats(stats));
    ExpectStats(5, 2, 2);
}

TEST_F(SyslogStatsTest, WithoutALiveLogTheSizeIsZero) {
    EXPECT_SUCCESS(catalogue.GetSyslogStats(stats));
    ExpectStats(0, 2, 0);
    fs::create_directory(liveLog);
    EXPECT_SUCCESS(catalogue.GetSyslogStats(stats));
    ExpectStats(0, 4, 0);
}

TEST_F(SyslogStatsTest, RotationsThatCannotBeCountedAreAFailure) {
    fs::remove_all(syslogDir);
    EXPECT_FAILURE(catalogue.GetSyslogStats(stats));
    ExpectStats(0, 1, 0);
    EXPECT_EQ(log.Take().size(), 1U);
}

TEST_F(SyslogStatsTest, ALiveLogThatCannotBeSizedIsAFailure) {
    WriteFile(liveLog, "12345");
    WriteFile(syslogDir / "messages.txt.0");
    failingPath = liveLog;
    looksBefore = 1;
    EXPECT_FAILURE(catalogue.GetSyslogStats(stats));
    ExpectStats(0, 1, 1);
    EXPECT_LOG(Error("GetFileSize(/perm/logs/syslog/messages.txt) exception: " +
                     Reason([&] { (void)fs::file_size(liveLog); })));
}

class BootNumTest : public CatalogueTest {
protected:
    void ExpectRange(unsigned short expectedMin, unsigned short expectedMax,
                     unsigned short expectedReboots, const LogLines& expectedLines = {}) {
        unsigned short min = Untouched;
        unsigned short max = Untouched;
        EXPECT_SUCCESS(catalogue.GetBootNumRange(min, max));
        EXPECT_EQ(min, expectedMin);
        EXPECT_EQ(max, expectedMax);
        EXPECT_EQ(log.Take(), expectedLines);

        unsigned short reboots = Untouched;
        EXPECT_SUCCESS(catalogue.GetNumReboots(reboots));
        EXPECT_EQ(reboots, expectedReboots);
        EXPECT_EQ(log.Take(), expectedLines);
    }
};

TEST_F(BootNumTest, RangeFromTheLowestToTheHighest) {
    const std::tuple<Names, unsigned short, unsigned short, unsigned short> cases[] = {
        {{}, 0, 0, 0},
        {{ArchName(5)}, 5, 5, 1},
        {{ArchName(5), ArchName(5, 1)}, 5, 5, 1},
        {{ArchName(1), ArchName(2)}, 1, 2, 2},
        {{ArchName(7), ArchName(3), ArchName(5)}, 3, 7, 5},
        {{ArchName(1), ArchName(999)}, 1, 999, 999},
        {{ArchName(998)}, 998, 998, 1},
        {{ArchName(999)}, 999, 999, 1},
        // The search for the lowest starts at 999.
        {{ArchName(1000)}, 999, 1000, 2},
        {{ArchName(1000), ArchName(1001)}, 999, 1001, 3},
        {{ArchName(65535)}, 999, 65535, 64537},
        // Nothing but boot 0 is as good as nothing.
        {{ArchName(0)}, 0, 0, 0},
        {{ArchName(0), ArchName(1)}, 0, 1, 2},
        {{ArchName(0), ArchName(65534)}, 0, 65534, 65535},
        {{ArchName(0), ArchName(65535)}, 0, 65535, 0},  // the count has 16 bits
    };
    for (const auto& [names, min, max, reboots] : cases) {
        SCOPED_TRACE(testing::PrintToString(names));
        MakeArchive(names);
        ExpectRange(min, max, reboots);
    }
}

TEST_F(BootNumTest, AForeignFileCountsAsBootZero) {
    const std::pair<const char*, const char*> cases[] = {
        {"notes", "notes is not a logging archive file."},
        {"messages.9", "messages is not a logging archive file."},  // the last field is cut off
        {"messages.xz", "messages is not a logging archive file."},
        {"messages.txt.xz", "StringToInt() failure on txt."},
        {"messages.70000.xz", "StringToInt() failure on 70000."},
        {".hidden", "StringToInt() failure on hidden."},
    };
    for (const auto& [foreign, line] : cases) {
        SCOPED_TRACE(foreign);
        MakeArchive({ArchName(5), foreign});
        ExpectRange(0, 5, 6, {{LOG_ERR, line}});
        MakeArchive({foreign});
        ExpectRange(0, 0, 0, {{LOG_ERR, line}});
    }
}

TEST_F(BootNumTest, EveryEntryCountsWhateverItIs) {
    MakeArchive({ArchName(5), "anything.3.at all"});
    ExpectRange(3, 5, 3);
    fs::create_directory(archive / "folder.2.x");
    ExpectRange(2, 5, 4);
    fs::create_symlink("nowhere", archive / "link.9.x");
    ExpectRange(2, 9, 8);
}

TEST_F(BootNumTest, OfAnArchiveThatCannotBeReadThrows) {
    RemoveArchive();
    unsigned short number = Untouched;
    EXPECT_THROW((void)catalogue.GetBootNumRange(number, number), fs::filesystem_error);
    EXPECT_THROW((void)catalogue.GetNumReboots(number), fs::filesystem_error);
    EXPECT_EQ(number, 0);
}

class ArchiveStatsTest : public CatalogueTest {
protected:
    void ExpectStats(unsigned short numReboots, unsigned short numFiles, unsigned long dirSize) {
        EXPECT_EQ(stats.numReboots, numReboots);
        EXPECT_EQ(stats.numFiles, numFiles);
        EXPECT_EQ(stats.dirSize, dirSize);
    }

    ArchiveStats_s stats{Untouched, Untouched, Untouched};
};

TEST_F(ArchiveStatsTest, AreRebootsArchiveFilesAndTheSizeOfAllFiles) {
    EXPECT_SUCCESS(catalogue.GetArchiveStats(stats, false));
    ExpectStats(0, 0, 0);

    MakeDir(archive, {{ArchName(3), "123"}, {ArchName(5), "45"}, {"foreign.4", "6"}});
    EXPECT_SUCCESS(catalogue.GetArchiveStats(stats, true));
    ExpectStats(6, 2, 6);  // The foreign file counts as boot 0.
    EXPECT_LOG(Error("foreign is not a logging archive file."));

    MakeArchive({});
    EXPECT_SUCCESS(catalogue.GetArchiveStats(stats, true));
    ExpectStats(0, 0, 0);
}

// A file without a boot number shows whether boot numbers were looked at: that is logged.
TEST_F(ArchiveStatsTest, AKnownRebootCountOfUpTo999IsUsedUnlessItIsRefreshed) {
    EXPECT_EQ(catalogue.numReboots, 0xFFFF);
    constexpr struct {
        unsigned short known;
        bool refresh;
        bool isCounted;
    } Cases[] = {
        {0, false, false},   {3, false, false},   {998, false, false},   {999, false, false},
        {1000, false, true}, {1001, false, true}, {0xFFFF, false, true}, {3, true, true},
    };
    Archive({ArchName(5), "notes"});
    for (const auto& [known, refresh, isCounted] : Cases) {
        SCOPED_TRACE(known);
        catalogue.numReboots = known;
        EXPECT_SUCCESS(catalogue.GetArchiveStats(stats, refresh));
        EXPECT_EQ(stats.numReboots, isCounted ? 6 : known);
        EXPECT_EQ(catalogue.numReboots, stats.numReboots);
        EXPECT_EQ(stats.numFiles, 1);
        EXPECT_EQ(log.Take().size(), isCounted ? 1U : 0U);
    }
}

TEST_F(ArchiveStatsTest, BootNumbersThatCannotBeReadThrow) {
    RemoveArchive();
    EXPECT_THROW((void)catalogue.GetArchiveStats(stats, false), fs::filesystem_error);
    ExpectStats(0, 0, 0);
    EXPECT_EQ(catalogue.numReboots, 0xFFFF);
}

TEST_F(ArchiveStatsTest, FilesThatCannotBeCountedAreAFailure) {
    RemoveArchive();
    catalogue.numReboots = 3;
    EXPECT_FAILURE(catalogue.GetArchiveStats(stats, false));
    ExpectStats(3, 0, 0);
    EXPECT_LOG(ListingFailure(ENOENT));
}

TEST_F(ArchiveStatsTest, FilesThatCannotBeSizedAreAFailure) {
    Archive({ArchName(5)});
    fs::permissions(archive, fs::perms::owner_read);
    const OrdinaryRights ordinary;
    EXPECT_FAILURE(catalogue.GetArchiveStats(stats, true));
    ExpectStats(1, 1, 0);
    EXPECT_LOG(Error("GetDirSize failure on /perm/logs/syslog/archive: " +
                     WalkReason("cannot get file status", archive / ArchName(5), EACCES)));
}

using ArchiveFileListTest = CatalogueTest;

TEST_F(ArchiveFileListTest, HasTheArchiveFilesOldestFirst) {
    EXPECT_TRUE(catalogue.GetArchiveFileList().empty());
    Archive({ArchName(2), ArchName(10), ArchName(1, 1), ArchName(1), "notes", "messages.txt.0"});
    fs::create_directory(archive / ArchName(3));
    EXPECT_THAT(catalogue.GetArchiveFileList(),
                testing::ElementsAre(ArchName(1), ArchName(1, 1), ArchName(2), ArchName(10)));
}

// What was found before the failure is no list.
// What was found before the failure is no list.
TEST_F(ArchiveFileListTest, OfAnArchiveThatCannotBeListedIsEmpty) {
    Archive({ArchName(1), ArchName(2)});
    fs::create_symlink("loop", archive / "loop");
    Archive({ArchName(3), ArchName(4)});
    EXPECT_TRUE(catalogue.GetArchiveFileList().empty());
    EXPECT_EQ(log.Take().size(), 1U);
}

}  // namespace
