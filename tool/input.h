// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// What the verbs that read have in common: -D, the boots, the number of threads.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "reader/boots.h"
#include "reader/log.h"
#include "tool/options.h"

namespace Tool {

constexpr int FoundStatus = 0;
constexpr int NothingStatus = 1;
constexpr int FailureStatus = 2;

// The log, and whether something of it could not be read; that has been reported.
struct Input {
    std::unique_ptr<Reader::Log> log;
    bool hasFailed = false;
};

// The device's own log, or without a value the copy at `directory`.
Input OpenInput(const std::optional<std::string>& directory);

// The value of -D. Throws UsageError if it is empty.
std::string ReadDirectory(const OptionReader& options);

// The value of -b. Both throw UsageError; an offset without a boot gives an empty range.
Reader::BootChoice ReadBoots(const OptionReader& options);
Reader::BootRange ResolveBoots(const Reader::Log& log, const Reader::BootChoice& choice);

unsigned NumProcessors();

// 1536 as "1.5 KiB".
std::string FormatSize(std::uint64_t bytes);

}  // namespace Tool
