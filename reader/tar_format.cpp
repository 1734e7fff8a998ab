// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "reader/tar_format.h"

#include <string_view>

namespace Reader {

namespace {

constexpr unsigned char BinaryMark = 0x80;

bool ReadBinary(std::span<const char> digits, std::uint64_t& number) {
    constexpr int TopByte = 56;
    for (const char digit : digits) {
        if (number >> TopByte != 0) return true;
        number = number << 8 | static_cast<unsigned char>(digit);
    }
    return false;
}

bool ReadOctal(std::string_view text, std::uint64_t& number) {
    text = text.substr(0, text.find('\0'));
    while (text.starts_with(' ')) text.remove_prefix(1);
    for (const char c : text) {
        if (c == ' ') break;
        if (c < '0' || c > '7') return true;
        number = number * 8 + static_cast<std::uint64_t>(c - '0');  // Twelve digits fit.
    }
    return false;
}

}  // namespace

bool ReadTarNumber(std::span<const char> field, std::uint64_t& number) {
    number = 0;
    const auto first = static_cast<unsigned char>(field.front());
    const bool hasFailed = (first & BinaryMark) == 0
                               ? ReadOctal({field.data(), field.size()}, number)
                               : first != BinaryMark || ReadBinary(field.subspan(1), number);
    if (hasFailed) number = 0;
    return hasFailed;
}

void WriteTarNumber(std::span<char> field, std::uint64_t number) {
    const std::size_t digits = field.size() - 1;  // A zero byte ends them.
    const bool isOctal = number >> (3 * digits) == 0;
    const unsigned bits = isOctal ? 3 : 8;
    field.back() = '\0';
    for (std::size_t i = isOctal ? digits : field.size(); i-- != 0; number >>= bits) {
        field[i] = static_cast<char>(isOctal ? '0' + (number & 7) : number & 0xFF);
    }
    if (!isOctal) field.front() = static_cast<char>(BinaryMark);
}

std::uint64_t SumOf(const TarHeader& header) {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(&header);
    std::uint64_t sum = sizeof header.checksum * std::uint64_t{' '};
    for (std::size_t i = 0; i < sizeof header; ++i) sum += bytes[i];
    for (const char c : header.checksum) sum -= static_cast<unsigned char>(c);
    return sum;
}

}  // namespace Reader
