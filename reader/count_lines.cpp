// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Compiled for speed whatever the rest is compiled for: this is what counting costs beside
// decompression.
#include <algorithm>

#include "reader/scan.h"

namespace Reader {

std::uint64_t CountLines(std::string_view text) {
    constexpr std::size_t Piece = 255;  // as many as a byte counts
    std::uint64_t total = 0;
    const char* at = text.data();
    std::size_t left = text.size();
    while (left != 0) {
        // Sixteen counters of a byte each are one register.
        constexpr std::size_t Lanes = 16;
        unsigned char counts[Lanes] = {};
        const std::size_t rounds = std::min(left / Lanes, Piece);
        for (std::size_t i = 0; i < rounds; ++i) {
            for (std::size_t lane = 0; lane < Lanes; ++lane) {
                counts[lane] = static_cast<unsigned char>(counts[lane] + (at[lane] == '\n'));
            }
            at += Lanes;
        }
        left -= rounds * Lanes;
        for (const unsigned char count : counts) total += count;
        if (rounds != 0) continue;
        total += static_cast<std::uint64_t>(std::count(at, at + left, '\n'));
        break;
    }
    return total;
}

}  // namespace Reader
