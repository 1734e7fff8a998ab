// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "reader/tar_writer.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

namespace Reader {

namespace {

// The header block, field by field.
struct Header {
    std::array<char, 100> name;
    std::array<char, 8> mode;
    std::array<char, 8> owner;
    std::array<char, 8> group;
    std::array<char, 12> size;
    std::array<char, 12> mtime;
    std::array<char, 8> checksum;
    char type;
    std::array<char, 100> linkName;
    std::array<char, 6> magic;
    std::array<char, 2> version;
    std::array<char, 32> ownerName;
    std::array<char, 32> groupName;
    std::array<char, 8> deviceMajor;
    std::array<char, 8> deviceMinor;
    std::array<char, 155> prefix;
    std::array<char, 12> unused;
};
static_assert(sizeof(Header) == TarWriter::BlockSize);

// Octal digits and a zero byte; a number that needs more digits is written in binary.
template <std::size_t Width>
void SetNumber(std::array<char, Width>& field, std::uint64_t value) {
    constexpr std::size_t Digits = Width - 1;
    if (value >> (3 * Digits) == 0) {
        for (std::size_t i = 0; i < Digits; ++i) {
            field[Digits - 1 - i] = static_cast<char>('0' + (value >> (3 * i) & 7));
        }
        return;
    }
    for (std::size_t i = 0; i < Width; ++i) {
        field[Width - 1 - i] = static_cast<char>(i < 8 ? value >> (8 * i) & 0xff : 0);
    }
    field[0] = static_cast<char>(0x80);
}

template <std::size_t Width>
void SetText(std::array<char, Width>& field, std::string_view text) {
    std::copy_n(text.data(), std::min(text.size(), Width), field.data());
}

void SetChecksum(Header& header) {
    header.checksum.fill(' ');
    std::array<unsigned char, sizeof header> bytes{};
    std::memcpy(bytes.data(), &header, sizeof header);
    unsigned sum = 0;
    for (const unsigned char byte : bytes) sum += byte;
    (void)std::snprintf(header.checksum.data(), header.checksum.size(), "%06o", sum);
}

bool IsLong(std::string_view name) {
    return name.size() > sizeof Header::name;
}

std::uint64_t WholeBlocks(std::uint64_t size) {
    return (size + TarWriter::BlockSize - 1) / TarWriter::BlockSize * TarWriter::BlockSize;
}

}  // namespace

std::uint64_t TarWriter::SizeInStream(std::string_view name, std::uint64_t size) {
    std::uint64_t total = BlockSize + WholeBlocks(size);
    if (IsLong(name)) total += BlockSize + WholeBlocks(name.size());
    return total;
}

bool TarWriter::Begin(const TarEntry& entry) {
    currentSize = entry.size;
    if (IsLong(entry.name)) {
        const TarEntry longName{.name = "././@LongLink", .size = entry.name.size()};
        if (WriteHeader(longName, 'L') || sink(entry.name) || WritePadding(longName.size)) {
            return true;
        }
    }
    return WriteHeader(entry, '0');
}

bool TarWriter::Write(std::string_view bytes) {
    return sink(bytes);
}

bool TarWriter::End() {
    return WritePadding(currentSize);
}

bool TarWriter::Finish() {
    static constexpr std::array<char, TrailerSize> Trailer{};
    return sink({Trailer.data(), Trailer.size()});
}

bool TarWriter::WriteHeader(const TarEntry& entry, char type) {
    Header header{};
    SetText(header.name, entry.name);
    SetNumber(header.mode, entry.mode & 07777U);
    SetNumber(header.owner, 0);
    SetNumber(header.group, 0);
    SetNumber(header.size, entry.size);
    SetNumber(header.mtime, static_cast<std::uint64_t>(std::max<std::int64_t>(entry.mtime, 0)));
    header.type = type;
    SetText(header.magic, "ustar");
    SetText(header.version, "00");
    SetText(header.ownerName, "root");
    SetText(header.groupName, "root");
    SetNumber(header.deviceMajor, 0);
    SetNumber(header.deviceMinor, 0);
    SetChecksum(header);
    std::array<char, sizeof header> block{};
    std::memcpy(block.data(), &header, sizeof header);
    return sink({block.data(), block.size()});
}

bool TarWriter::WritePadding(std::uint64_t size) {
    static constexpr std::array<char, BlockSize> Zeros{};
    return sink({Zeros.data(), static_cast<std::size_t>(WholeBlocks(size) - size)});
}

}  // namespace Reader
