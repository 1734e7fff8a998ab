// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The escapers: what comes out holds nothing that must not be there, and undoing it gives back what
// went in (for JSON, as far as the deliberate losses allow).
#include <array>
#include <utility>

#include "tests/fuzz/fuzz.h"
#include "util/encode.h"

namespace {

using Replacement = std::pair<std::string_view, char>;

template <std::size_t Size>
std::string Undo(std::string_view text, const std::array<Replacement, Size>& replacements) {
    std::string plain;
    while (!text.empty()) {
        std::size_t length = 1;
        char c = text.front();
        for (const auto& [escaped, original] : replacements) {
            if (!text.starts_with(escaped)) continue;
            length = escaped.size();
            c = original;
        }
        plain += c;
        text.remove_prefix(length);
    }
    return plain;
}

std::string Without(const std::string& text, char unwanted) {
    std::string result;
    for (const char c : text) {
        if (c != unwanted) result += c;
    }
    return result;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = ToString(data, size);

    constexpr std::array<Replacement, 5> Xml{
        {{"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''}}};
    const std::string xml = Util::EscapeForXml(text);
    REQUIRE(xml.find_first_of("<>\"'") == std::string::npos);
    REQUIRE(Undo(xml, Xml) == text);

    const std::string json = Util::DashboardToJson(text);
    REQUIRE(json.find_first_of("\r\n\t") == std::string::npos);
    // Backslashes, tabs and carriage returns do not come back: leave them out of the comparison.
    if (text.find_first_of("\\\t") == std::string::npos) {
        constexpr std::array<Replacement, 2> Json{{{"\\\"", '"'}, {"\\n", '\n'}}};
        REQUIRE(Undo(json, Json) == Without(text, '\r'));
    }
    return 0;
}
