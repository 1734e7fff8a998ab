// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Points in time as people type them: "2026-11-21 17:48:08", "2026-11-21", "17:48", "today",
// "yesterday", "now", "-2h", "-1h30min", "2 days ago".
#pragma once

#include <optional>
#include <string_view>

#include "reader/line.h"

namespace Reader {

// `now` is the local time. None if the text makes no sense.
std::optional<CivilTime> ParseTime(std::string_view text, CivilTime now);

}  // namespace Reader
