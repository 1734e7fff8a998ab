// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The archive's size limit, its measurement, and the capacity that it needs.
#include "tests/unit/rotate/engine.h"

namespace {

using testing::StartsWith;

constexpr unsigned long LowerMark = 966367641;
constexpr unsigned long MaxSigned = 0x7FFF'FFFF'FFFF'FFFF;

class SizeLimitTest : public RotateTest {
protected:
    // Makes an archive file of each size, and adds it to what the engine has counted.
    void Fill(const std::vector<std::pair<std::string, unsigned long>>& files) {
        for (const auto& [name, size] : files) {
            WriteSparseFile(archive / name, size);
            rotate.archDirSize += size;
        }
    }

    // The names of the files left in the archive, and the size that is counted.
    void ExpectLeft(const std::set<std::string>& names, unsigned long size) const {
        std::set<std::string> left;
        for (const auto& entry : fs::directory_iterator(archive)) {
            left.insert(entry.path().filename());
        }
        EXPECT_EQ(left, names);
        EXPECT_EQ(rotate.archDirSize, size);
    }

    static LogLine ExceedsLine(const std::string& size = "1024.000 MiB") {
        return {LOG_INFO, "Log archive size " + size +
                              " exceeds 1024.000 MiB. Old log files will be deleted until 921.600 "
                              "MiB is reached."};
    }

    const LogLine foreignLine{
        LOG_ERR,
        "The archive directory (/perm/logs/syslog/archive) contains files that do not belong."};
};

TEST_F(SizeLimitTest, DeletionStartsAtTheLimit) {
    Fill({{ArchFn(1), SizeLimit - LowerMark}, {ArchFn(2), LowerMark - 1}});
    EXPECT_SUCCESS(rotate.CheckArchSize());
    ExpectLeft({ArchFn(1), ArchFn(2)}, SizeLimit - 1);
    EXPECT_LOG();

    Fill({{ArchFn(3), 1}});
    EXPECT_SUCCESS(rotate.CheckArchSize());
    ExpectLeft({ArchFn(2), ArchFn(3)}, LowerMark);
    EXPECT_LOG(ExceedsLine());
}

TEST_F(SizeLimitTest, DeletionContinuesDownToTheLowerMark) {
    for (const unsigned long afterTheFirst : {LowerMark - 1, LowerMark, LowerMark + 1}) {
        SCOPED_TRACE(afterTheFirst);
        MakeArchive();
        Fill({{ArchFn(1), SizeLimit - afterTheFirst},
              {ArchFn(2), 100},
              {ArchFn(3), afterTheFirst - 100}});
        EXPECT_SUCCESS(rotate.CheckArchSize());
        if (afterTheFirst <= LowerMark) {
            ExpectLeft({ArchFn(2), ArchFn(3)}, afterTheFirst);
        } else {
            ExpectLeft({ArchFn(3)}, afterTheFirst - 100);
        }
    }
}

TEST_F(SizeLimitTest, NamesGoInAscendingByteOrder) {
    const std::vector<std::string> ascending{
        "messages.003.1970-01-01.00:00:09.txt.xz", "messages.003.1970-01-01.23:00:00.txt.xz",
        "messages.003.1970-01-02.00:00:00.txt.xz", "messages.004.1970-01-01.00:00:01.txt.xz",
        "messages.010.1970-01-01.00:00:00.txt.xz"};
    for (const std::string& name : ascending) Fill({{name, 300'000'000}});
    EXPECT_SUCCESS(rotate.CheckArchSize());
    ExpectLeft({ascending[2], ascending[3], ascending[4]}, 900'000'000);
    EXPECT_LOG(ExceedsLine("1.397 GiB"));
}

TEST_F(SizeLimitTest, ADebugLineNamesEachDeletedFile) {
    Logging::SetLogLevel(Logging::SeverityDebug);
    Fill({{ArchFn(1), 100'000'000}, {ArchFn(2), 100'000'000}, {ArchFn(3), 900'000'000}});
    EXPECT_SUCCESS(rotate.CheckArchSize());
    EXPECT_LOG(ExceedsLine("1.024 GiB"), Debug("Deleted archived log file '" + ArchFn(1) + "'."),
               Debug("Deleted archived log file '" + ArchFn(2) + "'."));
}

TEST_F(SizeLimitTest, AFileThatCannotBeRemovedIsPassedOverAndStaysCounted) {
    Fill({{ArchFn(1), 200'000'000}, {ArchFn(2), 200'000'000}, {ArchFn(3), 700'000'000}});
    Faults::Fail("remove", EBUSY, 1);
    EXPECT_SUCCESS(rotate.CheckArchSize());
    ExpectLeft({ArchFn(1), ArchFn(3)}, 900'000'000);
    EXPECT_LOG(ExceedsLine("1.024 GiB"),
               Error(StartsWith("Remove failure for " + archive.string())));
}

TEST_F(SizeLimitTest, FilesThatCannotBeRemovedCountAsForeign) {
    Fill({{ArchFn(1), SizeLimit}});
    Faults::Fail("remove", EBUSY);
    EXPECT_FAILURE(rotate.CheckArchSize());
    EXPECT_LOG(ExceedsLine(), Error(StartsWith("Remove failure for ")), foreignLine);
}

TEST_F(SizeLimitTest, ForeignFilesAreAFailureOnceTheArchiveFilesAreGone) {
    Fill({{"foreign", LowerMark + 1}, {ArchFn(1), 60'000'000}, {ArchFn(2), 60'000'000}});
    EXPECT_FAILURE(rotate.CheckArchSize());
    ExpectLeft({"foreign"}, LowerMark + 1);
    EXPECT_LOG(ExceedsLine("1.012 GiB"), foreignLine);
}

TEST_F(SizeLimitTest, ForeignFilesBelowTheLowerMarkDoNoHarm) {
    Fill({{"foreign", LowerMark}, {ArchFn(1), SizeLimit - LowerMark}});
    EXPECT_SUCCESS(rotate.CheckArchSize());
    ExpectLeft({"foreign"}, LowerMark);
    EXPECT_LOG(ExceedsLine());
}

TEST_F(SizeLimitTest, AnArchiveThatCannotBeListedIsAFailure) {
    Fill({{ArchFn(1), SizeLimit}});
    Faults::Fail("opendir", EIO);
    EXPECT_FAILURE(rotate.CheckArchSize());
    Faults::Clear();
    ExpectLeft({ArchFn(1)}, SizeLimit);
    EXPECT_LOG(ExceedsLine(), Error(StartsWith("Exception in GetFilesInDir(")), foreignLine);
}

TEST_F(SizeLimitTest, AFileThatVanishesDuringTheDeletionEndsItWithAFailure) {
    Fill({{ArchFn(1), 100'000'000}, {ArchFn(2), 100'000'000}, {ArchFn(3), SizeLimit}});
    OnNthCall("remove", 1, [this] { fs::rename(archive / ArchFn(2), "/perm/logs/x"); });
    EXPECT_FAILURE(rotate.CheckArchSize());
    ExpectLeft({ArchFn(3)}, SizeLimit + 100'000'000);
    EXPECT_LOG(
        ExceedsLine("1.186 GiB"),
        Error(StartsWith("Unable to delete archived log files.  Reason: filesystem error: ")));
}

TEST_F(SizeLimitTest, ASizeThatWentBelowZeroIsMeasuredAfresh) {
    Fill({{ArchFn(1), 2 * SizeLimit}, {ArchFn(2), 1024}});
    rotate.archDirSize = SizeLimit;
    EXPECT_SUCCESS(rotate.CheckArchSize());
    EXPECT_EQ(rotate.archDirSize, 1024U);
    EXPECT_LOG(ExceedsLine(),
               Warning("Archive directory size (-1073741824) went negative while deleting files."),
               Info("Archive directory size is 1024.000 bytes."));
}

TEST_F(SizeLimitTest, ASizeThatWentToZeroIsTrusted) {
    Fill({{ArchFn(1), SizeLimit}, {ArchFn(2), 1024}});
    rotate.archDirSize = SizeLimit;
    EXPECT_SUCCESS(rotate.CheckArchSize());
    EXPECT_EQ(rotate.archDirSize, 0U);
    EXPECT_LOG(ExceedsLine());
}

TEST_F(SizeLimitTest, AFailedMeasurementAfterASizeBelowZeroIsAFailure) {
    Fill({{ArchFn(1), SizeLimit + 1}});
    rotate.archDirSize = SizeLimit;
    Faults::Fail("opendir", EIO, 2);
    EXPECT_FAILURE(rotate.CheckArchSize());
    EXPECT_LOG(ExceedsLine(), Warning(StartsWith("Archive directory size (-1) went ")),
               Error(StartsWith("GetDirSize failure on ")));
}

TEST_F(SizeLimitTest, ASizeBelowZeroIsBelowTheLimit) {
    rotate.archDirSize = MaxSigned + 1;
    EXPECT_SUCCESS(rotate.CheckArchSize());
    EXPECT_EQ(rotate.archDirSize, MaxSigned + 1);
    EXPECT_LOG();
}

class MeasurementTest : public SizeLimitTest {
protected:
    void ExpectMeasured(unsigned long size) {
        rotate.archDirSize = 5;
        EXPECT_SUCCESS(rotate.ResetArchDirSize());
        EXPECT_EQ(rotate.archDirSize, size);
    }
    void ExpectFailure() {
        rotate.archDirSize = 5;
        EXPECT_FAILURE(rotate.ResetArchDirSize());
        EXPECT_EQ(rotate.archDirSize, 5U);
    }
};

TEST_F(MeasurementTest, CountsForeignFilesToo) {
    ExpectMeasured(0);
    EXPECT_LOG(Info("Archive directory size is 0.000 bytes."));
    Fill({{ArchFn(1), 1'000'000}, {"foreign", 48'576}});
    ExpectMeasured(1'048'576);
    EXPECT_LOG(Info("Archive directory size is 1024.000 kiB."));
}

TEST_F(MeasurementTest, ThatFailsLeavesTheSizeAsItWas) {
    fs::remove(archive);
    ExpectFailure();
    EXPECT_LOG(Error(StartsWith("GetDirSize failure on ")));
}

TEST_F(MeasurementTest, ReachesTheGreatestSignedNumberAndNoMore) {
    Fill({{ArchFn(1), MaxSigned}});
    ExpectMeasured(MaxSigned);
    log.Take();

    Fill({{ArchFn(2), 1}});
    ExpectFailure();
    EXPECT_LOG(Error("Archive directory size is beyond the int64_t maximum.  Cannot continue."));
}

using CapacityTest = RotateTest;

TEST_F(CapacityTest, IsSufficientFrom120PercentOfTheSizeLimitOn) {
    constexpr struct {
        unsigned long capacity;
        const char* text;
        bool isSufficient;
    } Cases[] = {
        {1, "1.000 bytes", false},
        {1288490187, "1.200 GiB", false},
        {1288490188, "1.200 GiB", true},
        {1UL << 63, "8192.000 PiB", true},  // beyond the greatest signed number
    };
    Logging::SetLogLevel(Logging::SeverityDebug);
    const std::string required = "Required archive capacity is 1.200 GiB.";
    for (const auto& [capacity, text, isSufficient] : Cases) {
        Faults::SetCapacity(capacity);
        EXPECT_EQ(rotate.CheckPermCapacity(), !isSufficient);
        EXPECT_LOG(
            isSufficient
                ? Debug(required + "  /perm/logs/syslog capacity is " + text +
                        ", which is sufficient.")
                : Error(required + " File system (/perm/logs/syslog) is too small: " + text + "."));
    }
}

TEST_F(CapacityTest, ThatCannotBeReadIsAFailure) {
    Faults::Fail("statvfs", EIO);
    EXPECT_FAILURE(rotate.CheckPermCapacity());
    EXPECT_LOG(
        Error(StartsWith("Unable to get /perm/logs/syslog capacity, reason: filesystem error: ")));
}

}  // namespace
