// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "reader/tar_writer.h"

#include <algorithm>
#include <array>

#include "reader/tar_format.h"

namespace Reader {

namespace {

template <std::size_t Size>
void SetText(char (&field)[Size], std::string_view text) {
    std::copy_n(text.data(), std::min(text.size(), Size), field);
}

bool IsLong(std::string_view name) {
    return name.size() > sizeof TarHeader::name;
}

std::uint64_t WholeBlocks(std::uint64_t size) {
    return size + TarPadding(size);
}

}  // namespace

std::uint64_t TarWriter::SizeInStream(std::string_view name, std::uint64_t size) {
    std::uint64_t total = TarBlockSize + WholeBlocks(size);
    if (IsLong(name)) total += TarBlockSize + WholeBlocks(name.size());
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
    TarHeader header{};
    SetText(header.name, entry.name);
    WriteTarNumber(header.mode, entry.mode & 07777U);
    WriteTarNumber(header.owner, 0);
    WriteTarNumber(header.group, 0);
    WriteTarNumber(header.size, entry.size);
    WriteTarNumber(header.mtime,
                   static_cast<std::uint64_t>(std::max<std::int64_t>(entry.mtime, 0)));
    header.type = type;
    SetText(header.magic, "ustar");
    SetText(header.version, "00");
    SetText(header.ownerName, "root");
    SetText(header.groupName, "root");
    WriteTarNumber(header.deviceMajor, 0);
    WriteTarNumber(header.deviceMinor, 0);
    // Six digits, a zero byte and a blank, as all tar programs write it.
    WriteTarNumber(std::span(header.checksum).first(7), SumOf(header));
    header.checksum[7] = ' ';
    return sink({reinterpret_cast<const char*>(&header), sizeof header});
}

bool TarWriter::WritePadding(std::uint64_t size) {
    static constexpr std::array<char, TarBlockSize> Zeros{};
    return sink({Zeros.data(), static_cast<std::size_t>(TarPadding(size))});
}

}  // namespace Reader
