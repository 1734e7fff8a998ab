// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// A file hidden from a casual look: each byte is substituted through a fixed permutation of the 256
// byte values, three times. The inverse is made from the same table at compile time, and the
// compiler proves that it is one.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <memory>
#include <numeric>
#include <utility>
#include <vector>

#include "util/obscure.h"

namespace Util {

namespace {

using ByteTable = std::array<unsigned char, 256>;

// A Fisher-Yates shuffle by a fixed linear congruential generator. Files that were written with
// these values can be restored with no others: never change them.
constexpr ByteTable MakeEncTable() {
    ByteTable table{};
    std::iota(table.begin(), table.end(), static_cast<unsigned char>(0));
    std::uint32_t random = 0x76616E64;
    for (std::size_t i = table.size() - 1; i > 0; --i) {
        random = random * 1664525U + 1013904223U;
        std::swap(table[i], table[(random >> 16) % (i + 1)]);
    }
    return table;
}

constexpr ByteTable Inverse(const ByteTable& table) {
    ByteTable inverse{};
    for (std::size_t i = 0; i < table.size(); ++i) {
        inverse[table[i]] = static_cast<unsigned char>(i);
    }
    return inverse;
}

constexpr ByteTable encTable = MakeEncTable();
constexpr ByteTable decTable = Inverse(encTable);
static_assert(Inverse(decTable) == encTable, "encTable must be a permutation of the byte values");

struct CloseStream {
    void operator()(std::FILE* stream) const { (void)std::fclose(stream); }
};
using Stream = std::unique_ptr<std::FILE, CloseStream>;

// Reads all of `pfn` that can be read. Returns the file's size, or -1 if it cannot be opened, sized
// or held in memory.
long ReadAll(std::vector<unsigned char>& bytes, const std::string& pfn) {
    const Stream in(std::fopen(pfn.c_str(), "rb"));
    if (!in || std::fseek(in.get(), 0, SEEK_END) != 0) return -1;
    const long size = std::ftell(in.get());
    std::rewind(in.get());
    if (size < 0) return -1;
    try {
        bytes.resize(static_cast<std::size_t>(size));
    } catch (const std::exception&) {
        return -1;
    }
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), in.get()));
    return size;
}

int WriteSubstituted(std::vector<unsigned char>& bytes, const ByteTable& table,
                     const std::string& pfn) {
    for (unsigned char& byte : bytes) byte = table[table[table[byte]]];
    const Stream out(std::fopen(pfn.c_str(), "wb"));
    if (!out) return -1;
    if (bytes.empty()) return 0;
    (void)std::fwrite(bytes.data(), 1, bytes.size(), out.get());  // Not checked, as declared.
    return 0;
}

}  // namespace

int EncryptFile(const std::string& inFile, const std::string& outFile) {
    std::vector<unsigned char> bytes;
    const long size = ReadAll(bytes, inFile);
    if (size < 0 || bytes.size() < static_cast<std::size_t>(size)) return -1;
    return WriteSubstituted(bytes, encTable, outFile);
}

int DecryptFile(const std::string& inFile, const std::string& outFile) {
    std::vector<unsigned char> bytes;
    if (ReadAll(bytes, inFile) < 0) return -1;
    return WriteSubstituted(bytes, decTable, outFile);
}

}  // namespace Util
