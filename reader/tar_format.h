// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The header block of a tar file, as the reader and the writer of tar files share it: ustar of
// POSIX, with GNU tar's binary numbers where the octal digits do not suffice.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace Reader {

constexpr std::size_t TarBlockSize = 512;

struct TarHeader {
    char name[100];
    char mode[8];
    char owner[8];
    char group[8];
    char size[12];
    char mtime[12];
    char checksum[8];
    char type;
    char linkName[100];
    char magic[6];
    char version[2];
    char ownerName[32];
    char groupName[32];
    char deviceMajor[8];
    char deviceMinor[8];
    char prefix[155];
    char unused[12];
};
static_assert(sizeof(TarHeader) == TarBlockSize);

// Octal digits, or, with the first bit set, a big-endian number. Returns true, with 0 in `number`,
// for anything else and for what does not fit, negative numbers among them.
[[nodiscard]] bool ReadTarNumber(std::span<const char> field, std::uint64_t& number);
void WriteTarNumber(std::span<char> field, std::uint64_t number);

// The sum of the header's bytes, with blanks for its checksum.
std::uint64_t SumOf(const TarHeader& header);

// From the end of a member's content to the next block.
constexpr std::uint64_t TarPadding(std::uint64_t size) {
    return (TarBlockSize - size % TarBlockSize) % TarBlockSize;
}

}  // namespace Reader
