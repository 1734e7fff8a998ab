// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "tool/options.h"

#include <algorithm>
#include <charconv>

namespace Tool {

namespace {

std::size_t SkipDigits(std::string_view text, std::size_t from) {
    while (from < text.size() && text[from] >= '0' && text[from] <= '9') ++from;
    return from;
}

// Digits, or "all"; and if a range will do, a sign before them, and everything that begins like
// that.
bool LooksLikeValue(std::string_view text, Option::Value kind) {
    if (kind == Option::Value::OptionalNumberOrAll) {
        return text == "all" || (!text.empty() && SkipDigits(text, 0) == text.size());
    }
    const std::size_t first = text.starts_with('-') ? 1 : 0;
    return SkipDigits(text, first) > first;
}

std::string Quote(std::string_view text) {
    return "'" + std::string(text) + "'";
}

// What people write who know journalctl or grep better, and what does the same here. It helps only
// where the verb has the option named `option`; "" is for another verb.
struct Guess {
    std::string_view written;
    std::string_view option;
    const char* instead;
};

constexpr Guess Guesses[]{{"-u", "tag", "-t TAG"},
                          {"--unit", "tag", "-t TAG"},
                          {"-k", "tag", "-t kernel"},
                          {"--dmesg", "tag", "-t kernel"},
                          {"-e", "grep", "-g RE to search, -n N for the newest lines"},
                          {"--regexp", "grep", "-g RE"},
                          {"-P", "grep", "-g with an extended regular expression"},
                          {"--perl-regexp", "grep", "-g with an extended regular expression"},
                          {"-q", "grep", ">/dev/null for the status alone"},
                          {"-a", "lines", "-n all for all lines, each in full"},
                          {"-x", "lines", "-n N for the newest lines"},
                          {"-m", "lines", "-n N for the last N lines"},
                          {"--max-count", "lines", "-n N for the last N lines"},
                          {"--tail", "lines", "-n N"},
                          {"--json", "grep", "-o json"},
                          {"--no-hostname", "grep", "-o json, where the host is a key of its own"},
                          {"--utc", "grep", "-o export, whose times are UTC"},
                          {"--file", "directory", "-D PATH"},
                          {"--root", "directory", "-D PATH"},
                          {"-y", "yes", "--yes"},
                          {"-V", "", "moraine --version"},
                          {"--list-boots", "", "moraine boots"},
                          {"--disk-usage", "", "moraine status"},
                          {"--verify", "", "moraine verify"},
                          {"--vacuum-size", "", "moraine delete"},
                          {"--vacuum-files", "", "moraine delete"},
                          {"--vacuum-time", "", "moraine delete"}};

}  // namespace

OptionReader::OptionReader(std::span<const Option> options, std::span<char* const> arguments)
    : options(options), arguments(arguments) {}

void OptionReader::ThrowUnknown(std::string_view written) const {
    std::string text = "unknown option " + Quote(written);
    for (const Guess& guess : Guesses) {
        const auto isMeant = [&](const Option& option) { return option.name == guess.option; };
        const bool helps =
            guess.option.empty() || std::any_of(options.begin(), options.end(), isMeant);
        if (guess.written == written && helps) text += std::string(": use ") + guess.instead;
    }
    throw UsageError(text);
}

int OptionReader::Next() {
    if (*letters != '\0') return ReadShort();
    if (arguments.empty()) return 0;
    const std::string_view argument = arguments.front();
    const bool isOption = argument.size() > 1 && argument[0] == '-';
    if (!isOption) throw UnexpectedArgument(std::string(argument));
    arguments = arguments.subspan(1);
    if (argument == "--") {
        if (arguments.empty()) return 0;
        throw UnexpectedArgument(arguments.front());
    }
    if (argument.starts_with("--")) return ReadLong(argument);
    letters = argument.data() + 1;
    return ReadShort();
}

int OptionReader::ReadLong(std::string_view argument) {
    const std::size_t equals = argument.find('=');
    const std::string_view written = argument.substr(0, equals);
    current = &FindLong(written.substr(2), written);
    TakeValue(written, equals == std::string_view::npos ? nullptr : &argument[equals] + 1);
    return current->id;
}

int OptionReader::ReadShort() {
    const char written[] = {'-', *letters, '\0'};
    const auto found = std::find_if(options.begin(), options.end(), [&](const Option& option) {
        return option.id == static_cast<unsigned char>(*letters);
    });
    if (found == options.end()) {
        if (*letters == 'h') throw HelpRequest();
        ThrowUnknown(written);
    }
    current = &*found;
    ++letters;
    if (current->value == Option::Value::None) {
        hasValue = false;
        value.clear();
        return current->id;
    }
    const char* attached = *letters == '\0' ? nullptr : letters;
    letters = "";
    TakeValue(written, attached);
    return current->id;
}

void OptionReader::TakeValue(std::string_view written, const char* attached) {
    hasValue = attached != nullptr;
    value = hasValue ? attached : "";
    if (current->value == Option::Value::None && hasValue) {
        throw UsageError("option " + Quote(written) + " takes no value");
    }
    if (current->value == Option::Value::None || hasValue) return;

    const bool isRequired = current->value == Option::Value::Required;
    if (arguments.empty() || (!isRequired && !LooksLikeValue(arguments.front(), current->value))) {
        if (isRequired) throw UsageError("option " + Quote(written) + " needs a value");
        return;
    }
    hasValue = true;
    value = arguments.front();
    arguments = arguments.subspan(1);
}

const Option& OptionReader::FindLong(std::string_view name, std::string_view written) const {
    if (name == "help") throw HelpRequest();
    const Option* found = nullptr;
    for (const Option& option : options) {
        const std::string_view candidate = option.name;
        if (candidate == name) return option;
        if (name.empty() || !candidate.starts_with(name)) continue;
        if (found != nullptr) throw UsageError("option " + Quote(written) + " is ambiguous");
        found = &option;
    }
    if (found == nullptr) ThrowUnknown(written);
    return *found;
}

std::uint64_t OptionReader::Number(std::uint64_t maximum) const {
    std::uint64_t number = 0;
    const char* end = value.data() + value.size();
    const auto [rest, error] = std::from_chars(value.data(), end, number);
    if (error != std::errc() || rest != end || number > maximum) {
        const std::string range =
            maximum == UINT64_MAX ? "" : " from 0 to " + std::to_string(maximum);
        throw UsageError(Name() + ": " + Quote(value) + " is not a number" + range);
    }
    return number;
}

}  // namespace Tool
