// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// SHA-256 (FIPS 180-4), for the manifest of a download. liblzma has one inside but does not export
// it.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace Reader {

class Sha256 {
public:
    using Digest = std::array<std::uint32_t, 8>;

    void Update(std::string_view bytes);

    // The digest of all bytes so far. Ends the calculation.
    [[nodiscard]] Digest Finish();

private:
    void AddBlock(const char* block);

    static constexpr std::size_t BlockSize = 64;

    Digest state{0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                 0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    std::array<char, BlockSize> pending{};  // the first `length % BlockSize` bytes are in use
    std::uint64_t length = 0;
};

// 64 lower-case hexadecimal digits.
[[nodiscard]] std::string ToHex(const Sha256::Digest& digest);

}  // namespace Reader
