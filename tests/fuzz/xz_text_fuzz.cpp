// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Compressed files: whatever they hold, lines of bounded length come out.
#include "reader/text.h"
#include "tests/fuzz/fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    for (const bool isCompressed : {true, false}) {
        Reader::TextReader reader;
        Reader::Place place;
        place.memory = reinterpret_cast<const char*>(data);
        place.size = size;
        reader.Open(place, isCompressed);
        std::string_view block;
        std::uint64_t bytes = 0;
        constexpr std::uint64_t Enough = 4UL << 20;  // a few bytes may hold gigabytes
        while (bytes < Enough && reader.Next(block)) {
            bytes += block.size();
            REQUIRE(!(block.empty() || block.back() != '\n'));
        }
        REQUIRE(!(!isCompressed && reader.TextBytes() != size && bytes < Enough));
    }
    return 0;
}
