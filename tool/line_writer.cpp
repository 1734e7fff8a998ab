// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "tool/line_writer.h"

namespace Tool {

namespace {

constexpr std::string_view Reset = "\033[0m";
constexpr std::string_view MatchStart = "\033[7m";
constexpr std::string_view MatchEnd = "\033[27m";
constexpr std::string_view SeparatorColor = "\033[36m";

std::string_view SeverityColor(int severity) {
    constexpr int Error = 3;
    constexpr int Warning = 4;
    constexpr int Notice = 5;
    constexpr int Debug = 7;
    if (severity <= Error) return "\033[1;31m";
    if (severity == Warning) return "\033[33m";
    if (severity == Notice) return "\033[1m";
    return severity == Debug ? "\033[2m" : "";
}

}  // namespace

LineWriter::LineWriter(const Style& style, const Reader::Pattern& pattern) : style(style) {
    if (style.isColored && pattern.IsSet()) matcher.emplace(pattern);
}

void LineWriter::Append(std::string& out, const Reader::Line& line) {
    switch (style.format) {
        case Format::Json:
            Reader::AppendJson(out, line, style.hasCursor);
            break;
        case Format::Export:
            journal.Append(out, line);
            break;
        default:
            AppendText(out, line);
            break;
    }
}

void LineWriter::AppendText(std::string& out, const Reader::Line& line) {
    if (line.startsBlock) {
        if (style.isColored) out += SeparatorColor;
        out += "--";
        if (style.isColored) out += Reset;
        out += '\n';
    }
    if (style.isColored) {
        AppendColored(out, line);
    } else {
        AppendPlain(out, line.text);
    }
    out += '\n';
}

void LineWriter::AppendColored(std::string& out, const Reader::Line& line) {
    const Reader::Fields fields = line.GetFields();
    const std::string_view color = fields.hasForm ? SeverityColor(fields.severity) : "";
    out += color;
    std::string_view rest = line.text;
    std::size_t at = 0;
    std::size_t offset = 0;
    std::size_t length = 0;
    while (matcher && line.isMatch && matcher->Find(rest, at, offset, length)) {
        AppendPlain(out, rest.substr(at, offset - at));
        out += MatchStart;
        AppendPlain(out, rest.substr(offset, length));
        out += MatchEnd;
        at = offset + length;
    }
    AppendPlain(out, rest.substr(at));
    if (!color.empty()) out += Reset;
}

void LineWriter::AppendPlain(std::string& out, std::string_view text) const {
    if (style.isVisible) {
        Reader::AppendVisible(out, text);
    } else {
        out += text;
    }
}

}  // namespace Tool
