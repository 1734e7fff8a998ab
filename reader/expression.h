// Extended regular expressions on bytes, in the C locale, and plain strings: which lines match, in
// a time that is linear in the text whatever the expression is.
//
// An expression is compiled into an automaton whose deterministic states are made as the text asks
// for them. There is no backtracking and no back-reference. Beside POSIX, the escapes of grep are
// understood: \w \W \s \S \b \B \< \>.
#pragma once

#include <cstddef>
#include <memory>
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

// Matches with memory of its own; for one thread. Memory is bounded.
class Matcher {
public:
    explicit Matcher(const Pattern& pattern);
    Matcher(Matcher&&) noexcept;
    Matcher& operator=(Matcher&&) noexcept;
    ~Matcher();

    bool Matches(std::string_view line);

    // The first line of `text`, from offset `from` on, that matches: its offset, or npos. Lines end
    // with a line feed; `from` is the start of one.
    std::size_t FindLine(std::string_view text, std::size_t from);

    // The leftmost longest match in a line at or behind `from`: offset and length. Returns false if
    // there is none. For highlighting: a long line is searched up to a limit.
    bool Find(std::string_view line, std::size_t from, std::size_t& offset, std::size_t& length);

private:
    struct State;
    std::unique_ptr<State> state;
};

}  // namespace Reader
