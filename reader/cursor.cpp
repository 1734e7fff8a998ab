// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "reader/cursor.h"

#include <array>
#include <charconv>
#include <cstdio>

namespace Reader {

namespace {

template <typename Number>
bool CutNumber(std::string_view& text, Number& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, 16);
    if (error != std::errc()) return false;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return true;
}

bool Cut(std::string_view& text, char separator) {
    if (!text.starts_with(separator)) return false;
    text.remove_prefix(1);
    return true;
}

}  // namespace

std::string ToText(const Cursor& cursor) {
    std::array<char, 80> text;
    const Anchor& anchor = cursor.anchor;
    const int length =
        std::snprintf(text.data(), text.size(), "%x.%x.%x-%llx-%llx-%x", anchor.name, anchor.rest,
                      anchor.distance, static_cast<unsigned long long>(cursor.file),
                      static_cast<unsigned long long>(cursor.number), cursor.line);
    return {text.data(), static_cast<std::size_t>(length)};
}

std::optional<Cursor> ParseCursor(std::string_view text) {
    Cursor cursor;
    if (CutNumber(text, cursor.anchor.name) && Cut(text, '.') &&
        CutNumber(text, cursor.anchor.rest) && Cut(text, '.') &&
        CutNumber(text, cursor.anchor.distance) && Cut(text, '-') && CutNumber(text, cursor.file) &&
        Cut(text, '-') && CutNumber(text, cursor.number) && Cut(text, '-') &&
        CutNumber(text, cursor.line) && text.empty() && cursor.number != 0) {
        return cursor;
    }
    return std::nullopt;
}

}  // namespace Reader
