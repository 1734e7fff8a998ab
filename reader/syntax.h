// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// An extended regular expression as a tree, and what can be said about it without any text.
#pragma once

#include <bitset>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Reader {

using ByteSet = std::bitset<256>;

enum class Assertion : std::uint8_t {
    LineStart,
    LineEnd,
    WordBoundary,
    NoWordBoundary,
    WordStart,
    WordEnd,
};

struct Node {
    enum class Type : std::uint8_t { Set, Assertion, Sequence, Choice, Repetition };
    static constexpr int Unlimited = -1;

    Type type = Type::Sequence;  // without children: the empty text
    Assertion assertion = Assertion::LineStart;
    int minimum = 0, maximum = Unlimited;  // of a repetition
    ByteSet set;
    std::vector<Node> children;
};

class SyntaxError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Throws SyntaxError.
Node ParseExpression(std::string_view pattern, bool ignoresCase);
Node ParseFixed(std::string_view text, bool ignoresCase);

bool IsWordByte(unsigned char c);

// Strings of which each match contains at least one; none if there is no such set that is worth
// looking for. In lower case if case is ignored.
struct Required {
    std::vector<std::string> strings;
    bool isExact = false;  // a line that contains one of them matches
};
Required FindRequired(const Node& node, bool ignoresCase);

}  // namespace Reader
