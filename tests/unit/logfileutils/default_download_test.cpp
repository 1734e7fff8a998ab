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
};

TEST_F(PrepSyslogTest, PacksTheCompressedLiveLog) {
    const std::string content = Noise(1 << 20);
    WriteFile(liveLog, content);
    EXPECT_TRUE(catalogue.PrepSyslog());
    ExpectLines({Preparing, Created});
    EXPECT_EQ(Packed(), Names{"messages.txt.xz"});
    EXPECT_TRUE(PackedLog() == content);
    EXPECT_EQ(TmpNames(), (Names{"messages.txt.xz", "syslog.tar"}));
    EXPECT_TRUE(ReadFile(liveLog) == content);
    EXPECT_EQ(Faults::TakeCalls(),
              (Names{std::string("system ") + XzCommand, "system " + Create("messages.txt.xz")}));
}

TEST_F(PrepSyslogTest, PacksAnEmptyLiveLog) {
    WriteFile(liveLog);
    EXPECT_TRUE(catalogue.PrepSyslog());
    EXPECT_EQ(PackedLog(), "");
}

TEST_F(PrepSyslogTest, ReplacesAnOldTarFileAndAnOldCompressedCopy) {
    WriteFile(tarFile, "old");
    WriteFile(tmp / "messages.txt.xz", "old");
    WriteFile(liveLog, "new");
    EXPECT_TRUE(catalogue.PrepSyslog());
    EXPECT_EQ(Packed(), Names{"messages.txt.xz"});
    EXPECT_EQ(PackedLog(), "new");
}

TEST_F(PrepSyslogTest, WithoutALiveLogDoesNothing) {
    EXPECT_FALSE(catalogue.PrepSyslog());
    fs::create_directory(liveLog);
    EXPECT_FALSE(catalogue.PrepSyslog());
    fs::remove(liveLog);
    fs::create_symlink("nowhere", liveLog);
    EXPECT_FALSE(catalogue.PrepSyslog());
    (void)Faults::TakeCalls();
    ExpectNoLines();
    EXPECT_EQ(TmpNames(), Names());
}

TEST_F(PrepSyslogTest, ACopyInTheWayEndsItBeforeXz) {
    WriteFile(liveLog, "new");
    WriteFile(tmp / "messages.txt", "old");
    EXPECT_FALSE(catalogue.PrepSyslog());
    ExpectLines({Preparing, CopyFailure(liveLog, tmp / "messages.txt")});
    EXPECT_DIR(tmp, {{"messages.txt", "old"}});
    EXPECT_EQ(Faults::TakeCalls(), Names());
}

TEST_F(PrepSyslogTest, ATmpWithoutRoomForTheCopyEndsItBeforeXz) {
    const Mounted small = Mounted::Tmpfs("/tmp", "64k");
    WriteFile(liveLog, Noise(100 << 10));
    const LogLine copyFailure = CopyFailure(liveLog, tmp / "messages.txt");
    fs::remove(tmp / "messages.txt");
    EXPECT_FALSE(catalogue.PrepSyslog());
    ExpectLines({Preparing, copyFailure});
    EXPECT_EQ(TmpNames(), Names{"messages.txt"});
    catalogue.DeleteLogTempFiles();
    EXPECT_EQ(TmpNames(), Names());
}

TEST_F(PrepSyslogTest, AFailingXzEndsItBeforeTar) {
    WriteFile(liveLog, "new");
    WriteFile(tarFile, "old");
    StandIn("xz", "exit 1");
    EXPECT_FALSE(catalogue.PrepSyslog());
    ExpectLines({Preparing, CommandFailure(XzCommand, 256)});
    EXPECT_DIR(tmp, {{"messages.txt", "new"}, {"syslog.tar", "old"}});
}

TEST_F(PrepSyslogTest, AFailingTarIsNoSuccess) {
    WriteFile(liveLog, "new");
    StandIn("tar", "exit 2");
    EXPECT_FALSE(catalogue.PrepSyslog());
    ExpectLines({Preparing, CommandFailure(Create("messages.txt.xz"), 512)});
    EXPECT_EQ(TmpNames(), Names{"messages.txt.xz"});
}

class DefaultDownloadTest : public PrepSyslogTest {
protected:
    const std::string a = ArchName(1);
    const std::string b = ArchName(2);
};

TEST_F(DefaultDownloadTest, HasTheLiveLogFirstAndThenTheArchiveFromTheNewestOn) {
    WriteFile(liveLog, "live");
    Archive({a, b, "notes"});
    EXPECT_EQ(catalogue.PrepDefaultLogFileDownload(), 3);
    EXPECT_EQ(Packed(), (Names{"messages.txt.xz", b, a}));
    EXPECT_EQ(PackedLog(), "live");
    EXPECT_EQ(PackedContent(a), a);
    const LogLines lines = log.Take();
    ASSERT_EQ(lines.size(), 6U);
    EXPECT_EQ(lines[0], Preparing);
    EXPECT_EQ(lines[1], Created);
    EXPECT_EQ(lines[2].text, "Added 1 file, 0 reboots, to /tmp/syslog.tar: " + b);
    EXPECT_EQ(lines[4].text, "Added 2 files, 1 reboot, to /tmp/syslog.tar: " + a);
}

TEST_F(DefaultDownloadTest, HasNoLimitOfFilesOrBoots) {
    Archive({a});
    EXPECT_EQ(catalogue.PrepDefaultLogFileDownload(), 1);
    EXPECT_EQ(catalogue.dlMaxFiles, 65535);
    EXPECT_EQ(catalogue.dlMaxBootNums, 65535);
}

TEST_F(DefaultDownloadTest, WithoutALiveLogTheFirstArchiveFileCreatesTheTarFile) {
    WriteFile(tarFile, "old");
    Archive({a, b});
    EXPECT_EQ(catalogue.PrepDefaultLogFileDownload(), 2);
    EXPECT_EQ(Packed(), (Names{b, a}));
}

TEST_F(DefaultDownloadTest, ALiveLogThatCannotBePackedIsLeftOut) {
    WriteFile(liveLog, "live");
    StandIn("xz", "exit 1");
    Archive({a, b});
    EXPECT_EQ(catalogue.PrepDefaultLogFileDownload(), 2);
    EXPECT_EQ(Packed(), (Names{b, a}));
}

// There is no tar file that could be too large.
TEST_F(DefaultDownloadTest, OfNothingOrNothingThatFitsIsNothing) {
    const auto expectNothing = [this](const char* archived) {
        SCOPED_TRACE(archived);
        EXPECT_EQ(catalogue.PrepDefaultLogFileDownload(), 0);
        EXPECT_EQ(TmpNames(), Names());
        ExpectNoLines();
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
    EXPECT_EQ(catalogue.PrepDefaultLogFileDownload(), 1);
    EXPECT_EQ(Packed(), Names{"messages.txt.xz"});
    ExpectLines({Preparing, Created});
}

TEST_F(DefaultDownloadTest, OfAnArchiveThatCannotBeListedIsOneWhateverWasPacked) {
    RemoveArchive();
    EXPECT_EQ(catalogue.PrepDefaultLogFileDownload(), 1);
    ExpectLines({ListingFailure(ENOENT)});
    EXPECT_EQ(TmpNames(), Names());

    WriteFile(liveLog, "live");
    ReplaceArchiveByAFile();
    EXPECT_EQ(catalogue.PrepDefaultLogFileDownload(), 1);
    ExpectLines({Preparing, Created, ListingFailure(ENOTDIR)});
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
};

TEST_F(LargeLiveLogTest, ATarFileAtTheLimitIsADownload) {
    MakeTarOfSize(MaxDownloadSize);
    Archive({a});
    EXPECT_EQ(catalogue.PrepDefaultLogFileDownload(), 1);
    ExpectLines({Preparing, Created});
}

TEST_F(LargeLiveLogTest, ATarFileAboveTheLimitIsAFailureAndStaysForTheCaller) {
    MakeTarOfSize(MaxDownloadSize + 1);
    Archive({a});
    EXPECT_EQ(catalogue.PrepDefaultLogFileDownload(), -1);
    ExpectLines({Preparing,
                 Created,
                 {LOG_WARNING,
                  "/tmp/syslog.tar size (15.000 MiB) exceeds download file size limit of 15.000 "
                  "MiB"}});
    EXPECT_TRUE(fs::exists(tarFile));
    catalogue.DeleteDownload();
    EXPECT_FALSE(fs::exists(tarFile));
}

TEST_F(LargeLiveLogTest, WithAnEmptyArchiveTheSizeIsNotChecked) {
    MakeTarOfSize(MaxDownloadSize + 1);
    EXPECT_EQ(catalogue.PrepDefaultLogFileDownload(), 1);
    ExpectLines({Preparing, Created});
}

// The limit holds for archive files too, when tar adds more than was estimated.
TEST_F(LargeLiveLogTest, ATarFileThatGrowsAboveTheLimitLaterIsAFailure) {
    StandIn("tar", "truncate -s 20M syslog.tar");
    Archive({a});
    EXPECT_EQ(catalogue.PrepDefaultLogFileDownload(), -1);
    EXPECT_EQ(log.Take().back(),
              (LogLine{LOG_WARNING,
                       "/tmp/syslog.tar size (20.000 MiB) exceeds download file size limit of "
                       "15.000 MiB"}));
}

class CleanUpTest : public DownloadTest {
protected:
    void TearDown() override { ExpectNoLines(); }
};

TEST_F(CleanUpTest, DeleteDownloadTakesJustTheTarFile) {
    WriteFile(tarFile, "1");
    MakeDir(tmp, {{"syslog.tar.old", "2"}, {"messages.txt", "3"}});
    catalogue.DeleteDownload();
    EXPECT_DIR(tmp, {{"messages.txt", "3"}, {"syslog.tar.old", "2"}});
}

TEST_F(CleanUpTest, DeleteDownloadWithoutATarFileDoesNothing) {
    (void)Faults::TakeCalls();
    catalogue.DeleteDownload();
    fs::create_directory(tarFile);
    catalogue.DeleteDownload();
    EXPECT_EQ(TmpNames(), Names{"syslog.tar/"});
    EXPECT_EQ(Faults::TakeCalls(), Names());
}

TEST_F(CleanUpTest, ATarFileThatCannotBeRemovedIsLogged) {
    WriteFile(tarFile, "1");
    const Mounted over = Mounted::Over(tarFile, tarFile);
    catalogue.DeleteDownload();
    ExpectLines({{LOG_ERR, RemovalFailure(tarFile)}});
}

TEST_F(CleanUpTest, DeleteLogTempFilesTakesJustFilesWhoseNameBeginsWithTheLogs) {
    const Names taken = {"messages",       "messages.txt", "messages.txt.xz",   ArchName(1),
                         "messages.txt.0", "messages2",    "messages of today", "messages\n\xff"};
    const Names left = {"Messages.txt", "message",   "message.txt", " messages", "old messages",
                        "syslog.tar",   "amessages", ".messages",   "MESSAGES",  "messagE s"};
    for (const Names& names : {taken, left}) {
        for (const std::string& name : names) WriteFile(tmp / name, name);
    }
    MakeDir(tmp, {{"messages.d/messages.txt", "inside"},
                  {"messages.link@", "syslog.tar"},
                  {"messages.link to folder@", "messages.d"},
                  {"messages.dangling@", "nowhere"}});

    catalogue.DeleteLogTempFiles();

    Dir expected = {{"messages.d/", ""},
                    {"messages.link to folder@", "messages.d"},
                    {"messages.dangling@", "nowhere"}};
    for (const std::string& name : left) expected[name] = name;
    EXPECT_EQ(ReadDir(tmp), expected);
    EXPECT_DIR(tmp / "messages.d", {{"messages.txt", "inside"}});
}

TEST_F(CleanUpTest, DeleteLogTempFilesOfAnEmptyTmpDoesNothing) {
    catalogue.DeleteLogTempFiles();
}

TEST_F(CleanUpTest, AFileThatCannotBeRemovedIsLoggedAndTheOthersGo) {
    for (const char* name : {"messages.1", "messages.2", "messages.3"}) WriteFile(tmp / name, "1");
    const Mounted over = Mounted::Over(tmp / "messages.2", tmp / "messages.2");
    catalogue.DeleteLogTempFiles();
    EXPECT_DIR(tmp, {{"messages.2", "1"}});
    ExpectLines({{LOG_ERR, RemovalFailure(tmp / "messages.2")}});
}

TEST_F(CleanUpTest, ATmpThatCannotBeListedIsLoggedButTheCopyGoes) {
    MakeDir(tmp, {{"messages.txt", "1"}, {"messages.txt.xz", "1"}});
    fs::permissions(tmp, fs::perms::owner_write | fs::perms::owner_exec);
    {
        const OrdinaryRights ordinary;
        catalogue.DeleteLogTempFiles();
    }
    EXPECT_EQ(TmpNames(), Names{"messages.txt.xz"});
    ExpectLines({{LOG_ERR, "Exception in GetFilesInDir(/tmp): " + CannotOpen(tmp, EACCES)}});
}

}  // namespace
