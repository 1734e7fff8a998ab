// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Extended regular expressions on bytes, in the C locale, and plain strings: which lines match, in
// a time that is linear in the text whatever the expression is.
//
// An expression is compiled into an automaton whose deterministic states are made as the text asks
// for them. There is no backtracking and no back-reference. Beside POSIX, the escapes of grep are
// understood: \w \W \s \S \b \B \< \>.
#pragma once

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Reader {

class Automaton;

struct Expression {
    std::vector<std::string> patterns;  // a line matches if any of them does
    bool isFixed = false;               // plain strings
    bool ignoresCase = false;           // ASCII letters
};

// What an expression was compiled into; may be shared by threads.
class Pattern {
public:
    Pattern() = default;
    // Returns true on failure, with the reason in `error`.
    [[nodiscard]] bool Compile(const Expression& expression, std::string& error);
    bool IsSet() const { return automaton != nullptr; }
    const std::shared_ptr<const Automaton>& Compiled() const { return automaton; }

private:
    std::shared_ptr<const Automaton> automaton;
};

// Thrown while matching: the expression takes too much time on this text. Only an expression that
// was made for it does.
class TooComplex : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Matches with memory of its own, which is bounded; for one thread.
class Matcher {
public:
    explicit Matcher(const Pattern& pattern);
    Matcher(Matcher&&) noexcept;
    Matcher& operator=(Matcher&&) noexcept;
    ~Matcher();

    bool Matches(std::string_view line);

    // Takes a block of lines, each with its line feed, to be searched from its beginning on.
    void SetText(std::string_view text);

    // The first line that matches at or behind offset `from`, which is the start of a line: the
    // offset of its start, or npos.
    std::size_t FindLine(std::size_t from);

    // The leftmost longest match in a line at or behind `from`: offset and length. Returns false if
    // there is none. For highlighting: only the beginning of a long line is searched.
    bool Find(std::string_view line, std::size_t from, std::size_t& offset, std::size_t& length);

private:
    class Search;
    std::unique_ptr<Search> search;
};

}  // namespace Reader
