// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "rotate/twin.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

#include "daemon/moraine.h"
#include "futils/command.h"

namespace fs = std::filesystem;

namespace Rotation {

namespace {

// True if the text of a compressed file begins with all of `source`. A damaged one counts for
// nothing, even if xz gets all the text out of it.
bool TextBeginsWith(const fs::path& compressed, const SourceFile& source) {
    const std::string& name = compressed.native();
    Futils::CommandOutput text("xz -t " + name + " && xz -dc " + name);
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
    const auto twin = std::find_if(archive.begin(), archive.end(), [&](const std::string& name) {
        const fs::path pfn = Moraine::ArchPathAbs / name;
        return HaveSameTime(pfn, source.Pfn()) && TextBeginsWith(pfn, source);
    });
    return twin == archive.end() ? std::string() : *twin;
}

}  // namespace Rotation
