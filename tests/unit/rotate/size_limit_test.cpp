// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The archive's size limit, its measurement, and the capacity that it needs.
#include <algorithm>

#include "logging/logging.h"
#include "tests/unit/rotate/engine.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
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

    Texts ArchiveNames() const {
        Texts names;
        for (const auto& entry : std::filesystem::directory_iterator(archive)) {
            names.push_back(entry.path().filename());
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    static LogLine ExceedsLine(const std::string& size) {
        return {LOG_INFO, "Log archive size " + size +
                              " exceeds 1024.000 MiB. Old log files will be deleted until 921.600 "
                              "MiB is reached."};
    }

    const LogLine foreignLine{
        LOG_ERR,
        "The archive directory (/perm/logs/syslog/archive) contains files that do not "
        "belong."};
};

TEST_F(SizeLimitTest, OneByteBelowTheLimitNothingIsDeleted) {
    Fill({{ArchFn(1), SizeLimit - 1}});
    EXPECT_SUCCESS(rotate.CheckArchSize());
    EXPECT_THAT(ArchiveNames(), ElementsAre(ArchFn(1)));
    EXPECT_EQ(rotate.archDirSize, SizeLimit - 1);
    EXPECT_THAT(log.Take(), IsEmpty());
}

TEST_F(SizeLimitTest, AtTheLimitDeletionStarts) {
    Fill({{ArchFn(1), SizeLimit - LowerMark}, {ArchFn(2), LowerMark}});
    EXPECT_SUCCESS(rotate.CheckArchSize());
    EXPECT_THAT(ArchiveNames(), ElementsAre(ArchFn(2)));
    EXPECT_EQ(rotate.archDirSize, LowerMark);
    EXPECT_EQ(log.Take(), LogLines{ExceedsLine("1024.000 MiB")});
}

TEST_F(SizeLimitTest, DeletionGoesOnUntilTheLowerMark) {
    struct {
        const char* what;
        unsigned long afterTheFirst;
        Texts left;
    } const table[]{
        {"one byte below", LowerMark - 1, {ArchFn(2), ArchFn(3)}},
        {"at the mark", LowerMark, {ArchFn(2), ArchFn(3)}},
        {"one byte above", LowerMark + 1, {ArchFn(3)}},
    };
    for (const auto& [what, afterTheFirst, left] : table) {
        SCOPED_TRACE(what);
        rotate.archDirSize = 0;
        Fill({{ArchFn(1), SizeLimit - afterTheFirst}, {ArchFn(2), 100}});
        Fill({{ArchFn(3), SizeLimit - rotate.archDirSize}});
        EXPECT_SUCCESS(rotate.CheckArchSize());
        EXPECT_EQ(ArchiveNames(), left);
    }
}

TEST_F(SizeLimitTest, NamesGoInAscendingByteOrder) {
    const std::vector<std::string> ascending{
        "messages.003.1970-01-01.00:00:09.txt.xz", "messages.003.1970-01-01.23:00:00.txt.xz",
        "messages.003.1970-01-02.00:00:00.txt.xz", "messages.004.1970-01-01.00:00:01.txt.xz",
        "messages.010.1970-01-01.00:00:00.txt.xz"};
    for (const std::string& name : ascending) Fill({{name, 300'000'000}});
    EXPECT_SUCCESS(rotate.CheckArchSize());
    EXPECT_THAT(ArchiveNames(), ElementsAre(ascending[2], ascending[3], ascending[4]));
    EXPECT_EQ(rotate.archDirSize, 900'000'000U);
    EXPECT_EQ(log.Take(), LogLines{ExceedsLine("1.397 GiB")});
}

TEST_F(SizeLimitTest, ADebugLineNamesEachDeletedFile) {
    Logging::SetLogLevel(Logging::SeverityDebug);
    Fill({{ArchFn(1), 100'000'000}, {ArchFn(2), 100'000'000}, {ArchFn(3), 900'000'000}});
    EXPECT_SUCCESS(rotate.CheckArchSize());
    EXPECT_EQ(log.Take(),
              (LogLines{ExceedsLine("1.024 GiB"),
                        {LOG_DEBUG, "Deleted archived log file '" + ArchFn(1) + "'."},
                        {LOG_DEBUG, "Deleted archived log file '" + ArchFn(2) + "'."}}));
}

TEST_F(SizeLimitTest, AFileThatCannotBeRemovedIsPassedOverAndStaysCounted) {
    Fill({{ArchFn(1), 200'000'000}, {ArchFn(2), 200'000'000}, {ArchFn(3), 700'000'000}});
    Faults::Fail("remove", EBUSY, 1);
    EXPECT_SUCCESS(rotate.CheckArchSize());
    EXPECT_THAT(ArchiveNames(), ElementsAre(ArchFn(1), ArchFn(3)));
    EXPECT_EQ(rotate.archDirSize, 900'000'000U);
    EXPECT_THAT(log.Take(),
                ElementsAre(ExceedsLine("1.024 GiB"),
                            Line(LOG_ERR, StartsWith("Remove failure for " + archive.string()))));
}

TEST_F(SizeLimitTest, FilesThatCannotBeRemovedCountAsForeign) {
    Fill({{ArchFn(1), SizeLimit}});
    Faults::Fail("remove", EBUSY);
    EXPECT_FAILURE(rotate.CheckArchSize());
    EXPECT_THAT(log.Take(),
                ElementsAre(ExceedsLine("1024.000 MiB"),
                            Line(LOG_ERR, StartsWith("Remove failure for ")), foreignLine));
}

TEST_F(SizeLimitTest, ForeignFilesAloneAreAFailureAndStay) {
    Fill({{"foreign", SizeLimit}});
    EXPECT_FAILURE(rotate.CheckArchSize());
    EXPECT_THAT(ArchiveNames(), ElementsAre("foreign"));
    EXPECT_EQ(rotate.archDirSize, SizeLimit);
    EXPECT_EQ(log.Take(), (LogLines{ExceedsLine("1024.000 MiB"), foreignLine}));
}

TEST_F(SizeLimitTest, ForeignFilesAreAFailureOnceTheArchiveFilesAreGone) {
    Fill({{"foreign", LowerMark + 1}, {ArchFn(1), 60'000'000}, {ArchFn(2), 60'000'000}});
    EXPECT_FAILURE(rotate.CheckArchSize());
    EXPECT_THAT(ArchiveNames(), ElementsAre("foreign"));
    EXPECT_EQ(rotate.archDirSize, LowerMark + 1);
    EXPECT_EQ(log.Take(), (LogLines{ExceedsLine("1.012 GiB"), foreignLine}));
}

TEST_F(SizeLimitTest, ForeignFilesBelowTheLowerMarkDoNoHarm) {
    Fill({{"foreign", LowerMark}, {ArchFn(1), SizeLimit - LowerMark}});
    EXPECT_SUCCESS(rotate.CheckArchSize());
    EXPECT_THAT(ArchiveNames(), ElementsAre("foreign"));
    EXPECT_EQ(log.Take(), LogLines{ExceedsLine("1024.000 MiB")});
}

TEST_F(SizeLimitTest, AnArchiveThatCannotBeListedIsAFailure) {
    Fill({{ArchFn(1), SizeLimit}});
    Faults::Fail("opendir", EIO);
    EXPECT_FAILURE(rotate.CheckArchSize());
    Faults::Clear();
    EXPECT_THAT(ArchiveNames(), ElementsAre(ArchFn(1)));
    EXPECT_THAT(log.Take(),
                ElementsAre(ExceedsLine("1024.000 MiB"),
                            Line(LOG_ERR, StartsWith("Exception in GetFilesInDir(")), foreignLine));
}

TEST_F(SizeLimitTest, AFileThatVanishesDuringTheDeletionEndsItWithAFailure) {
    Fill({{ArchFn(1), 100'000'000}, {ArchFn(2), 100'000'000}, {ArchFn(3), SizeLimit}});
    OnNthCall("remove", 1,
              [this] { std::filesystem::rename(archive / ArchFn(2), "/perm/logs/x"); });
    EXPECT_FAILURE(rotate.CheckArchSize());
    EXPECT_THAT(ArchiveNames(), ElementsAre(ArchFn(3)));
    EXPECT_EQ(rotate.archDirSize, SizeLimit + 100'000'000);
    EXPECT_THAT(log.Take(),
                ElementsAre(ExceedsLine("1.186 GiB"),
                            Line(LOG_ERR, StartsWith("Unable to delete archived log files.  "
                                                     "Reason: filesystem error: "))));
}

TEST_F(SizeLimitTest, ASizeThatWentBelowZeroIsMeasuredAfresh) {
    Fill({{ArchFn(1), 2 * SizeLimit}, {ArchFn(2), 1024}});
    rotate.archDirSize = SizeLimit;
    EXPECT_SUCCESS(rotate.CheckArchSize());
    EXPECT_EQ(rotate.archDirSize, 1024U);
    EXPECT_EQ(log.Take(),
              (LogLines{ExceedsLine("1024.000 MiB"),
                        {LOG_WARNING,
                         "Archive directory size (-1073741824) went negative while deleting "
                         "files."},
                        {LOG_INFO, "Archive directory size is 1024.000 bytes."}}));
}

TEST_F(SizeLimitTest, ASizeThatWentToZeroIsTrusted) {
    Fill({{ArchFn(1), SizeLimit}, {ArchFn(2), 1024}});
    rotate.archDirSize = SizeLimit;
    EXPECT_SUCCESS(rotate.CheckArchSize());
    EXPECT_EQ(rotate.archDirSize, 0U);
    EXPECT_EQ(log.Take(), LogLines{ExceedsLine("1024.000 MiB")});
}

TEST_F(SizeLimitTest, AFailedMeasurementAfterASizeBelowZeroIsAFailure) {
    Fill({{ArchFn(1), SizeLimit + 1}});
    rotate.archDirSize = SizeLimit;
    Faults::Fail("opendir", EIO, 2);
    EXPECT_FAILURE(rotate.CheckArchSize());
    EXPECT_THAT(log.Take(),
                ElementsAre(ExceedsLine("1024.000 MiB"),
                            Line(LOG_WARNING, StartsWith("Archive directory size (-1) went ")),
                            Line(LOG_ERR, StartsWith("GetDirSize failure on "))));
}

TEST_F(SizeLimitTest, ASizeBelowZeroIsBelowTheLimit) {
    rotate.archDirSize = MaxSigned + 1;
    EXPECT_SUCCESS(rotate.CheckArchSize());
    EXPECT_EQ(rotate.archDirSize, MaxSigned + 1);
    EXPECT_THAT(log.Take(), IsEmpty());
}

class MeasurementTest : public SizeLimitTest {};

TEST_F(MeasurementTest, CountsForeignFilesToo) {
    Fill({{ArchFn(1), 1'000'000}, {"foreign", 48'576}});
    rotate.archDirSize = 5;
    EXPECT_SUCCESS(rotate.ResetArchDirSize());
    EXPECT_EQ(rotate.archDirSize, 1'048'576U);
    EXPECT_EQ(log.Take(), (LogLines{{LOG_INFO, "Archive directory size is 1024.000 kiB."}}));
}

TEST_F(MeasurementTest, OfAnEmptyArchiveIsZero) {
    rotate.archDirSize = 5;
    EXPECT_SUCCESS(rotate.ResetArchDirSize());
    EXPECT_EQ(rotate.archDirSize, 0U);
    EXPECT_EQ(log.Take(), (LogLines{{LOG_INFO, "Archive directory size is 0.000 bytes."}}));
}

TEST_F(MeasurementTest, ThatFailsLeavesTheSizeAsItWas) {
    std::filesystem::remove(archive);
    rotate.archDirSize = 5;
    EXPECT_FAILURE(rotate.ResetArchDirSize());
    EXPECT_EQ(rotate.archDirSize, 5U);
    EXPECT_THAT(log.Take(), ElementsAre(Line(LOG_ERR, StartsWith("GetDirSize failure on "))));
}

TEST_F(MeasurementTest, ReachesTheGreatestSignedNumber) {
    Fill({{ArchFn(1), MaxSigned}});
    EXPECT_SUCCESS(rotate.ResetArchDirSize());
    EXPECT_EQ(rotate.archDirSize, MaxSigned);
}

TEST_F(MeasurementTest, RefusesWhatIsBeyondTheGreatestSignedNumber) {
    Fill({{ArchFn(1), MaxSigned}, {ArchFn(2), 1}});
    rotate.archDirSize = 5;
    EXPECT_FAILURE(rotate.ResetArchDirSize());
    EXPECT_EQ(rotate.archDirSize, 5U);
    EXPECT_EQ(log.Take(),
              (LogLines{{LOG_ERR,
                         "Archive directory size is beyond the int64_t maximum.  Cannot "
                         "continue."}}));
}

class CapacityTest : public RotateTest {};

TEST_F(CapacityTest, OneByteBelowTheRequiredCapacityFails) {
    Faults::SetCapacity(1288490187);
    EXPECT_FAILURE(rotate.CheckPermCapacity());
    EXPECT_EQ(log.Take(),
              (LogLines{{LOG_ERR,
                         "Required archive capacity is 1.200 GiB. File system (/perm/logs/syslog) "
                         "is too small: 1.200 GiB."}}));
}

TEST_F(CapacityTest, TheRequiredCapacityPasses) {
    Logging::SetLogLevel(Logging::SeverityDebug);
    Faults::SetCapacity(1288490188);
    EXPECT_SUCCESS(rotate.CheckPermCapacity());
    EXPECT_EQ(log.Take(),
              (LogLines{{LOG_DEBUG,
                         "Required archive capacity is 1.200 GiB.  /perm/logs/syslog capacity is "
                         "1.200 GiB, which is sufficient."}}));
}

TEST_F(CapacityTest, ACapacityBeyondTheGreatestSignedNumberPasses) {
    Logging::SetLogLevel(Logging::SeverityDebug);
    Faults::SetCapacity(1UL << 63);
    EXPECT_SUCCESS(rotate.CheckPermCapacity());
    EXPECT_EQ(log.Take(),
              (LogLines{{LOG_DEBUG,
                         "Required archive capacity is 1.200 GiB.  /perm/logs/syslog capacity is "
                         "8192.000 PiB, which is sufficient."}}));
}

TEST_F(CapacityTest, AnEmptyFileSystemIsTooSmall) {
    Faults::SetCapacity(1);
    EXPECT_FAILURE(rotate.CheckPermCapacity());
    EXPECT_EQ(log.Take(),
              (LogLines{{LOG_ERR,
                         "Required archive capacity is 1.200 GiB. File system (/perm/logs/syslog) "
                         "is too small: 1.000 bytes."}}));
}

TEST_F(CapacityTest, ACapacityThatCannotBeReadIsAFailure) {
    Faults::Fail("statvfs", EIO);
    EXPECT_FAILURE(rotate.CheckPermCapacity());
    EXPECT_THAT(log.Take(),
                ElementsAre(Line(LOG_ERR, StartsWith("Unable to get /perm/logs/syslog capacity, "
                                                     "reason: filesystem error: "))));
}

}  // namespace
