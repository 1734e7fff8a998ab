// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "reader/text.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>

namespace Reader {

namespace {

constexpr std::size_t BlockSize = 128UL << 10;
constexpr std::size_t InputSize = 32UL << 10;

// The decoder needs some more than the dictionary; the next larger dictionary is 96 MiB.
constexpr std::uint64_t DecoderMemory = MaxDictionary + (4UL << 20);

char* Allocate(char* old, std::size_t size) {
    void* const memory = std::realloc(old, size);
    if (memory == nullptr) throw std::bad_alloc();
    return static_cast<char*>(memory);
}

}  // namespace

TextReader::~TextReader() {
    lzma_end(&decoder);
    std::free(buffer);
    std::free(input);
}

void TextReader::Open(const Place& newPlace, bool compressed) {
    place = newPlace;
    isCompressed = compressed;
    isFollowing = atEnd = hasReadError = isCut = false;
    damage.clear();
    textBytes = fileBytes = 0;
    begin = end = 0;
    if (capacity != BlockSize) {
        buffer = Allocate(buffer, BlockSize);
        capacity = BlockSize;
    }
    if (!isCompressed) return;
    if (input == nullptr) input = Allocate(nullptr, InputSize);
    // The memory of the file before is used again.
    const lzma_ret result = lzma_stream_decoder(&decoder, DecoderMemory, LZMA_CONCATENATED);
    if (result != LZMA_OK) throw std::bad_alloc();
    decoder.avail_in = 0;
}

bool TextReader::Next(std::string_view& block) {
    if (isCut) {
        buffer[begin] = cutByte;
        isCut = false;
    }
    for (;;) {
        // Blocks as large as possible: until the buffer is full, no line end is looked for. Once it
        // has grown for a long line, line by line.
        const bool hasGrown = capacity > BlockSize;
        if (!hasGrown && !atEnd) {
            Compact();
            Fill();
        }
        const std::size_t length = BlockEnd();
        if (length != 0) {
            block = {buffer + begin, length};
            begin += length;
            return true;
        }
        if (end - begin > MaxLineLength) {
            cutByte = buffer[begin + MaxLineLength];
            buffer[begin + MaxLineLength] = '\n';
            isCut = true;
            block = {buffer + begin, MaxLineLength + 1};
            begin += MaxLineLength;
            return true;
        }
        if (atEnd) return TakeUnfinished(block);
        Compact();
        if (end == capacity) Grow();
        Fill();
    }
}

// The length of what can be given out: up to the last line end, or, in a buffer that has grown and
// may hold a line that is too long, up to the first.
std::size_t TextReader::BlockEnd() const {
    const char* const text = buffer + begin;
    const std::size_t length = end - begin;
    const void* const lineEnd = capacity > BlockSize
                                    ? memchr(text, '\n', std::min(length, MaxLineLength + 1))
                                    : memrchr(text, '\n', length);
    if (lineEnd == nullptr) return 0;
    return static_cast<std::size_t>(static_cast<const char*>(lineEnd) - text) + 1;
}

bool TextReader::TakeUnfinished(std::string_view& block) {
    if (isFollowing) {
        atEnd = false;
        return false;
    }
    if (begin == end) return false;
    Compact();
    if (end == capacity) Grow();
    buffer[end] = '\n';
    block = {buffer, end + 1};
    begin = end;
    return true;
}

void TextReader::Compact() {
    if (begin == 0) return;
    std::memmove(buffer, buffer + begin, end - begin);
    end -= begin;
    begin = 0;
    if (capacity > BlockSize && end < BlockSize / 2) {
        buffer = Allocate(buffer, BlockSize);
        capacity = BlockSize;
    }
}

void TextReader::Grow() {
    constexpr std::size_t MaxCapacity = MaxLineLength + BlockSize;
    capacity = std::min(capacity * 2, MaxCapacity);
    buffer = Allocate(buffer, capacity);
}

void TextReader::Fill() {
    while (end < capacity && !atEnd) {
        const std::size_t room = capacity - end;
        const std::size_t count =
            isCompressed ? FillDecoded(buffer + end, room) : FillPlain(buffer + end, room);
        end += count;
        textBytes += count;
    }
}

std::size_t TextReader::FillPlain(char* to, std::size_t room) {
    const std::size_t count = ReadInput(to, room);
    if (count == 0) atEnd = true;
    return count;
}

std::size_t TextReader::FillDecoded(char* to, std::size_t room) {
    decoder.next_out = reinterpret_cast<std::uint8_t*>(to);
    decoder.avail_out = room;
    while (decoder.avail_out != 0 && !atEnd) {
        lzma_action action = LZMA_RUN;
        if (decoder.avail_in == 0) {
            decoder.next_in = reinterpret_cast<const std::uint8_t*>(input);
            decoder.avail_in = ReadInput(input, InputSize);
            if (decoder.avail_in == 0) action = LZMA_FINISH;
        }
        const lzma_ret result = lzma_code(&decoder, action);
        if (result == LZMA_OK) continue;
        atEnd = true;
        if (result != LZMA_STREAM_END && !hasReadError) SetDamage(result);
    }
    return room - decoder.avail_out;
}

std::size_t TextReader::ReadInput(char* to, std::size_t room) {
    const std::uint64_t left = place.size - fileBytes;
    room = static_cast<std::size_t>(std::min<std::uint64_t>(room, left));
    if (room == 0) return 0;
    if (place.memory != nullptr) {
        std::memcpy(to, place.memory + place.offset + fileBytes, room);
        fileBytes += room;
        return room;
    }
    ssize_t count = 0;
    do {
        count = pread(place.fd, to, room, static_cast<off_t>(place.offset + fileBytes));
    } while (count < 0 && errno == EINTR);
    if (count < 0) {
        damage = strerror(errno);
        hasReadError = true;
        return 0;
    }
    fileBytes += static_cast<std::size_t>(count);
    return static_cast<std::size_t>(count);
}

void TextReader::SetDamage(lzma_ret result) {
    switch (result) {
        case LZMA_BUF_ERROR:
            damage = fileBytes == 0 ? "the file is empty" : "the compressed file is truncated";
            break;
        case LZMA_FORMAT_ERROR:
            damage = "not an xz file";
            break;
        case LZMA_MEMLIMIT_ERROR:
            damage = "it needs a dictionary larger than 64 MiB";
            break;
        case LZMA_MEM_ERROR:
            damage = "not enough memory to decompress it";
            break;
        case LZMA_OPTIONS_ERROR:
            damage = "it uses options of xz that are not supported";
            break;
        default:
            damage = "the compressed data is damaged";
            break;
    }
}

}  // namespace Reader
