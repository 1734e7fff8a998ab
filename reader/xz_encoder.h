// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Compresses a text into an .xz file as the daemon's `xz` does: one thread, a dictionary of 2 MiB,
// CRC64. The same text always gives the same bytes, so that a text may be compressed once to learn
// the size and again to write it.
#pragma once

#include <lzma.h>

#include <string_view>

#include "reader/tar_writer.h"

namespace Reader {

class XzEncoder {
public:
    // `sink` takes the compressed bytes, at most 64 KiB at a time.
    explicit XzEncoder(ByteSink sink);
    ~XzEncoder();
    XzEncoder(const XzEncoder&) = delete;
    XzEncoder& operator=(const XzEncoder&) = delete;

    // Return true on failure: of the sink, or memory exhausted.
    [[nodiscard]] bool Write(std::string_view text);
    [[nodiscard]] bool Finish();

private:
    [[nodiscard]] bool Run(std::string_view text, lzma_action action);

    ByteSink sink;
    lzma_stream stream = LZMA_STREAM_INIT;
    bool hasFailed = false;
};

}  // namespace Reader
