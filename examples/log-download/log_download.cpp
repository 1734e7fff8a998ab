// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Packs a device's logs for download, as its web interface would: shows what the archive holds,
// packs a tar file with a progress line, says where it is, and cleans up behind itself.
#include <unistd.h>

#include <vandis-moraine/daemon/moraine.h>
#include <vandis-moraine/futils/futils.h>
#include <vandis-moraine/logfileutils/log_file_utils.h>
#include <vandis-moraine/util/parse.h>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>

namespace {

constexpr unsigned long ArchiveLimit = 1UL << 30;
constexpr unsigned short NoLimit = 65535;

constexpr const char* Usage =
    "Usage: log-download [OPTION]...\n"
    "\n"
    "Shows what the log archive holds and packs logs into /tmp/syslog.tar, 15 MiB at most.\n"
    "Without options: the current log and the newest archive files.\n"
    "\n"
    "  --newest     archive files only, the newest first\n"
    "  --oldest     archive files only, the oldest first\n"
    "  --files N    N files at most (with --newest or --oldest)\n"
    "  --boots N    files of N boots at most (with --newest or --oldest)\n"
    "  --stats      show the archive and pack nothing\n"
    "  --delete     delete the download and pack nothing\n"
    "  --help       print this\n";

struct Request {
    enum class Kind { Default, Newest, Oldest, Stats, Delete, Help } kind = Kind::Default;
    unsigned short maxFiles = NoLimit;
    unsigned short maxBoots = NoLimit;
};

bool ReadLimit(unsigned short& limit, const char* text) {
    int number = 0;
    unsigned long consumed = 0;
    if (text == nullptr || Util::StringToInt(text, number, 1, NoLimit, &consumed, 10)) return true;
    limit = static_cast<unsigned short>(number);
    return consumed != std::strlen(text);
}

std::optional<Request> ReadArguments(char** arguments) {
    Request request;
    bool isLimited = false;
    for (; *arguments != nullptr; ++arguments) {
        const std::string argument = *arguments;
        if (argument == "--newest") {
            request.kind = Request::Kind::Newest;
        } else if (argument == "--oldest") {
            request.kind = Request::Kind::Oldest;
        } else if (argument == "--stats") {
            request.kind = Request::Kind::Stats;
        } else if (argument == "--delete") {
            request.kind = Request::Kind::Delete;
        } else if (argument == "--help") {
            request.kind = Request::Kind::Help;
        } else if (argument == "--files" || argument == "--boots") {
            unsigned short& limit = argument == "--files" ? request.maxFiles : request.maxBoots;
            if (ReadLimit(limit, *++arguments)) return std::nullopt;
            isLimited = true;
        } else {
            return std::nullopt;
        }
    }
    const bool takesLimits =
        request.kind == Request::Kind::Newest || request.kind == Request::Kind::Oldest;
    if (isLimited && !takesLimits) return std::nullopt;
    return request;
}

// Returns true on failure.
bool PrintStatistics(LogFileUtils& catalogue) {
    SyslogStats_s syslog{};
    ArchiveStats_s archive{};
    if (catalogue.GetSyslogStats(syslog) || catalogue.GetArchiveStats(archive, true)) return true;
    std::printf("Current log: %s, %u rotations waiting to be archived\n",
                Futils::FormatFileSize(syslog.size).c_str(), syslog.numRots);
    std::printf("Archive:     %u boots, %u files, %s of %s\n", archive.numReboots, archive.numFiles,
                Futils::FormatFileSize(archive.dirSize).c_str(),
                Futils::FormatFileSize(ArchiveLimit).c_str());
    return false;
}

// Shows how the tar file grows as long as the object exists: one line that is rewritten on a
// terminal, a line each time it has grown elsewhere.
class Progress {
public:
    Progress() : thread([this](const std::stop_token& stop) { Run(stop); }) {}

private:
    void Run(const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            Show();
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        Show();
        if (isTerminal) std::printf("\n");
    }

    void Show() {
        std::error_code error;
        const auto size = std::filesystem::file_size(Moraine::SyslogTarPfe, error);
        if (error || size == shownSize) return;
        shownSize = size;
        std::printf("%sPacking: %s%s", isTerminal ? "\r" : "", Futils::FormatFileSize(size).c_str(),
                    isTerminal ? "    " : "\n");
        std::fflush(stdout);
    }

    const bool isTerminal = isatty(STDOUT_FILENO) == 1;
    std::uintmax_t shownSize = 0;
    std::jthread thread;  // last: it uses the others
};

int Pack(LogFileUtils& catalogue, const Request& request) {
    catalogue.DeleteDownload();
    catalogue.DeleteLogTempFiles();
    const Progress progress;
    if (request.kind == Request::Kind::Default) return catalogue.PrepDefaultLogFileDownload();
    return catalogue.FillArchiveDownload(false, request.kind == Request::Kind::Oldest,
                                         request.maxFiles, request.maxBoots);
}

int Download(LogFileUtils& catalogue, const Request& request) {
    const int packed = Pack(catalogue, request);
    catalogue.DeleteLogTempFiles();
    if (packed < 0) {
        catalogue.DeleteDownload();
        std::fprintf(
            stderr,
            "log-download: packing failed; the system log says why.  Make room in %s, check "
            "that tar and xz are there, and try again.\n",
            Moraine::TmpPath.c_str());
        return 1;
    }
    if (!Futils::FileExists(Moraine::SyslogTarPfe)) {
        std::printf("There is no log to pack yet.\n");
        return 0;
    }
    std::printf("Packed %d logs: %s\nDelete it with: log-download --delete\n", packed,
                Moraine::SyslogTarPfe.c_str());
    return 0;
}

int Run(const Request& request) {
    LogFileUtils catalogue;
    if (request.kind == Request::Kind::Delete) {
        catalogue.DeleteDownload();
        return 0;
    }
    if (PrintStatistics(catalogue)) {
        std::fprintf(stderr,
                     "log-download: the log directories cannot be read; the system log says why.  "
                     "Is %s mounted, and has the daemon run?\n",
                     Moraine::SyslogPathAbs.c_str());
        return 1;
    }
    return request.kind == Request::Kind::Stats ? 0 : Download(catalogue, request);
}

}  // namespace

int main(int /*argc*/, char** argv) {
    const std::optional<Request> request = ReadArguments(argv + 1);
    if (!request) {
        std::fputs(Usage, stderr);
        return 2;
    }
    if (request->kind == Request::Kind::Help) {
        std::fputs(Usage, stdout);
        return 0;
    }
    try {
        return Run(*request);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "log-download: %s\nHas the daemon run on this device?\n", e.what());
        return 1;
    }
}
