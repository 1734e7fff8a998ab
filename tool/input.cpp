#include "tool/input.h"

#include <sched.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <cstdio>

#include "tool/output.h"

namespace Tool {

namespace {

std::optional<std::int64_t> ParseBoot(std::string_view text) {
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

[[noreturn]] void ThrowReversed() {
    throw UsageError("--boot: the first boot of the range is behind the last");
}

}  // namespace

Input OpenInput(const std::optional<std::string>& directory) {
    Input input;
    input.log = std::make_unique<Reader::Log>(PrintMessage);
    input.hasFailed = directory ? input.log->OpenCopy(*directory) : input.log->OpenDevice();
    if (directory && !input.hasFailed && input.log->NumSources() == 0) {
        PrintMessage(*directory, "there is no log in it");
    }
    return input;
}

BootChoice ParseBoots(std::string_view text) {
    BootChoice choice;
    if (text.empty()) return choice;
    const std::size_t dots = text.find("..");
    const auto first = ParseBoot(text.substr(0, dots));
    const auto last = dots == std::string_view::npos ? first : ParseBoot(text.substr(dots + 2));
    if (!first || !last) {
        throw UsageError("--boot: '" + std::string(text) + "' is neither a boot nor a range N..M");
    }
    choice = {*first, *last, dots != std::string_view::npos};
    const bool areAlike = (*first > 0) == (*last > 0);
    if (areAlike && *first > *last) ThrowReversed();
    return choice;
}

std::optional<Reader::BootRange> ResolveBoots(const Reader::Log& log, const BootChoice& choice) {
    const auto resolve = [&](std::int64_t boot) -> std::optional<std::int64_t> {
        if (boot > 0) return boot;
        const std::optional<std::uint32_t> number = log.BootAt(boot);
        return number ? std::optional<std::int64_t>(*number) : std::nullopt;
    };
    const std::optional<std::int64_t> first = resolve(choice.first);
    const std::optional<std::int64_t> last = resolve(choice.last);
    if (!last || (!first && !choice.isRange)) return std::nullopt;
    // A range may begin before the oldest boot.
    const Reader::BootRange range{first.value_or(0), *last};
    if (range.first > range.last) ThrowReversed();
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
