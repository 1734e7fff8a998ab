// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Writes a tar stream in the ustar format of POSIX: only regular files, in the order of the calls.
// What ustar cannot hold is written as GNU tar does: a name of more than 100 bytes as a member of
// its own ("././@LongLink") in front, numbers beyond the octal digits in binary.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "reader/tar_format.h"

namespace Reader {

// Takes the next bytes of a stream. Returns true if they cannot be written.
using ByteSink = std::function<bool(std::string_view)>;

struct TarEntry {
    std::string_view name;
    std::uint64_t size = 0;
    std::int64_t mtime = 0;  // seconds since 1970
    unsigned mode = 0600;
};

// Every operation returns true on failure, which is always the sink's.
class TarWriter {
public:
    static constexpr std::uint64_t TrailerSize = 2 * TarBlockSize;

    explicit TarWriter(ByteSink sink) : sink(std::move(sink)) {}

    // What a member of this name and size takes in the stream.
    [[nodiscard]] static std::uint64_t SizeInStream(std::string_view name, std::uint64_t size);

    // Begins a member. Exactly `entry.size` bytes must follow by `Write` before the next call of
    // anything else.
    [[nodiscard]] bool Begin(const TarEntry& entry);
    [[nodiscard]] bool Write(std::string_view bytes);
    [[nodiscard]] bool End();  // of a member

    [[nodiscard]] bool Finish();  // of the stream

private:
    [[nodiscard]] bool WriteHeader(const TarEntry& entry, char type);
    [[nodiscard]] bool WritePadding(std::uint64_t size);

    ByteSink sink;
    std::uint64_t currentSize = 0;
};

}  // namespace Reader
