// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Lines as other programs read them, and text that is harmless on a terminal.
#pragma once

#include <string>
#include <string_view>

#include "reader/log.h"

namespace Reader {

// Appends a text as a JSON string, quotes included: valid UTF-8, with U+FFFD for each invalid byte,
// and harmless on a terminal.
void AppendJsonString(std::string& out, std::string_view text);

// Appends the line as one JSON object and a line feed. With a cursor, it has the key "cursor", too.
void AppendJson(std::string& out, const Line& line, bool withCursor = false);

// Lines in the Journal Export Format. What a line does not have, but the importer wants, it gets
// from the line before: time and host.
class JournalExport {
public:
    void Append(std::string& out, const Line& line);

private:
    std::string host;
    CivilTime time = 0;
};

// "2026-11-21T17:48:08"
void AppendTime(std::string& out, CivilTime time);

// Appends a text for a terminal: control characters but the tab, and bytes that are not UTF-8, are
// made visible, as ^[ and \x9B.
void AppendVisible(std::string& out, std::string_view text);

}  // namespace Reader
