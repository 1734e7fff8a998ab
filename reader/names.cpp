// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "reader/names.h"

#include <algorithm>

#include "reader/ascii.h"

namespace Reader {

namespace {

constexpr std::string_view Stem = "messages.";
constexpr std::string_view LiveName = "messages.txt";
constexpr std::string_view XzExtension = ".xz";
constexpr std::uint32_t MaxBoot = 65535;

bool IsNumber(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), IsDigit);
}

bool ParseBoot(std::string_view field, std::uint32_t& boot) {
    if (!IsNumber(field)) return false;
    boot = 0;
    for (const char digit : field) {
        boot = boot * 10 + static_cast<std::uint32_t>(digit - '0');
        if (boot > MaxBoot) return false;
    }
    return true;
}

// messages.txt and what may follow it, without ".xz".
bool ParseWaiting(std::string_view name, Name& result) {
    if (!name.starts_with(LiveName)) return false;
    name.remove_prefix(LiveName.size());
    result.form = Name::Form::Log;
    if (name.empty()) {
        result.kind = Kind::Live;
        return true;
    }
    if (name.front() != '.' || name.size() == 1) return false;
    name.remove_prefix(1);
    if (name.find('.') != std::string_view::npos) return false;
    result.kind = name == "tmp" ? Kind::Interrupted : Kind::Rotation;
    result.rest = name;
    return true;
}

// `pattern` has a 0 where a digit stands, and itself elsewhere.
bool HasShape(std::string_view text, std::string_view pattern) {
    return std::equal(text.begin(), text.end(), pattern.begin(), pattern.end(),
                      [](char c, char p) { return p == '0' ? IsDigit(c) : c == p; });
}

}  // namespace

std::string_view BareName(std::string_view path) {
    return path.substr(path.rfind('/') + 1);
}

Name ParseArchiveName(std::string_view name) {
    Name result;
    if (!name.starts_with(Stem) || !name.ends_with(XzExtension)) return result;
    result.form = Name::Form::Misnamed;
    result.kind = Kind::Archive;
    result.isCompressed = true;
    const std::string_view fields = name.substr(Stem.size());
    const std::size_t end = fields.find('.');
    if (end == std::string_view::npos || !ParseBoot(fields.substr(0, end), result.boot)) {
        return result;
    }
    result.form = Name::Form::Log;
    result.rest = fields.substr(end);
    return result;
}

Name ParseName(std::string_view name) {
    Name result;
    const bool isCompressed = name.ends_with(XzExtension);
    const std::string_view bare =
        isCompressed ? name.substr(0, name.size() - XzExtension.size()) : name;
    if (ParseWaiting(bare, result)) {
        result.isCompressed = isCompressed;
        return result;
    }
    return ParseArchiveName(name);
}

bool IsFullArchiveName(std::string_view name) {
    const Name parsed = ParseArchiveName(name);
    return parsed.form == Name::Form::Log && HasShape(parsed.rest, ".0000-00-00.00:00:00.txt.xz");
}

bool IsOlderRotation(std::string_view a, std::string_view b) {
    const bool aIsNumber = IsNumber(a);
    if (aIsNumber != IsNumber(b)) return !aIsNumber;
    if (!aIsNumber) return a > b;
    const auto significant = [](std::string_view number) {
        return number.substr(std::min(number.find_first_not_of('0'), number.size()));
    };
    const std::string_view aDigits = significant(a);
    const std::string_view bDigits = significant(b);
    if (aDigits.size() != bDigits.size()) return aDigits.size() > bDigits.size();
    return aDigits != bDigits ? aDigits > bDigits : a > b;
}

}  // namespace Reader
