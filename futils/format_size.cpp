// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// A byte count for people.
#include <array>
#include <cstddef>

#include "futils/futils.h"
#include "util/format.h"

std::string Futils::FormatFileSize(unsigned long bytes) {
    static constexpr std::array<const char*, 6> Suffixes{"bytes", "kiB", "MiB",
                                                         "GiB",   "TiB", "PiB"};
    constexpr double OneKilo = 1.0 / 1024;

    // Single precision on purpose: the log's readers know these texts to 24 significant bits.
    auto value = static_cast<float>(bytes);
    std::size_t unit = 0;
    while (unit + 1 < Suffixes.size() && value * OneKilo > 1.0) {
        value = static_cast<float>(value * OneKilo);
        ++unit;
    }
    return Util::Format("%.3f %s", static_cast<double>(value), Suffixes[unit]);
}
