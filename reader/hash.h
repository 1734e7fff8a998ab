// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// FNV-1a: short, the same on every machine, and good enough where nobody gains from a collision.
#pragma once

#include <cstdint>
#include <string_view>

namespace Reader {

constexpr std::uint64_t Hash(std::string_view text, std::uint64_t hash = 14695981039346656037U) {
    for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
    return hash;
}

// Never 0.
constexpr std::uint32_t ShortHash(std::string_view text) {
    const std::uint64_t hash = Hash(text);
    const auto folded = static_cast<std::uint32_t>(hash ^ hash >> 32);
    return folded == 0 ? 1 : folded;
}

}  // namespace Reader
