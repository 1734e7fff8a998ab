// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The text of one file, compressed or not, in blocks of whole lines. Memory is bounded: the
// dictionary of the file, and a line of at most 1 MiB; what is longer is cut there, and the
// remainder counts as another line.
#pragma once

#include <lzma.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Reader {

constexpr std::size_t MaxLineLength = 1UL << 20;
constexpr std::uint64_t MaxDictionary = 64UL << 20;

// Where the bytes of a file are: a part of an open file, or memory. Does not own it.
struct Place {
    int fd = -1;
    const char* memory = nullptr;  // instead of `fd`
    std::uint64_t offset = 0;
    std::uint64_t size = UINT64_MAX;  // at most
};

class TextReader {
public:
    TextReader() = default;
    TextReader(const TextReader&) = delete;
    TextReader& operator=(const TextReader&) = delete;
    ~TextReader();

    void Open(const Place& place, bool isCompressed);

    // The next block: whole lines, each with a line feed, also where the file has none at its end.
    // Valid until the next call. Returns false at the end of the text, however that came about.
    bool Next(std::string_view& block);

    // What was wrong, after the end: empty if all of it was read.
    const std::string& Damage() const { return damage; }
    bool HasReadError() const { return hasReadError; }

    // Bytes of text so far, without a line feed that was added; bytes of the file read so far.
    std::uint64_t TextBytes() const { return textBytes; }
    std::uint64_t FileBytes() const { return fileBytes; }

    // For a file that grows: an unfinished line is kept back, and after the end Next tries again.
    void Follow() { isFollowing = true; }
    // The unfinished line is finished after all: the file has been replaced.
    void FinishFollowing() {
        isFollowing = false;
        atEnd = false;
    }

private:
    void Grow();
    void Compact();
    void Fill();
    std::size_t FillPlain(char* to, std::size_t room);
    std::size_t FillDecoded(char* to, std::size_t room);
    std::size_t ReadInput(char* to, std::size_t room);
    std::size_t BlockEnd() const;
    bool TakeUnfinished(std::string_view& block);
    void SetDamage(lzma_ret result);

    Place place;
    bool isCompressed = false;
    bool isFollowing = false;
    bool atEnd = false;
    bool hasReadError = false;
    std::string damage;
    std::uint64_t textBytes = 0;
    std::uint64_t fileBytes = 0;

    char* buffer = nullptr;
    std::size_t capacity = 0;
    std::size_t begin = 0;
    std::size_t end = 0;
    bool isCut = false;  // the byte at `begin` was replaced by a line feed
    char cutByte = 0;

    lzma_stream decoder = LZMA_STREAM_INIT;
    char* input = nullptr;
};

}  // namespace Reader
