// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Expressions, and texts that they are tried on. The first line is the expression.
#include "reader/expression.h"
#include "tests/fuzz/fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input(reinterpret_cast<const char*>(data), size);
    const std::size_t end = std::min(input.find('\n'), input.size());
    std::string text = input.substr(std::min(end + 1, input.size())) + "\n";
    Reader::Pattern pattern;
    std::string error;
    if (pattern.Compile({{input.substr(0, end)}, false, size % 2 == 0}, error)) return 0;
    Reader::Matcher block(pattern);
    Reader::Matcher single(pattern);
    try {
        block.SetText(text);
        std::size_t found = block.FindLine(0);
        // A block says the same as its lines one by one.
        for (std::size_t start = 0; start < text.size();) {
            const std::size_t lineEnd = text.find('\n', start);
            const bool isMatch =
                single.Matches(std::string_view(text).substr(start, lineEnd - start));
            REQUIRE(!(isMatch != (found == start)));
            start = lineEnd + 1;
            if (isMatch) found = block.FindLine(start);
        }
    } catch (const Reader::TooComplex&) {
        return 0;
    }
    return 0;
}
