// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// What a snapshot of the device's folders takes in, at the moments between two steps of syslogd and
// the daemon.
#include "reader/device.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "daemon/moraine.h"
#include "reader/xz_encoder.h"
#include "tests/support/files.h"

namespace {

bool listingFails = false;

}  // namespace

// A medium that can be read no more.
extern "C" dirent* readdir(DIR* stream) {
    static auto* const real = reinterpret_cast<dirent* (*)(DIR*)>(dlsym(RTLD_NEXT, "readdir"));
    if (!listingFails) return real(stream);
    errno = EIO;
    return nullptr;
}

namespace {

const std::string Archived = "messages.001.1970-01-01.00:00:01.txt.xz";
const std::string Newer = "messages.001.1970-01-01.00:00:02.txt.xz";

std::string Compress(const std::string& text) {
    std::string result;
    Reader::XzEncoder encoder([&](std::string_view bytes) {
        result += bytes;
        return false;
    });
    EXPECT_FALSE(encoder.Write(text) || encoder.Finish());
    return result;
}

class Snapshot : public testing::Test {
protected:
    void SetUp() override {
        std::filesystem::remove_all(Moraine::SyslogPathAbs);
        std::filesystem::create_directories(Moraine::ArchPathAbs);
    }

    static void Write(const std::string& name, const std::string& text, long time) {
        const auto path = Moraine::SyslogPathAbs / name;
        WriteFile(path, text);
        SetTime(path, time);
    }
    static void WriteArchived(const std::string& name, const std::string& text, long time) {
        const auto path = Moraine::ArchPathAbs / name;
        WriteFile(path, Compress(text));
        SetTime(path, time);
    }
    static void SetTime(const std::filesystem::path& path, long time) {
        const timespec both[]{{time, 123456789}, {time, 123456789}};
        ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), both, 0), 0);
    }

    std::vector<std::string> Names() {
        catalogue = {};
        Reader::OpenDeviceFolders(catalogue);
        std::vector<std::string> names;
        for (const Reader::Entry& entry : catalogue.entries) names.emplace_back(entry.Name());
        EXPECT_TRUE(catalogue.problems.empty());
        return names;
    }

    Reader::Catalogue catalogue;
};

using NameList = std::vector<std::string>;

TEST_F(Snapshot, TakesAllPlacesInTheOrderOfTheText) {
    Write("messages.txt", "5\n", 5);
    Write("messages.txt.0", "4\n", 4);
    Write("messages.txt.1", "3\n", 3);
    Write("messages.txt.tmp", "2\n", 2);
    WriteArchived(Archived, "1\n", 1);
    EXPECT_EQ(Names(), (NameList{Archived, "messages.txt.tmp", "messages.txt.1", "messages.txt.0",
                                 "messages.txt"}));
    EXPECT_EQ(catalogue.currentBoot, 2U);
    EXPECT_EQ(catalogue.entries.back().boot, 2U);
}

TEST_F(Snapshot, LeavesOutTheArchiveFileOfARotationThatIsStillThere) {
    WriteArchived(Archived, "3\n", 3);
    Write("messages.txt.0", "3\n", 3);
    Write("messages.txt", "4\n", 4);
    EXPECT_EQ(Names(), (NameList{"messages.txt.0", "messages.txt"}));
}

TEST_F(Snapshot, TellsItFromOthersByTimeLengthAndText) {
    Write("messages.txt.0", "3\n", 3);
    for (const auto& [text, time] :
         {std::pair("3\n", 4L), std::pair("3\n3\n", 3L), std::pair("4\n", 3L)}) {
        WriteArchived(Archived, text, time);
        EXPECT_EQ(Names(), (NameList{Archived, "messages.txt.0"})) << text << time;
    }
}

TEST_F(Snapshot, LeavesOutTheArchiveFileOfAnEmptyLog) {
    WriteArchived(Archived, "", 3);
    Write("messages.txt", "", 3);
    EXPECT_EQ(Names(), (NameList{"messages.txt"}));
}

TEST_F(Snapshot, TakesNoDamagedArchiveFileForAnEmptyLog) {
    Write("messages.txt", "", 3);
    const std::string empty = Compress("");
    for (const std::string& content :
         {std::string("damaged"), std::string(), "x" + empty.substr(1), Compress("1\n") + empty}) {
        WriteFile(Moraine::ArchPathAbs / Archived, content);
        SetTime(Moraine::ArchPathAbs / Archived, 3);
        EXPECT_EQ(Names(), (NameList{Archived, "messages.txt"})) << content;
    }
}

TEST_F(Snapshot, IgnoresAHalfMadeCompressedFile) {
    Write("messages.txt.0", "3\n", 3);
    Write("messages.txt.0.xz", Compress("3\n").substr(0, 20), 3);
    EXPECT_EQ(Names(), (NameList{"messages.txt.0"}));
}

TEST_F(Snapshot, TakesTheLiveLogUpToItsLengthAtThatMoment) {
    Write("messages.txt", "one\n", 3);
    ASSERT_EQ(Names(), (NameList{"messages.txt"}));
    AppendToFile(Moraine::SyslogPathAbs / "messages.txt", "two\n");
    EXPECT_EQ(catalogue.placed[catalogue.entries[0].id].place.size, 4U);
}

TEST_F(Snapshot, HoldsWhatItFoundThroughARotation) {
    Write("messages.txt", "one\n", 3);
    ASSERT_EQ(Names(), (NameList{"messages.txt"}));
    std::filesystem::rename(Moraine::SyslogPathAbs / "messages.txt",
                            Moraine::SyslogPathAbs / "messages.txt.0");
    Write("messages.txt", "two\n", 4);
    Reader::OpenFile file;
    std::string error;
    ASSERT_EQ(catalogue.Open(0, file, error), Reader::OpenResult::Opened);
    char text[8] = {};
    EXPECT_EQ(pread(file.place.fd, text, sizeof text, 0), 4);
    EXPECT_STREQ(text, "one\n");
}

TEST_F(Snapshot, OpensAnArchiveFileThatWasRenumberedMeanwhile) {
    WriteArchived(Archived, "1\n", 1);
    WriteArchived(Newer, "2\n", 2);
    ASSERT_EQ(Names(), (NameList{Archived, Newer}));
    std::filesystem::rename(Moraine::ArchPathAbs / Newer,
                            Moraine::ArchPathAbs / "messages.999.1970-01-01.00:00:02.txt.xz");
    Reader::OpenFile file;
    std::string error;
    EXPECT_EQ(catalogue.Open(1, file, error), Reader::OpenResult::Opened) << error;
    std::filesystem::remove(Moraine::ArchPathAbs / Archived);
    EXPECT_EQ(catalogue.Open(0, file, error), Reader::OpenResult::Gone);
}

TEST_F(Snapshot, ReportsAFolderThatCouldNotBeListedToItsEnd) {
    Write("messages.txt", "1\n", 1);
    listingFails = true;
    Reader::OpenDeviceFolders(catalogue);
    listingFails = false;
    ASSERT_EQ(catalogue.problems.size(), 2U);
    EXPECT_EQ(catalogue.problems[0].file, Moraine::SyslogPathAbs);
    EXPECT_EQ(catalogue.problems[0].reason, "Input/output error");
    EXPECT_EQ(catalogue.problems[1].file, Moraine::ArchPathAbs);
}

TEST_F(Snapshot, DoesNotTakeAFileForDeletedWhereItCouldNotLook) {
    WriteArchived(Archived, "1\n", 1);
    ASSERT_EQ(Names(), NameList{Archived});
    std::filesystem::remove(Moraine::ArchPathAbs / Archived);
    Reader::OpenFile file;
    std::string error;
    listingFails = true;
    EXPECT_EQ(catalogue.Open(0, file, error), Reader::OpenResult::Failed);
    listingFails = false;
    EXPECT_EQ(error, "Input/output error");
}

}  // namespace
