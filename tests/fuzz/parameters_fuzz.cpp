// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// A request's parameters: whatever stands behind the "?" is decoded or refused with a status, and
// what is decoded is what was meant.
#include "logpage/parameters.h"

#include "logpage/answer.h"
#include "tests/fuzz/fuzz.h"

namespace {

// The way back: every byte as an escape.
std::string Encode(const std::string& text) {
    constexpr const char* Digits = "0123456789abcdef";
    std::string encoded;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        encoded += {'%', Digits[byte >> 4], Digits[byte & 15]};
    }
    return encoded;
}

void TakeAll(const std::string& query) {
    Page::Parameters parameters(query);
    for (const std::string& text : parameters.Texts("grep")) {
        REQUIRE(text.find('\0') == std::string::npos);
        Page::Parameters again("grep=" + Encode(text));
        REQUIRE(again.Text("grep") == text);
    }
    const std::optional<std::uint64_t> lines = parameters.Number("lines", 10000);
    REQUIRE(!lines || *lines <= 10000);
    (void)parameters.Flag("reverse");
    (void)parameters.Text("boot");
    parameters.RefuseOthers();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        TakeAll(ToString(data, size));
    } catch (const Page::Error& error) {
        REQUIRE(error.status == 400 && !error.text.empty());
    }
    return 0;
}
