// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// What the fuzz targets share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

// Stops the fuzzer with a finding. A macro, so that the finding names the place.
#define REQUIRE(condition)                                                       \
    do {                                                                         \
        if (!(condition)) {                                                      \
            std::fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                        \
        }                                                                        \
    } while (false)

inline std::string ToString(const std::uint8_t* data, std::size_t size) {
    return {data, data + size};
}

// Cuts the input at its first zero byte: what comes before it, and what comes behind.
inline std::pair<std::string, std::string> ToTwoStrings(const std::uint8_t* data,
                                                        std::size_t size) {
    const std::string input = ToString(data, size);
    const std::size_t end = input.find('\0');
    if (end == std::string::npos) return {input, ""};
    return {input.substr(0, end), input.substr(end + 1)};
}
