// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "reader/tar_writer.h"

#include <gtest/gtest.h>

#include <string>

namespace {

constexpr std::size_t BlockSize = Reader::TarBlockSize;

std::string Tar(const Reader::TarEntry& entry, const std::string& content) {
    std::string stream;
    Reader::TarWriter tar([&](std::string_view bytes) {
        stream += bytes;
        return false;
    });
    EXPECT_FALSE(tar.Begin(entry) || tar.Write(content) || tar.End());
    return stream;
}

std::string Field(const std::string& stream, std::size_t offset, std::size_t size) {
    return stream.substr(offset, size).c_str();
}

TEST(TarWriter, WritesHeaderContentAndPadding) {
    const std::string stream =
        Tar({.name = "messages.txt.xz", .size = 5, .mtime = 1795283288, .mode = 0640}, "hello");
    ASSERT_EQ(stream.size(), 2 * BlockSize);
    EXPECT_EQ(Field(stream, 0, 100), "messages.txt.xz");
    EXPECT_EQ(Field(stream, 100, 8), "0000640");
    EXPECT_EQ(Field(stream, 124, 12), "00000000005");
    EXPECT_EQ(Field(stream, 136, 12), "15300354530");
    EXPECT_EQ(stream[156], '0');
    EXPECT_EQ(stream.substr(257, 8), std::string("ustar\0"
                                                 "00",
                                                 8));
    EXPECT_EQ(stream.substr(BlockSize, 5), "hello");
    EXPECT_EQ(stream.substr(BlockSize + 5), std::string(BlockSize - 5, '\0'));
}

TEST(TarWriter, SumsTheHeaderWithBlanksInPlaceOfTheSum) {
    std::string stream = Tar({.name = "\xff", .size = 0}, "");
    const unsigned long written = std::stoul(Field(stream, 148, 8), nullptr, 8);
    stream.replace(148, 8, 8, ' ');
    unsigned long sum = 0;
    for (const char c : stream.substr(0, BlockSize)) sum += static_cast<unsigned char>(c);
    EXPECT_EQ(written, sum);
}

TEST(TarWriter, NeedsNoPaddingBehindWholeBlocks) {
    EXPECT_EQ(Tar({.name = "a", .size = BlockSize}, std::string(BlockSize, 'x')).size(),
              2 * BlockSize);
    EXPECT_EQ(Tar({.name = "a", .size = 0}, "").size(), BlockSize);
}

TEST(TarWriter, WritesANameOfMoreThan100BytesAsAMemberOfItsOwn) {
    EXPECT_EQ(Tar({.name = std::string(100, 'x'), .size = 0}, "").size(), BlockSize);
    const std::string name(101, 'x');
    const std::string stream = Tar({.name = name, .size = 0}, "");
    ASSERT_EQ(stream.size(), 3 * BlockSize);
    EXPECT_EQ(Field(stream, 0, 100), "././@LongLink");
    EXPECT_EQ(stream[156], 'L');
    EXPECT_EQ(Field(stream, BlockSize, BlockSize), name);
    EXPECT_EQ(stream.substr(2 * BlockSize, 100), name.substr(0, 100));
}

TEST(TarWriter, WritesNumbersBeyondTheOctalDigitsInBinary) {
    const std::string largest = Tar({.name = "a", .size = (1UL << 33) - 1}, "");
    EXPECT_EQ(Field(largest, 124, 12), "77777777777");
    const std::string stream = Tar({.name = "a", .size = 1UL << 33}, "");
    EXPECT_EQ(stream.substr(124, 12), std::string("\x80\0\0\0\0\0\0\2\0\0\0\0", 12));
}

TEST(TarWriter, TakesATimeBefore1970AsThat) {
    EXPECT_EQ(Field(Tar({.name = "a", .size = 0, .mtime = -5}, ""), 136, 12), "00000000000");
}

TEST(TarWriter, KnowsBeforehandWhatAMemberTakes) {
    for (const std::size_t nameSize : {1, 100, 101, 512, 513}) {
        for (const std::size_t size : {0, 1, 511, 512, 513}) {
            const std::string name(nameSize, 'x');
            const std::string stream = Tar({.name = name, .size = size}, std::string(size, 'y'));
            EXPECT_EQ(Reader::TarWriter::SizeInStream(name, size), stream.size());
        }
    }
}

TEST(TarWriter, EndsWithTwoBlocksOfZeros) {
    std::string stream;
    Reader::TarWriter tar([&](std::string_view bytes) {
        stream += bytes;
        return false;
    });
    EXPECT_FALSE(tar.Finish());
    EXPECT_EQ(stream, std::string(Reader::TarWriter::TrailerSize, '\0'));
}

TEST(TarWriter, FailsWhereTheSinkFails) {
    for (int calls = 0; calls < 5; ++calls) {
        int left = calls;
        Reader::TarWriter tar([&](std::string_view) { return left-- == 0; });
        EXPECT_TRUE(tar.Begin({.name = std::string(101, 'x'), .size = 1}) || tar.Write("x") ||
                    tar.End())
            << calls;
    }
}

}  // namespace
