// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Split and both forms of Slice against plain re-implementations.
#include <sstream>
#include <vector>

#include "tests/fuzz/fuzz.h"
#include "util/parse.h"

namespace {

using Fields = std::vector<std::string>;

Fields PlainSlice(const std::string& text, char delimiter) {
    Fields fields;
    std::istringstream stream(text);
    for (std::string field; std::getline(stream, field, delimiter);) fields.push_back(field);
    return fields;
}

Fields PlainSplit(const std::string& text, char delimiter) {
    Fields fields;
    std::string field;
    for (const char c : text + delimiter) {
        if (c != delimiter) {
            field += c;
        } else if (!field.empty()) {
            fields.push_back(field);
            field.clear();
        }
    }
    return fields;
}

Fields PlainSlice(std::string text, const std::string& delimiter) {
    Fields fields;
    if (text.size() < delimiter.size()) return fields;
    while (!text.empty()) {
        std::string field;
        while (!text.empty() && !text.starts_with(delimiter)) {
            field += text.front();
            text.erase(0, 1);
        }
        text.erase(0, delimiter.size());
        fields.push_back(field);
    }
    return fields;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto [delimiter, text] = ToTwoStrings(data, size);
    Fields fields{"left over"};
    if (delimiter.empty()) {
        REQUIRE(Util::Slice(fields, text, delimiter) == !text.empty());
        return 0;
    }
    REQUIRE(!Util::Slice(fields, text, delimiter));
    REQUIRE(fields == PlainSlice(text, delimiter));

    REQUIRE(!Util::Slice(fields, text, delimiter.front()));
    REQUIRE(fields == PlainSlice(text, delimiter.front()));

    REQUIRE(Util::Split(fields, text, delimiter.front()) == static_cast<int>(fields.size()));
    REQUIRE(fields == PlainSplit(text, delimiter.front()));
    return 0;
}
