// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Boot numbers: pruning when all of them are in use, and renumbering from 1.
#include "tests/unit/rotate/engine.h"

namespace {

using testing::StartsWith;

const LogLine TooManyLine{LOG_INFO,
                          "Log archive contains too many reboots.  Oldest 100 will be deleted."};
const LogLine RenumberingLine{LOG_INFO, "Renumbering boot numbers on archived files."};

class RebootLimitTest : public RotateTest {
protected:
    void Fill(const Texts& names) { WriteFiles(archive, names); }

    // Two files for each boot, which hold the boot's number and their time.
    void FillBoots(unsigned first, unsigned last) {
        for (const auto& [name, text] : Boots(first, last, first)) WriteFile(archive / name, text);
    }

    // The archive when the boots `first` to `last` were renumbered from 1.
    static Dir Renumbered(unsigned first, unsigned last) { return Boots(first, last, 1); }

    // The files of the boots `first` to `last`, numbered from `number`.
    static Dir Boots(unsigned first, unsigned last, unsigned number) {
        Dir files;
        for (unsigned boot = first; boot <= last; ++boot, ++number) {
            for (const unsigned second : {10, 20}) {
                files[ArchFn(number, second)] = Util::Format("%u %u", boot, second);
            }
        }
        return files;
    }

    // Pruning and renumbering succeed, and leave these files.
    void ExpectSuccess(const Dir& left) {
        EXPECT_SUCCESS(rotate.CheckReboots());
        EXPECT_EQ(ReadDir(archive), left);
    }

    // The archive files are renamed, from old names to new ones.
    void ExpectRenamed(const std::map<std::string, std::string>& names) {
        Dir left;
        for (const auto& [oldName, newName] : names) {
            WriteFile(archive / oldName, oldName);
            left[newName] = oldName;
        }
        ExpectSuccess(left);
    }

    // The first attempt ends at the nth rename, as when power is cut, and the second one succeeds.
    void InterruptAndRepeat(unsigned nthRename) {
        Faults::Fail("rename", EIO, static_cast<int>(nthRename));
        EXPECT_FAILURE(rotate.CheckReboots());
        log.Take();
        EXPECT_SUCCESS(rotate.CheckReboots());
        EXPECT_LOG(RenumberingLine);
    }
};

TEST_F(RebootLimitTest, BootsThatStartAt1AreLeftAlone) {
    for (const unsigned last : {0, 1, 2, 998}) {
        SCOPED_TRACE(last);
        FillBoots(1, last);
        ExpectSuccess(Renumbered(1, last));
        EXPECT_LOG();
    }
}

TEST_F(RebootLimitTest, BootsThatStartLaterAreRenumberedFrom1) {
    const std::pair<unsigned, unsigned> table[]{{2, 2}, {2, 3}, {3, 999}, {999, 999}, {100, 110}};
    for (const auto& [first, last] : table) {
        SCOPED_TRACE(first);
        MakeArchive();
        FillBoots(first, last);
        ExpectSuccess(Renumbered(first, last));
        EXPECT_LOG(RenumberingLine);
    }
}

TEST_F(RebootLimitTest, WhenAllNumbersAreInUseTheOldest100BootsGo) {
    FillBoots(1, 999);
    ExpectSuccess(Renumbered(101, 999));
    EXPECT_LOG(TooManyLine, RenumberingLine);
}

TEST_F(RebootLimitTest, GapsStayAndTheOldest100BootsThatThereAreGo) {
    FillBoots(1, 50);
    FillBoots(201, 260);
    FillBoots(999, 999);
    EXPECT_SUCCESS(rotate.CheckReboots());
    Dir expected = Renumbered(251, 260);
    expected.merge(Boots(999, 999, 749));
    EXPECT_EQ(ReadDir(archive), expected);
}

// Power is cut after the files up to boot `cutBehind` were renamed.
TEST_F(RebootLimitTest, AnInterruptedRenumberingIsFinishedAndNothingDeleted) {
    const std::pair<unsigned, unsigned> table[]{{1, 101}, {450, 101}, {898, 101}, {1, 3}, {450, 2}};
    for (const auto& [cutBehind, oldest] : table) {
        SCOPED_TRACE(testing::Message() << cutBehind << ' ' << oldest);
        MakeArchive();
        FillBoots(oldest, 999);
        InterruptAndRepeat(2 * cutBehind + 1);
        EXPECT_EQ(ReadDir(archive), Renumbered(oldest, 999));
    }
}

TEST_F(RebootLimitTest, ABootThatWasHalfRenumberedComesApart) {
    FillBoots(101, 999);
    InterruptAndRepeat(2 * 7 + 2);  // the second file of the eighth boot
    Dir expected = Boots(109, 999, 10);
    expected.merge(Renumbered(101, 108));
    expected.erase(ArchFn(8, 20));
    expected[ArchFn(9, 20)] = "108 20";
    EXPECT_EQ(ReadDir(archive), expected);
}

TEST_F(RebootLimitTest, AGapThatNoRenumberingLeavesStays) {
    struct Gaps {
        unsigned first, end, missing;
    };
    for (const auto& [first, end, missing] : {Gaps{301, 402, 350}, Gaps{301, 400, 700}}) {
        SCOPED_TRACE(missing);
        MakeArchive();
        FillBoots(1, first - 1);
        FillBoots(end, 999);
        for (const unsigned second : {10, 20}) fs::remove(archive / ArchFn(missing, second));
        EXPECT_SUCCESS(rotate.CheckReboots());
        EXPECT_LOG(TooManyLine, RenumberingLine);
    }
}

TEST_F(RebootLimitTest, ANumberBeyond999PrunesToo) {
    FillBoots(1, 150);
    Fill({ArchFn(1000)});
    EXPECT_SUCCESS(rotate.CheckReboots());
    Dir expected = Renumbered(101, 150);
    expected[ArchFn(900)] = ArchFn(1000);
    EXPECT_EQ(ReadDir(archive), expected);
    EXPECT_LOG(TooManyLine, RenumberingLine);
}

TEST_F(RebootLimitTest, MoreThan65535FilesAreNeverDeletedAtOnce) {
    WriteFile(archive / ArchFn(999), "kept");
    for (unsigned file = 0; file < 65537; ++file) {
        WriteFile(archive / ("messages.001." + std::to_string(100000 + file) + ".xz"));
    }
    ExpectSuccess(
        {{ArchFn(999), "kept"}, {"messages.001.165535.xz", ""}, {"messages.001.165536.xz", ""}});
    EXPECT_LOG(TooManyLine);
}

// Each entry of the archive counts, and one without a number counts as boot 0.
TEST_F(RebootLimitTest, AForeignFileKeepsAllNumbersAsTheyAre) {
    const LogLine foreignLine{LOG_ERR, "notes is not a logging archive file."};
    WriteFile(archive / "notes");
    ExpectSuccess({{"notes", ""}});
    EXPECT_LOG(foreignLine);

    FillBoots(5, 999);
    const Dir before = ReadDir(archive);
    ExpectSuccess(before);
    EXPECT_LOG(foreignLine, foreignLine);
}

TEST_F(RebootLimitTest, ForeignEntriesWithABootNumberAreNotRenamed) {
    Fill({"other.005.txt", ArchFn(6)});
    fs::create_directory(archive / "messages.004.folder");
    ExpectSuccess(
        {{"messages.004.folder/", ""}, {"other.005.txt", "other.005.txt"}, {ArchFn(3), ArchFn(6)}});
    EXPECT_LOG(RenumberingLine);
}

TEST_F(RebootLimitTest, OnlyTheDigitsOfANameChange) {
    ExpectRenamed(
        {{"messages.041.1970-01-02.03:04:05.txt.xz", "messages.001.1970-01-02.03:04:05.txt.xz"},
         {"messages.042.anything.xz", "messages.002.anything.xz"},
         {"messages.043.xz", "messages.003.xz"}});
}

TEST_F(RebootLimitTest, NumbersOfFourDigitsAreBroughtDownToo) {
    ExpectRenamed(
        {{ArchFn(5), ArchFn(1)}, {ArchFn(1003), ArchFn(999)}, {ArchFn(1004), ArchFn(1000)}});
}

TEST_F(RebootLimitTest, ADebugLineReportsEachRename) {
    Logging::SetLogLevel(Logging::SeverityDebug);
    ExpectRenamed({{ArchFn(11), ArchFn(1)}, {ArchFn(12), ArchFn(2)}});
    EXPECT_LOG(RenumberingLine, Debug("Renamed '" + ArchFn(11) + "' to '" + ArchFn(1) + "'"),
               Debug("Renamed '" + ArchFn(12) + "' to '" + ArchFn(2) + "'"));
}

TEST_F(RebootLimitTest, AFailedRenameEndsTheRenumbering) {
    Fill({ArchFn(3), ArchFn(4), ArchFn(5)});
    Faults::Fail("rename", EIO, 2);
    EXPECT_FAILURE(rotate.CheckReboots());
    EXPECT_DIR(archive, {{ArchFn(1), ArchFn(3)}, {ArchFn(4), ArchFn(4)}, {ArchFn(5), ArchFn(5)}});
    EXPECT_LOG(RenumberingLine, Error(StartsWith("Rename failure, reason: ")));
}

// Files that come while the archive is renumbered.
TEST_F(RebootLimitTest, AFileWhoseBootNumberMakesNoSenseIsPassedOver) {
    const std::pair<std::string, LogLine> table[] = {
        {"messages.abc.xz", {LOG_ERR, "StringToInt() failure on abc."}},
        {ArchFn(2),
         {LOG_WARNING, "Boot number 2 in file " + ArchFn(2) +
                           " is less than the smallest boot "
                           "number 3, which does not make sense."}},
    };
    for (const auto& [name, line] : table) {
        MakeArchive({ArchFn(3)});
        OnNthCall("opendir", 2, [this, arrival = name] { Fill({arrival}); });
        EXPECT_SUCCESS(rotate.RenumberArchivedFiles());
        EXPECT_DIR(archive, {{ArchFn(1), ArchFn(3)}, {name, name}});
        EXPECT_LOG(RenumberingLine, line);
    }
}

TEST_F(RebootLimitTest, AFileWhoseNewNameExistsKeepsItsNumber) {
    Fill({"messages.002.a.txt.xz", "messages.2.a.txt.xz", ArchFn(3)});
    EXPECT_SUCCESS(rotate.RenumberArchivedFiles());
    EXPECT_DIR(archive, {{"messages.001.a.txt.xz", "messages.002.a.txt.xz"},
                         {"messages.2.a.txt.xz", "messages.2.a.txt.xz"},
                         {ArchFn(2), ArchFn(3)}});
    EXPECT_LOG(RenumberingLine, Warning("'messages.2.a.txt.xz' keeps its boot number, because "
                                        "'messages.001.a.txt.xz' exists."));
}

TEST_F(RebootLimitTest, APruningThatCannotListTheArchiveIsAFailure) {
    Fill({ArchFn(1), ArchFn(999)});
    Faults::Fail("opendir", EIO, 2);
    EXPECT_FAILURE(rotate.CheckReboots());
    EXPECT_DIR(archive, {{ArchFn(1), ArchFn(1)}, {ArchFn(999), ArchFn(999)}});
    EXPECT_LOG(TooManyLine, Error(StartsWith("Exception in GetFilesInDir(")));
}

TEST_F(RebootLimitTest, AnArchiveThatCannotBeReadIsAnException) {
    Fill({ArchFn(2)});
    for (const int query : {1, 2}) {
        Faults::Fail("opendir", EIO, query);
        EXPECT_THROW((void)rotate.CheckReboots(), fs::filesystem_error);
        EXPECT_DIR(archive, {{ArchFn(2), ArchFn(2)}});
    }
}

}  // namespace
