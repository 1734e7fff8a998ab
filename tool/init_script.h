// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Calls an init script of the device, as a user would.
#pragma once

#include <string>

namespace Tool {

// Runs `script` with the argument `action`, out of reach of the terminal's signals. Returns true on
// failure, with what the script printed, or else how it failed, in `output`.
[[nodiscard]] bool RunInitScript(const std::string& script, const char* action,
                                 std::string& output);

}  // namespace Tool
