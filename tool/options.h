// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The command line, as getopt_long and journalctl have taught people to write it: --name VALUE,
// --name=VALUE, -n5, -n 5, letters together (-ri), a long name as far as it is unambiguous, and
// "--" before what is no option. Where a value is optional, a following number is the value:
// -n 5, -b -1, -b 3..5.
#pragma once

#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Tool {

// The command line makes no sense. The text says why, for a person.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A word that is neither an option nor the value of one.
struct UnexpectedArgument : UsageError {
    explicit UnexpectedArgument(const std::string& word)
        : UsageError("unexpected argument '" + word + "'"), word(word) {}
    std::string word;
};

// --help or -h is among the options.
struct HelpRequest {};

struct Option {
    enum class Value { None, Required, OptionalNumberOrAll, OptionalRange };
    int id;  // the letter, or a number above 255 of an option that has none
    const char* name;
    Value value = Value::None;
};

// Walks over a verb's arguments. Throws UsageError for what `options` does not know, for a value
// that is missing or too much, and for an argument that is no option; HelpRequest for --help.
class OptionReader {
public:
    OptionReader(std::span<const Option> options, std::span<char* const> arguments);

    // The next option's id; 0 at the end.
    int Next();

    // The value of that option. Without one, an optional value is empty and HasValue is false.
    const std::string& Value() const { return value; }
    bool HasValue() const { return hasValue; }

    // The value as a number up to `maximum`; throws UsageError for anything else.
    std::uint64_t Number(std::uint64_t maximum = UINT64_MAX) const;

    // "--lines", for messages.
    std::string Name() const { return std::string("--") + current->name; }

private:
    int ReadLong(std::string_view argument);
    int ReadShort();
    void TakeValue(std::string_view written, const char* attached);
    [[noreturn]] void ThrowUnknown(std::string_view written) const;
    const Option& FindLong(std::string_view name, std::string_view written) const;

    std::span<const Option> options;
    std::span<char* const> arguments;
    const char* letters = "";  // the rest of a word of letters
    const Option* current = nullptr;
    std::string value;
    bool hasValue = false;
};

}  // namespace Tool
