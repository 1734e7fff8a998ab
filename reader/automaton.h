// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// What an expression is compiled into: a nondeterministic automaton. Shared by threads, unchanged.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "reader/syntax.h"

namespace Reader {

class Automaton {
public:
    struct State {
        enum class Type : std::uint8_t { Byte, Set, Split, Assertion, Match };
        Type type = Type::Match;
        Assertion assertion = Assertion::LineStart;
        unsigned char byte = 0;
        std::uint32_t next = 0;
        std::uint32_t other = 0;  // the second way of a split; the set's index
    };

    // Throws SyntaxError if it becomes too large.
    Automaton(const Node& node, bool ignoresCase);

    std::vector<State> states;
    std::vector<ByteSet> sets;
    std::uint32_t start = 0;
    bool asksForWords = false;

    // Bytes that all sets treat alike are one class.
    std::array<std::uint8_t, 256> classes{};
    std::array<unsigned char, 256> members{};  // one byte of each class
    unsigned numClasses = 0;

    Required required;
    bool ignoresCase;

private:
    std::uint32_t Add(const State& state);
    std::uint32_t Compile(const Node& node, std::uint32_t next);
    std::uint32_t CompileRepetition(const Node& node, std::uint32_t next);
    std::uint32_t CompileSet(const ByteSet& set, std::uint32_t next);
    void MakeClasses();
};

}  // namespace Reader
