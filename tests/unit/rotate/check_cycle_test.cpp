// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The check cycle: at most one file is archived, the one whose turn it is.
#include "tests/unit/rotate/engine.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr unsigned long MaxLiveLogSize = 10485760;

class CheckLogsTest : public RotateTest {
protected:
    // One cycle, which succeeds; then the archive has these texts.
    void ExpectArchivedByCycle(const Texts& texts) {
        EXPECT_SUCCESS(rotate.CheckLogs());
        EXPECT_EQ(ArchivedTexts(), texts);
    }
};

TEST_F(CheckLogsTest, WithoutAnyLogNothingHappens) {
    EXPECT_SUCCESS(rotate.CheckLogs());
    EXPECT_THAT(Faults::TakeCalls(), IsEmpty());
    EXPECT_LOG(Error(StartsWith("GetFileSize(/perm/logs/syslog/messages.txt) exception: ")));

    fs::remove_all(syslogDir);
    EXPECT_SUCCESS(rotate.CheckLogs());
    EXPECT_LOG(Error(StartsWith("Exception in GetFilesInDir(/perm/logs/syslog): ")));
}

TEST_F(CheckLogsTest, ALiveLogOfMoreThanTenMebibytesIsArchived) {
    for (const unsigned long size : {0UL, 1UL, MaxLiveLogSize - 1, MaxLiveLogSize}) {
        WriteSparseFile(liveLog, size);
        EXPECT_SUCCESS(rotate.CheckLogs());
        EXPECT_TRUE(fs::exists(liveLog)) << size;
    }
    EXPECT_THAT(Faults::TakeCalls(), IsEmpty());
    EXPECT_LOG();

    WriteSparseFile(liveLog, MaxLiveLogSize + 1);
    EXPECT_SUCCESS(rotate.CheckLogs());
    ExpectLogs({});
    EXPECT_EQ(ReadXzFile(archive / ArchFn(7)).size(), MaxLiveLogSize + 1);
    EXPECT_LOG(Warning(StartsWith("Attempt to read file /var/run/syslogd.pid")),
               Info(StartsWith("Archived '/perm/logs/syslog/messages.txt' to ")));
}

TEST_F(CheckLogsTest, ARotationComesBeforeALargeLiveLog) {
    WriteSparseFile(liveLog, MaxLiveLogSize + 1);
    WriteFiles(syslogDir, {"messages.txt.0"});
    ExpectArchivedByCycle({"messages.txt.0"});
    EXPECT_EQ(fs::file_size(liveLog), MaxLiveLogSize + 1);
}

TEST_F(CheckLogsTest, OneRotationIsArchivedPerCycleTheHighestFirst) {
    WriteFiles(syslogDir, {"messages.txt", "messages.txt.0", "messages.txt.3"});
    ExpectArchivedByCycle({"messages.txt.3"});
    ExpectArchivedByCycle({"messages.txt.3", "messages.txt.0"});
    ExpectArchivedByCycle({"messages.txt.3", "messages.txt.0"});
    ExpectLogs({{"messages.txt", "messages.txt"}});
    EXPECT_EQ(rotate.bootNum, 7U);
}

TEST_F(CheckLogsTest, ForeignFilesAreNeverArchived) {
    WriteFiles(syslogDir, {"messages", "messages.0", "messages.txt", "messages.txt.0.gz",
                           "other.txt.0", "messagestxt.0", "Messages.txt.0"});
    MakeDir(syslogDir, {{"messages.txt.5/", ""}, {"messages.txt.9/", ""}});
    EXPECT_SUCCESS(rotate.CheckLogs());
    EXPECT_THAT(Faults::TakeCalls(), IsEmpty());
    EXPECT_LOG();
}

TEST_F(CheckLogsTest, ATakenLogThatWasLeftIsArchivedBeforeRotations) {
    WriteFiles(syslogDir, {"messages.txt.0", "messages.txt.8", "messages.txt.tmp"});
    ExpectArchivedByCycle({"messages.txt.tmp"});
}

TEST_F(CheckLogsTest, AFailedArchivingIsReported) {
    StandIn("xz", "exit 1");
    for (const Path& pfn : {rotation, liveLog}) {
        WriteSparseFile(pfn, MaxLiveLogSize + 1);
        EXPECT_FAILURE(rotate.CheckLogs()) << pfn;
        fs::remove(pfn);
    }
}

// The rotation behind which syslogd has no further name.
class MaxRotationTest : public CheckLogsTest {
protected:
    MaxRotationTest() {
        WriteFiles(syslogDir,
                   {"messages.txt", "messages.txt.8", "messages.txt.9", "messages.txt.tmp"});
        ServeSyslogd();
    }

    // syslogd's script records what it is asked to do, and what the syslog directory holds then.
    void ServeSyslogd(const std::string& thenDo = "") {
        WriteScript(syslogdScript, "echo \"$@:\" $(ls " + syslogDir.string() +
                                       ") >> /stand-in/syslogd; " + thenDo);
        WriteFile("/stand-in/syslogd");
    }

    const LogLine lostLine{LOG_ERR,
                           "Syslog had to be stopped to deal with its last possible rotation.  "
                           "Messages were lost."};
};

TEST_F(MaxRotationTest, IsArchivedAloneAndWithSyslogdStopped) {
    ExpectArchivedByCycle({"messages.txt.9"});
    EXPECT_EQ(ReadFile("/stand-in/syslogd"),
              "stop: archive messages.txt messages.txt.8 messages.txt.9 messages.txt.tmp\n"
              "start: archive messages.txt messages.txt.8 messages.txt.tmp\n");
    EXPECT_LOG(Info(StartsWith("Archived '/perm/logs/syslog/messages.txt.9' to ")), lostLine);
    EXPECT_THAT(TakeCallsOf("system"), ElementsAre("/etc/init.d/S01syslogd-moraine stop",
                                                   "xz -fk /perm/logs/syslog/messages.txt.9",
                                                   "/etc/init.d/S01syslogd-moraine start"));

    WriteFiles(syslogDir, {"messages.txt.9"});  // It is looked for in each cycle.
    ExpectArchivedByCycle({"messages.txt.9", "messages.txt.9"});
}

TEST_F(MaxRotationTest, IsArchivedThoughSyslogdWouldNotStop) {
    ServeSyslogd("[ $1 = start ]");
    ExpectArchivedByCycle({"messages.txt.9"});
    EXPECT_LOG(Error(StartsWith(
                   "Unable to '/etc/init.d/S01syslogd-moraine stop'.  Result: 256, Error: '")),
               Info(StartsWith("Archived ")), lostLine);
}

TEST_F(MaxRotationTest, ThatCannotBeArchivedLeavesSyslogdStopped) {
    StandIn("xz", "exit 1");
    EXPECT_FAILURE(rotate.CheckLogs());
    EXPECT_EQ(ReadFile("/stand-in/syslogd"),
              "stop: archive messages.txt messages.txt.8 messages.txt.9 messages.txt.tmp\n");
    EXPECT_LOG(Error(StartsWith("Unable to 'xz -fk ")));
}

TEST_F(MaxRotationTest, WithASyslogdThatWouldNotStartIsAFailure) {
    ServeSyslogd("[ $1 = stop ]");
    EXPECT_FAILURE(rotate.CheckLogs());
    EXPECT_EQ(ArchivedTexts(), Texts{"messages.txt.9"});
    EXPECT_LOG(Info(StartsWith("Archived ")),
               Error(StartsWith(
                   "Unable to '/etc/init.d/S01syslogd-moraine start'.  Result: 256, Error: '")));
}

// Under its own name syslogd would overwrite it.
TEST_F(MaxRotationTest, ThatIsLeftToALaterCycleIsSetAside) {
    fs::remove(tmpLog);
    std::FILE* const writer = std::fopen((syslogDir / "messages.txt.9").c_str(), "a");
    EXPECT_SUCCESS(rotate.CheckLogs());
    EXPECT_EQ(ReadFile("/stand-in/syslogd"),
              "stop: archive messages.txt messages.txt.8 messages.txt.9\n"
              "start: archive messages.txt messages.txt.8 messages.txt.tmp\n");
    EXPECT_LOG(Info(testing::HasSubstr("is still open for writing")), lostLine);
    (void)std::fclose(writer);
    ExpectArchivedByCycle({"messages.txt.9"});
    EXPECT_LOG(Info(StartsWith("Archived ")));
}

TEST_F(MaxRotationTest, CanBeAnyFile) {
    EXPECT_SUCCESS(rotate.ArchiveMaxSyslogdPfn(syslogDir / "messages.txt.8"));
    EXPECT_EQ(ArchivedTexts(), Texts{"messages.txt.8"});
}

TEST(LastRotation, IsTheGreatestNameOfARotation) {
    const std::vector<std::pair<std::set<std::string>, const char*>> table{
        {{}, ""},
        {{"messages.txt"}, ""},
        {{"archive", "messages.0", "messages.txt", "other.txt.0"}, ""},
        {{"messages.txt.0"}, "messages.txt.0"},
        {{"messages.txt", "messages.txt.0", "messages.txt.3"}, "messages.txt.3"},
        {{"messages.txt.0", "zzz"}, "messages.txt.0"},
        {{"messages.txt.10", "messages.txt.8", "messages.txt.9"}, "messages.txt.9"},
        {{"messages.txt.0", "messages.txt.10"}, "messages.txt.10"},
        {{"messages.txt.9", "messages.txt.tmp"}, "messages.txt.tmp"},
    };
    for (const auto& [files, expected] : table) {
        std::set<std::string> listing = files;
        EXPECT_EQ(Engine().GetLastSyslogdRotation(listing), expected);
        EXPECT_EQ(listing, files);
    }
}

}  // namespace
