// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// A position in the log that stays valid as long as its line is kept: across rotation, archiving
// and renumbering of the boots.
//
// Neither name nor inode of a file lasts that long. Its text does: a cursor holds a hash of the
// file's first line, the number of the line in the file, and a hash of the line. On a device
// without a clock two boots may begin with the same text, so a cursor also says where the file
// stands. Files are archived in their order, so its distance from an archive file stays the same.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Reader {

// So many files behind an archive file, which has distance 0 itself. Without an archive file:
// behind the beginning of the log.
struct Anchor {
    std::uint32_t name = 0;  // hash; 0: no archive file
    std::uint32_t rest = 0;  // hash of the name behind the boot number, which renumbering keeps
    std::uint32_t distance = 0;
};

struct Cursor {
    Anchor anchor;
    std::uint64_t file = 0;  // the first line
    std::uint64_t number = 0;
    std::uint32_t line = 0;
};

// As text: hexadecimal numbers, safe in a URL. What follows the first dash is the line's identity;
// what stands before it depends on where the file was.
std::string ToText(const Cursor& cursor);
std::optional<Cursor> ParseCursor(std::string_view text);

}  // namespace Reader
