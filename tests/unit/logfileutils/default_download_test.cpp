// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The default download: the live log, and what fits of the archive; and cleaning up after it.
#include "tests/support/ordinary_rights.h"
#include "tests/unit/logfileutils/download_fixture.h"

namespace fs = std::filesystem;

namespace {

const LogLine Preparing = {LOG_INFO, "Preparing system log for download."};
const LogLine Created = {LOG_INFO, "System log tar file created."};

constexpr const char* XzCommand = "cd /tmp; xz -zf messages.txt";

class PrepSyslogTest : public DownloadTest {
protected:
    static std::string PackedLog() {
        return Output("tar --extract --to-stdout --file /tmp/syslog.tar messages.txt.xz | xz -dc");
    }

    // Packing fails behind its first line, with this one.
    void ExpectFailure(const LogLine& line) {
        EXPECT_FALSE(catalogue.PrepSyslog());
        EXPECT_LOG(Preparing, line);
    }
};

TEST_F(PrepSyslogTest, PacksTheCompressedLiveLog) {
    const std::string content = Noise(1 << 20);
    WriteFile(liveLog, content);
    EXPECT_TRUE(catalogue.PrepSyslog());
    EXPECT_LOG(Preparing, Created);
    EXPECT_EQ(Packed(), Names{"messages.txt.xz"});
    EXPECT_TRUE(PackedLog() == content);
    EXPECT_EQ(TmpNames(), (Names{"messages.txt.xz", "syslog.tar"}));
    EXPECT_TRUE(ReadFile(liveLog) == content);
    EXPECT_EQ(Faults::TakeCalls(),
              (Names{std::string("system ") + XzCommand, "system " + Create("messages.txt.xz")}));
}

TEST_F(PrepSyslogTest, ReplacesAnOldTarFileAndAnOldCompressedCopy) {
    MakeDir(tmp, {{"syslog.tar", "old"}, {"messages.txt.xz", "old"}});
    WriteFile(liveLog);
    EXPECT_TRUE(catalogue.PrepSyslog());
    EXPECT_EQ(Packed(), Names{"messages.txt.xz"});
    EXPECT_EQ(PackedLog(), "");
}

TEST_F(PrepSyslogTest, WithoutALiveLogDoesNothing) {
    EXPECT_FALSE(catalogue.PrepSyslog());
    fs::create_directory(liveLog);
    EXPECT_FALSE(catalogue.PrepSyslog());
    fs::remove(liveLog);
    fs::create_symlink("nowhere", liveLog);
    EXPECT_FALSE(catalogue.PrepSyslog());
    EXPECT_LOG();
    EXPECT_EQ(TmpNames(), Names());
}

TEST_F(PrepSyslogTest, ACopyInTheWayEndsItBeforeXz) {
    WriteFile(liveLog, "new");
    WriteFile(tmp / "messages.txt", "old");
    ExpectFailure(CopyFailure(liveLog, tmp / "messages.txt"));
    EXPECT_DIR(tmp, {{"messages.txt", "old"}});
    EXPECT_EQ(Faults::TakeCalls(), Names());
}

TEST_F(PrepSyslogTest, ATmpWithoutRoomForTheCopyEndsItBeforeXz) {
    const Mounted small = Mounted::Tmpfs("/tmp", "64k");
    WriteFile(liveLog, Noise(100 << 10));
    const LogLine copyFailure = CopyFailure(liveLog, tmp / "messages.txt");
    fs::remove(tmp / "messages.txt");
    ExpectFailure(copyFailure);
    EXPECT_EQ(TmpNames(), Names{"messages.txt"});
    catalogue.DeleteLogTempFiles();
    EXPECT_EQ(TmpNames(), Names());
}

TEST_F(PrepSyslogTest, AFailingXzEndsItBeforeTar) {
    WriteFile(liveLog, "new");
    WriteFile(tarFile, "old");
    StandIn("xz", "exit 1");
    ExpectFailure(CommandFailure(XzCommand, 256));
    EXPECT_DIR(tmp, {{"messages.txt", "new"}, {"syslog.tar", "old"}});
}

TEST_F(PrepSyslogTest, AFailingTarIsNoSuccess) {
    WriteFile(liveLog, "new");
    StandIn("tar", "exit 2");
    ExpectFailure(CommandFailure(Create("messages.txt.xz"), 512));
    EXPECT_EQ(TmpNames(), Names{"messages.txt.xz"});
}

class DefaultDownloadTest : public PrepSyslogTest {
protected:
    void ExpectDownload(const Names& packed) {
        EXPECT_EQ(catalogue.PrepDefaultLogFileDownload(), static_cast<int>(packed.size()));
        EXPECT_EQ(Packed(), packed);
    }
};

TEST_F(DefaultDownloadTest, HasTheLiveLogFirstAndThenTheArchiveFromTheNewestOn) {
    WriteFile(liveLog, "live");
    Archive({a, b, "notes"});
    ExpectDownload({"messages.txt.xz", b, a});
    EXPECT_EQ(PackedLog(), "live");
    EXPECT_EQ(PackedContent(a), a);
    const std::string into = ", to /tmp/syslog.tar: ";
    const auto estimate = Debug(testing::StartsWith("Est. download size: "));
    EXPECT_LOG(Preparing, Created, Debug("Added 1 file, 0 reboots" + into + b), estimate,
               Debug("Added 2 files, 1 reboot" + into + a), estimate);
    EXPECT_EQ(catalogue.dlMaxFiles, 65535);
    EXPECT_EQ(catalogue.dlMaxBootNums, 65535);
}

TEST_F(DefaultDownloadTest, WithoutALiveLogTheFirstArchiveFileCreatesTheTarFile) {
    WriteFile(tarFile, "old");
    Archive({a, b});
    ExpectDownload({b, a});
}

TEST_F(DefaultDownloadTest, ALiveLogThatCannotBePackedIsLeftOut) {
    WriteFile(liveLog, "live");
    StandIn("xz", "exit 1");
    Archive({a, b});
    ExpectDownload({b, a});
}

// There is no tar file that could be too large.
TEST_F(DefaultDownloadTest, OfNothingOrNothingThatFitsIsNothing) {
    const auto expectNothing = [this](const char* archived) {
        SCOPED_TRACE(archived);
        EXPECT_EQ(catalogue.PrepDefaultLogFileDownload(), 0);
        EXPECT_EQ(TmpNames(), Names());
        EXPECT_LOG();
    };
    expectNothing("nothing");
    Archive({"notes", "zzz"});
    expectNothing("stray files");
    MakeArchive({});
    WriteSparseFile(archive / a, 20UL << 20);
    expectNothing("a file that does not fit");
}

TEST_F(DefaultDownloadTest, OfTheLiveLogAloneIsOne) {
    WriteFile(liveLog, "live");
    ExpectDownload({"messages.txt.xz"});
    EXPECT_LOG(Preparing, Created);
}

TEST_F(DefaultDownloadTest, OfAnArchiveThatCannotBeListedIsOneWhateverWasPacked) {
    RemoveArchive();
    EXPECT_EQ(catalogue.PrepDefaultLogFileDownload(), 1);
    EXPECT_LOG(ListingFailure(ENOENT));
    EXPECT_EQ(TmpNames(), Names());

    WriteFile(liveLog, "live");
    ReplaceArchiveByAFile();
    EXPECT_EQ(catalogue.PrepDefaultLogFileDownload(), 1);
    EXPECT_LOG(Preparing, Created, ListingFailure(ENOTDIR));
    EXPECT_EQ(Packed(), Names{"messages.txt.xz"});
}

TEST_F(DefaultDownloadTest, AFailedFillIsAFailure) {
    WriteFile(liveLog, "live");
    Archive({a});
    WriteFile(tmp / a, "in the way");
    EXPECT_EQ(catalogue.PrepDefaultLogFileDownload(), -1);
    EXPECT_EQ(Packed(), (Names{"messages.txt.xz", a}));
}

class LargeLiveLogTest : public DefaultDownloadTest {
protected:
    // A live log that does not shrink, and so makes a tar file of `size` bytes.
    void MakeTarOfSize(unsigned long size) {
        StandIn("xz", "mv messages.txt messages.txt.xz");
        StandIn("tar", "truncate -s " + std::to_string(size) + " syslog.tar");
        WriteFile(liveLog, "live");
    }

    static LogLine TooLarge(const std::string& size) {
        return {LOG_WARNING, "/tmp/syslog.tar size (" + size +
                                 ") exceeds download file size limit of 15.000 MiB"};
    }
};

TEST_F(LargeLiveLogTest, ATarFileAtTheLimitIsADownload) {
    MakeTarOfSize(MaxDownloadSize);
    Archive({a});
    EXPECT_EQ(catalogue.PrepDefaultLogFileDownload(), 1);
    EXPECT_LOG(Preparing, Created);
}

TEST_F(LargeLiveLogTest, ATarFileAboveTheLimitIsAFailureAndStaysForTheCaller) {
    MakeTarOfSize(MaxDownloadSize + 1);
    Archive({a});
    EXPECT_EQ(catalogue.PrepDefaultLogFileDownload(), -1);
    EXPECT_LOG(Preparing, Created, TooLarge("15.000 MiB"));
    EXPECT_TRUE(fs::exists(tarFile));
}

TEST_F(LargeLiveLogTest, WithAnEmptyArchiveTheSizeIsNotChecked) {
    MakeTarOfSize(MaxDownloadSize + 1);
    EXPECT_EQ(catalogue.PrepDefaultLogFileDownload(), 1);
    EXPECT_LOG(Preparing, Created);
}

// The limit holds for archive files too, when tar adds more than was estimated.
TEST_F(LargeLiveLogTest, ATarFileThatGrowsAboveTheLimitLaterIsAFailure) {
    StandIn("tar", "truncate -s 20M syslog.tar");
    Archive({a});
    EXPECT_EQ(catalogue.PrepDefaultLogFileDownload(), -1);
    EXPECT_EQ(log.Take().back(), TooLarge("20.000 MiB"));
}

class CleanUpTest : public DownloadTest {
protected:
    void TearDown() override { EXPECT_LOG(); }
};

TEST_F(CleanUpTest, DeleteDownloadTakesJustTheTarFile) {
    MakeDir(tmp, {{"syslog.tar", "1"}, {"syslog.tar.old", "2"}, {"messages.txt", "3"}});
    catalogue.DeleteDownload();
    EXPECT_DIR(tmp, {{"messages.txt", "3"}, {"syslog.tar.old", "2"}});

    (void)Faults::TakeCalls();
    catalogue.DeleteDownload();
    fs::create_directory(tarFile);
    catalogue.DeleteDownload();
    EXPECT_TRUE(fs::exists(tarFile));
    EXPECT_EQ(Faults::TakeCalls(), Names());
}

TEST_F(CleanUpTest, ATarFileThatCannotBeRemovedIsLogged) {
    WriteFile(tarFile, "1");
    const Mounted over = Mounted::Over(tarFile, tarFile);
    catalogue.DeleteDownload();
    EXPECT_LOG(Error(RemovalFailure(tarFile)));
}

TEST_F(CleanUpTest, DeleteLogTempFilesTakesJustFilesWhoseNameBeginsWithTheLogs) {
    catalogue.DeleteLogTempFiles();

    for (const std::string& name :
         Names{"messages", "messages.txt", "messages.txt.xz", ArchName(1), "messages.txt.0",
               "messages2", "messages of today", "messages\n\xff"}) {
        WriteFile(tmp / name);
    }
    Dir left = {{"messages.d/", ""},
                {"messages.link to folder@", "messages.d"},
                {"messages.dangling@", "nowhere"}};
    for (const char* name : {"Messages.txt", "message", "message.txt", " messages", "old messages",
                             "syslog.tar", "amessages", ".messages", "MESSAGES", "messagE s"}) {
        left[name] = name;
    }
    MakeDir(tmp, left);
    MakeDir(tmp, {{"messages.d/messages.txt", "inside"}, {"messages.link@", "syslog.tar"}});
    catalogue.DeleteLogTempFiles();
    EXPECT_EQ(ReadDir(tmp), left);
    EXPECT_DIR(tmp / "messages.d", {{"messages.txt", "inside"}});
}

TEST_F(CleanUpTest, AFileThatCannotBeRemovedIsLoggedAndTheOthersGo) {
    MakeDir(tmp, {{"messages.1", "1"}, {"messages.2", "2"}, {"messages.3", "3"}});
    const Mounted over = Mounted::Over(tmp / "messages.2", tmp / "messages.2");
    catalogue.DeleteLogTempFiles();
    EXPECT_DIR(tmp, {{"messages.2", "2"}});
    EXPECT_LOG(Error(RemovalFailure(tmp / "messages.2")));
}

TEST_F(CleanUpTest, ATmpThatCannotBeListedIsLoggedButTheCopyGoes) {
    MakeDir(tmp, {{"messages.txt", "1"}, {"messages.txt.xz", "1"}});
    fs::permissions(tmp, fs::perms::owner_write | fs::perms::owner_exec);
    {
        const OrdinaryRights ordinary;
        catalogue.DeleteLogTempFiles();
    }
    EXPECT_EQ(TmpNames(), Names{"messages.txt.xz"});
    EXPECT_LOG(Error("Exception in GetFilesInDir(/tmp): " + CannotOpen(tmp, EACCES)));
}

}  // namespace
