// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "reader/boots.h"

#include <charconv>
#include <optional>

#include "reader/format.h"

namespace Reader {

namespace {

constexpr const char* Reversed = "the first boot of the range is behind the last";

std::optional<std::int64_t> ParseBoot(std::string_view text) {
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

void AppendJsonTime(std::string& out, const std::optional<CivilTime>& time) {
    if (!time) {
        out += "null";
        return;
    }
    out += '"';
    AppendTime(out, *time);
    out += '"';
}

}  // namespace

bool ParseBoots(std::string_view text, BootChoice& choice, std::string& error) {
    choice = {};
    if (text.empty()) return false;
    const std::size_t dots = text.find("..");
    const auto first = ParseBoot(text.substr(0, dots));
    const auto last = dots == std::string_view::npos ? first : ParseBoot(text.substr(dots + 2));
    if (!first || !last) {
        error = "'" + std::string(text) + "' is neither a boot nor a range N..M";
        return true;
    }
    choice = {*first, *last, dots != std::string_view::npos};
    const bool areAlike = (*first > 0) == (*last > 0);
    if (areAlike && *first > *last) error = Reversed;
    return areAlike && *first > *last;
}

bool ResolveBoots(const Log& log, const BootChoice& choice, BootRange& range, std::string& error) {
    const auto resolve = [&](std::int64_t boot) -> std::optional<std::int64_t> {
        if (boot > 0) return boot;
        const std::optional<std::uint32_t> number = log.BootAt(boot);
        return number ? std::optional<std::int64_t>(*number) : std::nullopt;
    };
    const std::optional<std::int64_t> first = resolve(choice.first);
    const std::optional<std::int64_t> last = resolve(choice.last);
    range = {1, 0};
    if (!last || (!first && !choice.isRange)) return false;
    // A range may begin before the oldest boot.
    range = {first.value_or(0), *last};
    if (range.first > range.last) error = Reversed;
    return range.first > range.last;
}

bool ReadBootRow(Log& log, const BootFiles& files, BootRow& row) {
    row = {};
    row.files = files;
    for (const std::size_t index : files.sources) row.bytes += log.GetSize(index);
    return log.GetTimes(files, row.times);
}

void AppendJson(std::string& out, const BootRow& row) {
    out += "{\"offset\":" + std::to_string(row.files.offset);
    out += ",\"boot\":" + std::to_string(row.files.boot);
    out += ",\"files\":" + std::to_string(row.files.sources.size());
    out += ",\"bytes\":" + std::to_string(row.bytes);
    out += ",\"first\":";
    AppendJsonTime(out, row.times.first);
    out += ",\"last\":";
    AppendJsonTime(out, row.times.last);
    out += row.files.isCurrent ? ",\"current\":true}" : ",\"current\":false}";
}

}  // namespace Reader
