// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "reader/xz_encoder.h"

#include <array>
#include <cstdint>
#include <utility>

namespace Reader {

namespace {

constexpr std::uint32_t DictionarySize = 2U << 20;

}  // namespace

XzEncoder::XzEncoder(ByteSink sink) : sink(std::move(sink)) {
    lzma_options_lzma options{};
    hasFailed = lzma_lzma_preset(&options, LZMA_PRESET_DEFAULT) != 0;
    options.dict_size = DictionarySize;
    const std::array<lzma_filter, 2> filters{
        {{LZMA_FILTER_LZMA2, &options}, {LZMA_VLI_UNKNOWN, nullptr}}};
    if (lzma_stream_encoder(&stream, filters.data(), LZMA_CHECK_CRC64) != LZMA_OK) hasFailed = true;
}

XzEncoder::~XzEncoder() {
    lzma_end(&stream);
}

bool XzEncoder::Write(std::string_view text) {
    return Run(text, LZMA_RUN);
}

bool XzEncoder::Finish() {
    return Run({}, LZMA_FINISH);
}

bool XzEncoder::Run(std::string_view text, lzma_action action) {
    std::array<std::uint8_t, 64UL << 10> output;
    // liblzma's bytes are unsigned.
    stream.next_in = reinterpret_cast<const std::uint8_t*>(text.data());
    stream.avail_in = text.size();
    lzma_ret result = LZMA_OK;
    while (!hasFailed &&
           (action == LZMA_FINISH ? result != LZMA_STREAM_END : stream.avail_in > 0)) {
        stream.next_out = output.data();
        stream.avail_out = output.size();
        result = lzma_code(&stream, action);
        const std::size_t size = output.size() - stream.avail_out;
        hasFailed = (result != LZMA_OK && result != LZMA_STREAM_END) ||
                    (size > 0 && sink({reinterpret_cast<const char*>(output.data()), size}));
    }
    return hasFailed;
}

}  // namespace Reader
