// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Whether the log is kept as it should be: what runs, what is stored, and how much room there is.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Reader {

struct Status {
    static constexpr std::uint64_t ArchiveLimit = 1UL << 30;  // where the daemon begins to delete

    // What is wrong, and what to do about it: a sentence each, for people. Empty if healthy.
    std::vector<std::string> reasons;

    std::optional<int> daemon;  // process IDs, if they run
    std::optional<int> syslogd;

    std::uint64_t archiveFiles = 0;
    std::uint64_t archiveBytes = 0;
    std::uint64_t boots = 0;  // that have archive files
    std::optional<unsigned> oldestBoot;
    std::optional<unsigned> newestBoot;

    std::uint64_t rotations = 0;  // that wait to be archived
    std::uint64_t rotationBytes = 0;
    std::uint64_t liveLogBytes = 0;
    std::uint64_t freeBytes = 0;

    // Folders and files that could not be looked at, with the reason.
    std::vector<std::string> unreadable;
};

// Looks at the device's own folders and processes.
[[nodiscard]] Status ReadStatus();

// One object, without a line feed.
[[nodiscard]] std::string ToJson(const Status& status);

}  // namespace Reader
