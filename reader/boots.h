// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Boots as people name them, and the table of boots.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "reader/log.h"

namespace Reader {

// A boot or a range of boots, as it was written: numbers above 0 are those of the archive, 0 is the
// current boot, and below are the boots before it.
struct BootChoice {
    std::int64_t first = 0;
    std::int64_t last = 0;
    bool isRange = false;
};

// "12", "0", "-1", "3..5", "-3..-1"; "" is the current boot. Returns true on failure, with the
// reason in `error`: also for a range that is reversed.
[[nodiscard]] bool ParseBoots(std::string_view text, BootChoice& choice, std::string& error);

// The boots in the numbers of the log; the range is empty if there is no such boot. Returns true on
// failure, as above: only now may a range turn out to be reversed.
[[nodiscard]] bool ResolveBoots(const Log& log, const BootChoice& choice, BootRange& range,
                                std::string& error);

// A row of the table.
struct BootRow {
    BootFiles files;
    std::uint64_t bytes = 0;  // on disk
    Log::Times times;
};

// Fills a row. Returns true if something could not be read.
[[nodiscard]] bool ReadBootRow(Log& log, const BootFiles& files, BootRow& row);

// Appends a row as a JSON object, without a line feed.
void AppendJson(std::string& out, const BootRow& row);

}  // namespace Reader
