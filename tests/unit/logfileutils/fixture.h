// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// What the tests of the catalogue share: a device with an empty archive and no live log, and every
// log line down to Debug. A test fails if it leaves a line unread.
#pragma once

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "daemon/moraine.h"
#include "logfileutils/log_file_utils.h"
#include "logging/logging.h"
#include "tests/support/faults.h"
#include "tests/support/files.h"
#include "tests/support/log_sink.h"
#include "tests/support/reason.h"
#include "util/format.h"

struct OpenCatalogue : LogFileUtils {
    using LogFileUtils::AddFileToTarball;
    using LogFileUtils::AddFileToTarballAfterCheckingLimits;
    using LogFileUtils::dlDone;
    using LogFileUtils::dlFiles;
    using LogFileUtils::dlMaxBootNums;
    using LogFileUtils::dlMaxFiles;
    using LogFileUtils::dlPrevBootNum;
    using LogFileUtils::dlReboots;
    using LogFileUtils::dlTarExists;
    using LogFileUtils::FillArchDl;
    using LogFileUtils::LogAtDebug;
    using LogFileUtils::numReboots;
};

using Names = std::vector<std::string>;

// The name of an archive file: of a boot, and of a second after its start.
inline std::string ArchName(unsigned bootNum, unsigned second = 0) {
    return Util::Format("messages.%03u.1970-01-01.00:00:%02u.txt.xz", bootNum, second);
}

class CatalogueTest : public testing::Test {
protected:
    CatalogueTest() {
        Logging::SetLogLevel(Logging::SeverityDebug);
        std::filesystem::remove_all("/perm/logs");
        std::filesystem::create_directories(archive);
        std::filesystem::remove(Moraine::SyslogPidPfe);
        (void)Faults::TakeCalls();
    }

    void TearDown() override { EXPECT_LOG(); }

    // Puts files into the archive; the content of each is its name.
    void Archive(const Names& names) {
        for (const std::string& name : names) WriteFile(archive / name, name);
    }

    // The archive gone, with other files in it, or something else in its place.
    void RemoveArchive() { std::filesystem::remove_all(archive); }
    void MakeArchive(const Names& names) {
        RemoveArchive();
        std::filesystem::create_directories(archive);
        Archive(names);
    }
    void ReplaceArchiveByAFile() {
        RemoveArchive();
        WriteFile(archive, "no folder");
    }

    // The line of an archive that cannot be listed.
    LogLine ListingFailure(int error) {
        return {LOG_ERR, "Exception in GetFilesInDir(/perm/logs/syslog/archive): " +
                             CannotOpen(archive, error)};
    }

    const std::filesystem::path syslogDir = "/perm/logs/syslog";
    const std::filesystem::path archive = "/perm/logs/syslog/archive";
    const std::filesystem::path liveLog = "/perm/logs/syslog/messages.txt";
    LogSink log;
    OpenCatalogue catalogue;
};
