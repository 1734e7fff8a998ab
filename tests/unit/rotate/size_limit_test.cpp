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
    void ExpectLeft(const std::set<std::string>& names) const {
        std::set<std::string> left;
        for (const auto& entry : fs::directory_iterator(archive)) {
            left.insert(entry.path().filename());
        }
        EXPECT_EQ(left, names);
    }
    void ExpectLeft(const std::set<std::string>& names, unsigned long size) const {
        ExpectLeft(names);
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

TEST_F(SizeLimitTest, OneByteBelowTheLimitNothingIsDeleted) {
    Fill({{ArchFn(1), SizeLimit - 1}});
    EXPECT_SUCCESS(rotate.CheckArchSize());
    ExpectLeft({ArchFn(1)}, SizeLimit - 1);
    EXPECT_LOG();
}

TEST_F(SizeLimitTest, AtTheLimitDeletionStarts) {
    Fill({{ArchFn(1), SizeLimit - LowerMark}, {ArchFn(2), LowerMark}});
    EXPECT_SUCCESS(rotate.CheckArchSize());
    ExpectLeft({ArchFn(2)}, LowerMark);
    EXPECT_LOG(ExceedsLine());
}

TEST_F(SizeLimitTest, DeletionContinuesDownToTheLowerMark) {
    const std::pair<unsigned long, std::set<std::string>> table[]{
        {LowerMark - 1, {ArchFn(2), ArchFn(3)}},
        {LowerMark, {ArchFn(2), ArchFn(3)}},
        {LowerMark + 1, {ArchFn(3)}},
    };
    for (const auto& [afterTheFirst, left] : table) {
        SCOPED_TRACE(afterTheFirst);
        rotate.archDirSize = 0;
        Fill({{ArchFn(1), SizeLimit - afterTheFirst}, {ArchFn(2), 100}});
        Fill({{ArchFn(3), SizeLimit - rotate.archDirSize}});
        EXPECT_SUCCESS(rotate.CheckArchSize());
        ExpectLeft(left);
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

TEST_F(SizeLimitTest, ForeignFilesAloneAreAFailureAndStay) {
    Fill({{"foreign", SizeLimit}});
    EXPECT_FAILURE(rotate.CheckArchSize());
    ExpectLeft({"foreign"}, SizeLimit);
    EXPECT_LOG(ExceedsLine(), foreignLine);
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
    ExpectLeft({"foreign"});
    EXPECT_LOG(ExceedsLine());
}

TEST_F(SizeLimitTest, AnArchiveThatCannotBeListedIsAFailure) {
    Fill({{ArchFn(1), SizeLimit}});
    Faults::Fail("opendir", EIO);
    EXPECT_FAILURE(rotate.CheckArchSize());
    Faults::Clear();
    ExpectLeft({ArchFn(1)});
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
    Fill({{ArchFn(1), 1'000'000}, {"foreign", 48'576}});
    ExpectMeasured(1'048'576);
    EXPECT_LOG(Info("Archive directory size is 1024.000 kiB."));
}

TEST_F(MeasurementTest, OfAnEmptyArchiveIsZero) {
    ExpectMeasured(0);
    EXPECT_LOG(Info("Archive directory size is 0.000 bytes."));
}

TEST_F(MeasurementTest, ThatFailsLeavesTheSizeAsItWas) {
    fs::remove(archive);
    ExpectFailure();
    EXPECT_LOG(Error(StartsWith("GetDirSize failure on ")));
}

TEST_F(MeasurementTest, ReachesTheGreatestSignedNumber) {
    Fill({{ArchFn(1), MaxSigned}});
    ExpectMeasured(MaxSigned);
}

TEST_F(MeasurementTest, RefusesWhatIsBeyondTheGreatestSignedNumber) {
    Fill({{ArchFn(1), MaxSigned}, {ArchFn(2), 1}});
    ExpectFailure();
    EXPECT_LOG(Error("Archive directory size is beyond the int64_t maximum.  Cannot continue."));
}

class CapacityTest : public RotateTest {
protected:
    void ExpectTooSmall(unsigned long capacity, const std::string& size) {
        Faults::SetCapacity(capacity);
        EXPECT_FAILURE(rotate.CheckPermCapacity());
        EXPECT_LOG(
            Error("Required archive capacity is 1.200 GiB. File system (/perm/logs/syslog) "
                  "is too small: " +
                  size + "."));
    }
    void ExpectSufficient(unsigned long capacity, const std::string& size) {
        Logging::SetLogLevel(Logging::SeverityDebug);
        Faults::SetCapacity(capacity);
        EXPECT_SUCCESS(rotate.CheckPermCapacity());
        EXPECT_LOG(Debug("Required archive capacity is 1.200 GiB.  /perm/logs/syslog capacity is " +
                         size + ", which is sufficient."));
    }
};

TEST_F(CapacityTest, OneByteBelowTheRequiredCapacityFails) {
    ExpectTooSmall(1288490187, "1.200 GiB");
}

TEST_F(CapacityTest, TheRequiredCapacityPasses) {
    ExpectSufficient(1288490188, "1.200 GiB");
}

TEST_F(CapacityTest, ACapacityBeyondTheGreatestSignedNumberPasses) {
    ExpectSufficient(1UL << 63, "8192.000 PiB");
}

TEST_F(CapacityTest, AnEmptyFileSystemIsTooSmall) {
    ExpectTooSmall(1, "1.000 bytes");
}

TEST_F(CapacityTest, ACapacityThatCannotBeReadIsAFailure) {
    Faults::Fail("statvfs", EIO);
    EXPECT_FAILURE(rotate.CheckPermCapacity());
    EXPECT_LOG(
        Error(StartsWith("Unable to get /perm/logs/syslog capacity, reason: filesystem error: ")));
}

}  // namespace
