// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// A position in the log that stays valid as long as its line is kept: across rotation, archiving
// and renumbering of the boots.
//
// Neither name nor inode of a file lasts that long. Its text does: a cursor holds a hash of the
// file's first line, the number of the line in the file, and a hash of the line. What else it holds
// only shortens the search: a hash of the archive file's name behind the boot number, which
// renumbering keeps.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Reader {

struct Cursor {
    std::uint32_t name = 0;  // of an archive file; 0: not archived yet
    std::uint64_t file = 0;  // the first line
    std::uint64_t number = 0;
    std::uint32_t line = 0;
};

// As text: hexadecimal numbers with dashes between, safe in a URL.
std::string ToText(const Cursor& cursor);
std::optional<Cursor> ParseCursor(std::string_view text);

}  // namespace Reader
