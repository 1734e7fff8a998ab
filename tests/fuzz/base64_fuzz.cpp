// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Base64Decode against a bit by bit decoder, and out of range reads under AddressSanitizer: the
// input is an exact allocation.
#include <memory>
#include <vector>

#include "tests/fuzz/fuzz.h"
#include "util/encode.h"

namespace {

unsigned Value(std::string_view text, std::size_t position) {
    constexpr std::string_view Alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    if (position >= text.size()) return 0;
    switch (text[position]) {
        case '-':
        case '.':
            return 62;
        case '_':
        case ',':
            return 63;
        default:
            break;
    }
    const std::size_t value = Alphabet.find(text[position]);
    return value == std::string_view::npos ? 0 : static_cast<unsigned>(value);
}

std::vector<unsigned char> Plain(std::string_view text) {
    std::vector<bool> bits;
    for (std::size_t i = 0; i < text.size() + 4; ++i) {
        for (int bit = 5; bit >= 0; --bit) bits.push_back(((Value(text, i) >> bit) & 1U) != 0);
    }
    std::size_t length = text.size() / 4 * 3;
    if (text.size() % 4 != 0 || text.ends_with('=')) {
        const std::size_t last = (text.size() - 1) / 4 * 4;
        length = last / 4 * 3 + (text.size() > last + 2 && text[last + 2] != '=' ? 2 : 1);
    }
    std::vector<unsigned char> bytes(length);
    for (std::size_t i = 0; i < length * 8; ++i) {
        bytes[i / 8] = static_cast<unsigned char>(bytes[i / 8] << 1 | (bits[i] ? 1 : 0));
    }
    return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = ToString(data, size);
    const auto exact = std::make_unique<char[]>(size);
    text.copy(exact.get(), size);
    const std::vector<unsigned char> expected =
        text.empty() ? std::vector<unsigned char>() : Plain(text);
    REQUIRE(Util::Base64Decode(exact.get(), size) == expected);
    REQUIRE(Util::Base64Decode(text) == expected);
    return 0;
}
