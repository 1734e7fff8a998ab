// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Lines in one of the formats of `moraine log`.
#pragma once

#include <optional>

#include "reader/expression.h"
#include "reader/format.h"
#include "reader/log.h"
#include "tool/output.h"

namespace Tool {

enum class Format { Text, Json, Export };

class LineWriter {
public:
    struct Style {
        Format format = Format::Text;
        bool hasCursor = false;  // in each JSON object
        bool isColored = false;
        bool isVisible = false;  // control characters are shown, not sent
    };

    // Matches of `pattern`, if it is set, are highlighted.
    LineWriter(const Style& style, const Reader::Pattern& pattern);

    void Append(std::string& out, const Reader::Line& line);

private:
    void AppendText(std::string& out, const Reader::Line& line);
    void AppendColored(std::string& out, const Reader::Line& line);
    void AppendPlain(std::string& out, std::string_view text) const;

    Style style;
    std::optional<Reader::Matcher> matcher;
    Reader::JournalExport journal;
};

}  // namespace Tool
