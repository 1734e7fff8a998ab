// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// A file that was archived and is there all the same, after a loss of power or a kill: its lines
// are not archived twice, and no other file is taken for it.
#include "tests/unit/rotate/engine.h"

namespace {

using testing::ElementsAre;
using testing::StartsWith;

constexpr timespec Time{.tv_sec = 1'000'000'000, .tv_nsec = 123'456'789};

class TwinTest : public RotateTest {
protected:
    static void WriteAt(const Path& pfn, const std::string& text, timespec time = Time) {
        WriteFileAt(pfn, text, time);
    }

    // An archive of one file, with the time of what it was made of.
    void Archived(const std::string& name, const std::string& text) {
        MakeArchive();
        WriteAt("/perm/source", text);
        ASSERT_EQ(std::system("xz /perm/source"), 0);
        fs::rename("/perm/source.xz", archive / name);
    }

    void MakeTwins() {
        Archived(ArchFn(1), "old\n");
        WriteAt(rotation, "old\n");
    }

    void ExpectArchivedTexts(const Texts& texts) const { EXPECT_EQ(ArchivedTexts(), texts); }

    void RunCycles() {
        for (int i = 0; i < 4; ++i) EXPECT_SUCCESS(rotate.CheckLogs());
    }
};

TEST_F(TwinTest, IsRemovedByTheStart) {
    for (const Path& pfn : {rotation, tmpLog}) {
        SCOPED_TRACE(pfn);
        Archived(ArchFn(1), "old\n");
        WriteAt(pfn, "old\n");
        log.Take();
        EXPECT_SUCCESS(rotate.Init());
        ExpectLogs({});
        ExpectArchivedTexts({"old\n"});
        EXPECT_THAT(log.Take(), testing::Contains(Info("'" + pfn.string() +
                                                       "' is in the archive already, as '" +
                                                       ArchFn(1) + "'.")));
    }
}

// In the steps of every removal, because syslogd may rotate meanwhile.
TEST_F(TwinTest, IsRemovedSafely) {
    MakeTwins();
    (void)Faults::TakeCalls();
    EXPECT_SUCCESS(rotate.Init());
    Texts calls = Faults::TakeCalls();
    std::erase_if(calls, [](const std::string& call) { return call.starts_with("system"); });
    EXPECT_THAT(
        calls, ElementsAre("fsync /perm/logs/syslog/archive",
                           "rename /perm/logs/syslog/messages.txt.0 "
                           "/perm/logs/syslog/messages.txt.tmp",
                           "remove /perm/logs/syslog/messages.txt.tmp", "fsync /perm/logs/syslog"));
}

TEST_F(TwinTest, ThatSyslogdMovesMeanwhileIsRemovedByALaterCycle) {
    MakeTwins();
    OnNthCall("rename", 1, [this] {
        fs::rename(rotation, nextRotation);
        WriteFile(rotation, "new\n");
    });
    EXPECT_SUCCESS(rotate.Init());
    RunCycles();
    ExpectLogs({});
    ExpectArchivedTexts({"old\n", "new\n"});
}

TEST_F(TwinTest, ThatIsOpenForWritingIsRemovedByALaterCycle) {
    MakeTwins();
    std::FILE* const writer = std::fopen(rotation.c_str(), "a");
    EXPECT_SUCCESS(rotate.Init());
    EXPECT_EQ(ReadFile(rotation), "old\n");
    (void)std::fclose(writer);
    RunCycles();
    ExpectArchivedTexts({"old\n"});
}

// The end of a file that comes back may not have reached the disk.
TEST_F(TwinTest, MayHaveLostItsEnd) {
    for (const char* text : {"first\n", ""}) {
        Archived(ArchFn(1), "first\nsecond\n");
        WriteAt(rotation, text);
        EXPECT_SUCCESS(rotate.Init());
        ExpectLogs({});
        ExpectArchivedTexts({"first\nsecond\n"});
    }
}

TEST_F(TwinTest, HasTheTimeOfItsArchiveFile) {
    for (const timespec time :
         {timespec{Time.tv_sec, Time.tv_nsec + 1}, timespec{Time.tv_sec + 1, Time.tv_nsec}}) {
        Archived(ArchFn(1), "old\n");
        WriteAt(rotation, "old\n", time);
        EXPECT_SUCCESS(rotate.Init());
        EXPECT_EQ(ReadFile(rotation), "old\n");
        RunCycles();
        ExpectArchivedTexts({"old\n", "old\n"});
    }
}

TEST_F(TwinTest, HasTheContentOfItsArchiveFile) {
    for (const char* text : {"old", "odd\n", "old\nmore\n"}) {
        SCOPED_TRACE(text);
        Archived(ArchFn(1), "old\n");
        WriteAt(rotation, text);
        const bool isTwin = std::string(text) == "old";
        EXPECT_SUCCESS(rotate.Init());
        RunCycles();
        ExpectArchivedTexts(isTwin ? Texts{"old\n"} : Texts{"old\n", text});
    }
}

TEST_F(TwinTest, OfADamagedFileIsArchivedAgain) {
    Archived(ArchFn(1), std::string(200'000, 'x'));
    fs::resize_file(archive / ArchFn(1), 40);
    WriteAt(archive / ArchFn(1), ReadFile(archive / ArchFn(1)));
    WriteAt(rotation, std::string(200'000, 'x'));
    EXPECT_SUCCESS(rotate.Init());
    EXPECT_EQ(ReadFile(rotation).size(), 200'000U);
    RunCycles();
    ExpectLogs({});
}

TEST_F(TwinTest, OfAFileThatLostItsLastByteIsArchivedAgain) {
    MakeTwins();
    fs::resize_file(archive / ArchFn(1), fs::file_size(archive / ArchFn(1)) - 1);
    WriteAt(archive / ArchFn(1), ReadFile(archive / ArchFn(1)));
    EXPECT_SUCCESS(rotate.Init());
    EXPECT_EQ(ReadFile(rotation), "old\n");
}

TEST_F(TwinTest, IsLookedForAmongTheNewestThousandFiles) {
    for (const unsigned newer : {999U, 1000U}) {
        SCOPED_TRACE(newer);
        Archived(ArchFn(1, 10), "old\n");
        for (unsigned i = 0; i < newer; ++i) WriteFile(archive / ArchFn(2, 11 + i));
        WriteAt(rotation, "old\n");
        EXPECT_SUCCESS(rotate.Init());
        EXPECT_EQ(fs::exists(rotation), newer == 1000);
    }
}

// Two files that are alike were both waiting: what was made of one is not a copy of the other.
TEST_F(TwinTest, IsNotWhatWasArchivedSinceTheStart) {
    MakeArchive();
    for (const Path& pfn : {tmpLog, nextRotation, rotation}) WriteAt(pfn, "old\n");
    EXPECT_SUCCESS(rotate.Init());
    RunCycles();
    ExpectLogs({});
    ExpectArchivedTexts({"old\n", "old\n", "old\n"});
}

// After that no cycle spends any time on it.
TEST_F(TwinTest, IsNotLookedForOnceNothingWaits) {
    EXPECT_SUCCESS(rotate.Init());
    WriteFile(liveLog, "live\n");
    EXPECT_SUCCESS(rotate.CheckLogs());
    Archived(ArchFn(1, 10), "old\n");
    WriteAt(rotation, "old\n");
    EXPECT_SUCCESS(rotate.CheckLogs());
    ExpectArchivedTexts({"old\n", "old\n"});
}

TEST_F(TwinTest, ThatCannotBeRemovedEndsTheStart) {
    MakeTwins();
    Faults::Fail("rename", EBUSY, 1);
    Faults::Fail("remove", EBUSY, 1);
    EXPECT_FAILURE(rotate.Init());
    EXPECT_LOG(Error(StartsWith("Remove failure for ")));
}

}  // namespace
