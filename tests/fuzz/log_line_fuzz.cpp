// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Lines of the log, and what is made of them for other programs.
#include "reader/format.h"
#include "reader/line.h"
#include "tests/fuzz/fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const Reader::Fields fields = Reader::ParseLine(text);
    REQUIRE(!(fields.message.size() > text.size()));
    REQUIRE(!(fields.hasForm && (fields.severity < 0 || fields.severity > 7)));

    const Reader::Source source{"messages.txt", Reader::Kind::Live, false, 1};
    const Reader::YearGuess years(1795220713);
    REQUIRE(!(fields.hasForm && years.TimeOf(fields) > years.Latest()));
    Reader::Line line;
    line.source = &source;
    line.years = &years;
    line.number = 1;
    line.text = text;
    std::string out;
    Reader::AppendJson(out, line, true);
    // One object a line, whatever the text holds.
    REQUIRE(!(out.find('\n') != out.size() - 1));
    Reader::JournalExport().Append(out, line);
    std::string shown;
    Reader::AppendVisible(shown, text);
    for (const char c : shown) {
        REQUIRE(!((c >= 0 && c < 0x20 && c != '\t') || c == 0x7F));
    }
    return 0;
}
