// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "reader/xz_encoder.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string Compress(std::string_view text, std::size_t step) {
    std::string result;
    Reader::XzEncoder encoder([&](std::string_view bytes) {
        result += bytes;
        return false;
    });
    for (std::size_t at = 0; at < text.size(); at += step) {
        EXPECT_FALSE(encoder.Write(text.substr(at, step)));
    }
    EXPECT_FALSE(encoder.Finish());
    return result;
}

std::string Decompress(const std::string& compressed, std::size_t size) {
    std::string text(size, '\0');
    std::uint64_t limit = UINT64_MAX;
    std::size_t in = 0;
    std::size_t out = 0;
    EXPECT_EQ(lzma_stream_buffer_decode(
                  &limit, 0, nullptr, reinterpret_cast<const std::uint8_t*>(compressed.data()), &in,
                  compressed.size(), reinterpret_cast<std::uint8_t*>(text.data()), &out, size),
              LZMA_OK);
    EXPECT_EQ(in, compressed.size());
    EXPECT_EQ(out, size);
    return text;
}

std::string Sample(std::size_t size) {
    std::string text;
    for (unsigned i = 0; text.size() < size; ++i) {
        text += std::to_string(i * 2654435761U) + (i % 3 == 0 ? "\n" : " ");
    }
    text.resize(size);
    return text;
}

TEST(XzEncoder, GivesBackTheText) {
    for (const std::size_t size : {0, 1, 65536, 300000}) {
        const std::string text = Sample(size);
        EXPECT_EQ(Decompress(Compress(text, 4096), size), text);
    }
}

// Packing relies on it: a text is compressed once for its size and again for its bytes.
TEST(XzEncoder, GivesTheSameBytesHoweverTheTextIsCut) {
    const std::string text = Sample(200000);
    EXPECT_EQ(Compress(text, 1000), Compress(text, 77777));
}

TEST(XzEncoder, HasTheDictionaryOfTheDaemonsSettings) {
    const std::string compressed = Compress("x", 1);
    // Stream header (12), block header: size, flags, LZMA2's ID, the size of its properties, then
    // the dictionary: 18 is 2 MiB.
    ASSERT_GT(compressed.size(), 17U);
    EXPECT_EQ(compressed[14], 0x21);
    EXPECT_EQ(compressed[16], 18);
}

TEST(XzEncoder, FailsWhereTheSinkFails) {
    Reader::XzEncoder encoder([](std::string_view) { return true; });
    EXPECT_TRUE(encoder.Write("text") || encoder.Finish());
    EXPECT_TRUE(encoder.Finish());  // and goes on failing
}

}  // namespace
