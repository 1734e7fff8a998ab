// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "rotate/twin.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <vector>

#include "daemon/moraine.h"
#include "futils/command.h"

namespace fs = std::filesystem;

namespace Rotation {

namespace {

constexpr std::size_t NumNewestFiles = 16;

// True if the text of a compressed file begins with all of `source`.
bool TextBeginsWith(const fs::path& compressed, const SourceFile& source) {
    Futils::CommandOutput text("xz -dc " + compressed.native());
    std::vector<char> expected(65536);
    std::vector<char> actual(expected.size());
    off_t offset = 0;
    while (const std::size_t length = source.ReadAt(offset, expected.data(), expected.size())) {
        if (text.Read(actual.data(), length) != length) return false;
        if (std::memcmp(expected.data(), actual.data(), length) != 0) return false;
        offset += static_cast<off_t>(length);
    }
    return offset == source.Size();
}

}  // namespace

std::string FindTwin(const SourceFile& source, const std::set<std::string>& archive) {
    const auto first = std::prev(
        archive.end(), static_cast<std::ptrdiff_t>(std::min(archive.size(), NumNewestFiles)));
    const auto twin = std::find_if(first, archive.end(), [&](const std::string& name) {
        const fs::path pfn = Moraine::ArchPathAbs / name;
        return HaveSameTime(pfn, source.Pfn()) && TextBeginsWith(pfn, source);
    });
    return twin == archive.end() ? std::string() : *twin;
}

}  // namespace Rotation
