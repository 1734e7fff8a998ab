// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "tool/input.h"

#include <sched.h>
#include <unistd.h>

#include <array>
#include <cstdio>

#include "tool/output.h"

namespace Tool {

Input OpenInput(const std::optional<std::string>& directory) {
    Input input;
    input.log = std::make_unique<Reader::Log>(PrintMessage);
    input.hasFailed = directory ? input.log->OpenCopy(*directory) : input.log->OpenDevice();
    if (directory && !input.hasFailed && input.log->NumSources() == 0) {
        PrintMessage(*directory, "there is no log in it");
    }
    return input;
}

std::string ReadDirectory(const OptionReader& options) {
    if (options.Value().empty()) throw UsageError(options.Name() + ": no path is named");
    return options.Value();
}

Reader::BootChoice ReadBoots(const OptionReader& options) {
    Reader::BootChoice choice;
    std::string error;
    if (Reader::ParseBoots(options.Value(), choice, error)) throw UsageError("--boot: " + error);
    return choice;
}

Reader::BootRange ResolveBoots(const Reader::Log& log, const Reader::BootChoice& choice) {
    Reader::BootRange range;
    std::string error;
    if (Reader::ResolveBoots(log, choice, range, error)) throw UsageError("--boot: " + error);
    return range;
}

unsigned NumProcessors() {
    cpu_set_t usable;
    CPU_ZERO(&usable);
    if (sched_getaffinity(0, sizeof usable, &usable) != 0) return 1;
    const int count = CPU_COUNT(&usable);
    return count < 1 ? 1 : static_cast<unsigned>(count);
}

std::string FormatSize(std::uint64_t bytes) {
    constexpr std::array Units{"B", "KiB", "MiB", "GiB", "TiB"};
    auto size = static_cast<double>(bytes);
    std::size_t unit = 0;
    while (size >= 1024 && unit + 1 < Units.size()) {
        size /= 1024;
        ++unit;
    }
    std::array<char, 32> text;
    const int length = std::snprintf(text.data(), text.size(), unit == 0 ? "%.0f %s" : "%.1f %s",
                                     size, Units[unit]);
    return {text.data(), static_cast<std::size_t>(length)};
}

}  // namespace Tool
