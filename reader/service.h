// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Whether a service of the device runs.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace Reader {

// True if the process runs, and is this program or a BusyBox that was called as it.
[[nodiscard]] bool IsProgram(int pid, std::string_view program);

// The name of a running process, or nothing if there is none.
[[nodiscard]] std::optional<std::string> ProcessName(int pid);

// The lowest process ID of a program. Under some inits there is no PID file to ask.
[[nodiscard]] std::optional<int> FindProgram(std::string_view program);

// The number in a PID file, or nothing if the file is missing or holds none.
[[nodiscard]] std::optional<int> ReadPidFile(const char* path);

}  // namespace Reader
