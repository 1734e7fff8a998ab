// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Packs a device's logs for download, as its web interface would: shows what the archive holds,
// packs the current log and the newest archive files, and says where the tar file is. With
// --delete, deletes it.
#include <vandis-moraine/daemon/moraine.h>
#include <vandis-moraine/futils/futils.h>
#include <vandis-moraine/logfileutils/log_file_utils.h>
#include <cstdio>
#include <cstring>
#include <exception>

namespace {

// Returns true on failure.
bool PrintStatistics(LogFileUtils& catalogue) {
    SyslogStats_s syslog{};
    ArchiveStats_s archive{};
    if (catalogue.GetSyslogStats(syslog) || catalogue.GetArchiveStats(archive, true)) return true;
    std::printf("Current log: %s, %u rotations waiting to be archived\n",
                Futils::FormatFileSize(syslog.size).c_str(), syslog.numRots);
    std::printf("Archive:     %u boots, %u files, %s\n", archive.numReboots, archive.numFiles,
                Futils::FormatFileSize(archive.dirSize).c_str());
    return false;
}

// The library logs why something failed.
int Pack(LogFileUtils& catalogue) {
    if (PrintStatistics(catalogue)) return 1;
    catalogue.DeleteDownload();
    catalogue.DeleteLogTempFiles();
    const int packed = catalogue.PrepDefaultLogFileDownload();
    catalogue.DeleteLogTempFiles();
    if (packed < 0) {
        catalogue.DeleteDownload();
        return 1;
    }
    std::printf("Packed %d logs: %s\n", packed, Moraine::SyslogTarPfe.c_str());
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    const bool deletes = argc == 2 && std::strcmp(argv[1], "--delete") == 0;
    if (argc > 1 && !deletes) {
        std::fputs("Usage: log-download [--delete]\n", stderr);
        return 2;
    }
    try {
        LogFileUtils catalogue;
        if (!deletes) return Pack(catalogue);
        catalogue.DeleteDownload();
        return 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "log-download: %s\nHas the daemon run on this device?\n", e.what());
        return 1;
    }
}
