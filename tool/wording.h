// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Small texts for people.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "reader/format.h"

namespace Tool {

// "no files", "1 file", "3 files"
inline std::string Counted(std::uint64_t count, const char* one, const char* many) {
    return (count == 0 ? "no" : std::to_string(count)) + ' ' + (count == 1 ? one : many);
}

// A file name as it is or, where `descriptor` is a terminal, without the power to act on it.
inline std::string Shown(std::string_view name, int descriptor = STDOUT_FILENO) {
    if (isatty(descriptor) == 0) return std::string(name);
    std::string text;
    Reader::AppendVisible(text, name);
    return text;
}

}  // namespace Tool
