// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include <cstdio>

#include "reader/status.h"
#include "tool/input.h"
#include "tool/options.h"
#include "tool/output.h"
#include "tool/verbs.h"
#include "tool/wording.h"

namespace Tool {

namespace {

constexpr int Unhealthy = 1;

void PrintRow(const char* name, const std::string& text) {
    (void)std::printf("%-9s %s\n", name, text.c_str());
}

std::string Running(const std::optional<int>& pid) {
    return pid ? "running, process " + std::to_string(*pid) : "not running";
}

std::string BootRange(const Reader::Status& status) {
    if (!status.oldestBoot || !status.newestBoot) return "none";
    const std::string oldest = std::to_string(*status.oldestBoot);
    if (status.oldestBoot == status.newestBoot) return "1, number " + oldest;
    return std::to_string(status.boots) + ", numbers " + oldest + " to " +
           std::to_string(*status.newestBoot);
}

std::string Percentage(std::uint64_t part, std::uint64_t whole) {
    return std::to_string(part * 100 / whole) + " %";
}

void Print(const Reader::Status& status) {
    PrintRow("Health", status.reasons.empty() ? "good" : "NOT GOOD");
    for (const std::string& reason : status.reasons) (void)std::printf("  - %s\n", reason.c_str());
    PrintRow("Daemon", Running(status.daemon));
    PrintRow("Syslogd", Running(status.syslogd));
    PrintRow("Archive", Counted(status.archiveFiles, "file", "files") + ", " +
                            FormatSize(status.archiveBytes) + ", " +
                            Percentage(status.archiveBytes, Reader::Status::ArchiveLimit) + " of " +
                            FormatSize(Reader::Status::ArchiveLimit));
    PrintRow("Boots", BootRange(status));
    PrintRow("Waiting", Counted(status.rotations, "rotation", "rotations") + ", " +
                            FormatSize(status.rotationBytes));
    PrintRow("Live log", FormatSize(status.liveLogBytes));
    PrintRow("Free", FormatSize(status.freeBytes));
}

}  // namespace

int RunStatus(Arguments arguments) {
    static constexpr Option Options[]{{'J', "json"}};
    OptionReader options(Options, arguments);
    bool isJson = false;
    while (options.Next() != 0) isJson = true;

    const Reader::Status status = Reader::ReadStatus();
    for (const std::string& reason : status.unreadable) {
        (void)std::fprintf(stderr, "moraine: %s\n", reason.c_str());
    }
    if (isJson) {
        (void)std::printf("%s\n", Reader::ToJson(status).c_str());
    } else {
        Print(status);
    }
    FlushStandardOutput();
    if (!status.unreadable.empty()) return FailureStatus;
    return status.reasons.empty() ? 0 : Unhealthy;
}

}  // namespace Tool
