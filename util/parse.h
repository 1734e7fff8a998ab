// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Cutting, trimming and testing strings, byte by byte: no locale, no case folding. Nothing here
// logs. The cutting functions empty `fields` first; they differ in which empty fields they keep.
#pragma once

#include <string>
#include <vector>

namespace Util {

// Cuts `text` at each `delimiter` and drops every empty field: ",a,,b," gives "a" and "b".
// Returns the number of fields.
int Split(std::vector<std::string>& fields, const std::string& text, char delimiter);

// Cuts `text` at each `delimiter` and keeps empty fields, except one after a trailing delimiter:
// ",a,,b," gives "", "a", "" and "b"; an empty text gives none. Returns true on failure (memory
// exhausted), with the fields that were cut until then.
[[nodiscard]] bool Slice(std::vector<std::string>& fields, const std::string& text, char delimiter);

// The same for a delimiter of several characters. A text shorter than the delimiter gives no field
// at all; a longer one without the delimiter gives itself. An empty delimiter is a failure, unless
// the text is empty too.
[[nodiscard]] bool Slice(std::vector<std::string>& fields, const std::string& text,
                         const std::string& delimiter);

// Reads an integer from the front of `text`: blanks (only ' ') are removed from both ends, then the
// rules of strtol in `base` apply, so what follows the digits is ignored. `value` is 0 on failure:
// no digits, or a number outside `minimum` to `maximum`, both included. `consumed`, unless null,
// gets the number of characters read behind the leading blanks, as soon as digits were found, also
// for a number out of bounds. Returns true on failure.
[[nodiscard]] bool StringToInt(std::string text, int& value, int minimum, int maximum,
                               unsigned long* consumed, int base);

// Remove every leading, every trailing, or both kinds of `c`.
void Trim(std::string& text, char c);
void TrimFromStart(std::string& text, char c);
void TrimFromEnd(std::string& text, char c);

bool BeginsWith(const std::string& text, char c);
bool EndsWith(const std::string& text, char c);
bool BeginsWith(const std::string& text, const std::string& prefix);
bool EndsWith(const std::string& text, const std::string& suffix);

}  // namespace Util
