// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// What a running daemon leaves in /var/run.
#include "daemon/presence.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "tests/support/faults.h"
#include "tests/support/files.h"

namespace {

namespace fs = std::filesystem;

using Daemon::Presence;

class PresenceTest : public testing::Test {
protected:
    static bool IsLocked() {
        const int fd = open("/var/run/vandis-moraine.lock", O_RDONLY);
        const bool isLocked = flock(fd, LOCK_EX | LOCK_NB) != 0;
        (void)close(fd);
        return isLocked;
    }
    static mode_t ModeOf(const fs::path& pfn) {
        struct stat status {};
        (void)lstat(pfn.c_str(), &status);
        return status.st_mode;
    }

    const fs::path lock = "/var/run/vandis-moraine.lock";
    const fs::path bootNum = "/var/run/vandis-moraine.boot";
};

TEST_F(PresenceTest, IsALockThatOnlyRootCanOpen) {
    {
        const Presence presence;
        EXPECT_FALSE(presence.IsTaken());
        EXPECT_TRUE(IsLocked());
        EXPECT_EQ(ModeOf(lock), S_IFREG | S_IRUSR | S_IWUSR);
    }
    EXPECT_FALSE(IsLocked());
}

TEST_F(PresenceTest, IsNotPassedOnToCommands) {
    const Presence presence;
    EXPECT_EQ(std::system("ls -l /proc/self/fd | grep -q vandis-moraine.lock"), 256);
}

TEST_F(PresenceTest, OfOneDaemonAtATime) {
    const Presence first;
    first.PublishBootNum(12);
    {
        const Presence second;
        EXPECT_TRUE(second.IsTaken());
    }
    EXPECT_TRUE(IsLocked());
    EXPECT_EQ(ReadFile(bootNum), "12\n");
}

TEST_F(PresenceTest, HoldsTheBootNumberUntilTheEnd) {
    WriteFile(bootNum, "left by a killed daemon");
    const mode_t maskBefore = umask(077);
    {
        const Presence presence;
        EXPECT_FALSE(fs::exists(bootNum));
        presence.PublishBootNum(7);
        EXPECT_EQ(ReadFile(bootNum), "7\n");
        EXPECT_EQ(ModeOf(bootNum), S_IFREG | S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH);
    }
    EXPECT_FALSE(fs::exists(bootNum));
    (void)umask(maskBefore);
}

TEST_F(PresenceTest, FollowsNoLink) {
    fs::create_symlink("/perm/planted lock", lock);
    const Presence presence;
    fs::create_symlink("/perm/planted number", bootNum);
    presence.PublishBootNum(7);
    EXPECT_FALSE(fs::exists("/perm/planted lock"));
    EXPECT_FALSE(fs::exists("/perm/planted number"));
    fs::remove(lock);
}

TEST_F(PresenceTest, IsNoObstacleWhereVarRunCannotHoldIt) {
    fs::create_directory(lock);
    fs::create_directory(bootNum);
    {
        const Presence presence;
        EXPECT_FALSE(presence.IsTaken());
        presence.PublishBootNum(7);
    }
    fs::remove(lock);
    fs::remove(bootNum);

    Faults::Fail("flock", ENOLCK);
    EXPECT_FALSE(Presence().IsTaken());
}

}  // namespace
