// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Looks for a few strings at once, by their rarest bytes: the C library finds a byte many times
// faster than any automaton can walk.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Reader {

class Finder {
public:
    // In lower case if case is ignored; at least one, none of them empty.
    Finder(const std::vector<std::string>& strings, bool ignoresCase);

    void SetText(std::string_view text);

    // The first occurrence of any at or behind `from`, or npos. `from` does not go back.
    std::size_t Find(std::size_t from);

private:
    struct Byte {
        char value = 0;
        std::size_t at = 0;  // the next occurrence
    };
    struct Needle {
        std::string string;
        std::size_t anchor = 0;   // the rarest byte of it
        std::vector<Byte> bytes;  // that byte, in both cases
        std::size_t at = 0;       // the next occurrence of the string
    };
    void Advance(Needle& needle, std::size_t from) const;
    bool IsAt(const Needle& needle, std::size_t offset) const;

    std::vector<Needle> needles;
    std::string_view text;
    bool ignoresCase;
};

}  // namespace Reader
