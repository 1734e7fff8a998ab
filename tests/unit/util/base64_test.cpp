// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/files.h"
#include "util/util.h"

using namespace std::string_literals;

namespace {

const std::string Alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string AsText(const std::vector<unsigned char>& bytes) {
    return {bytes.begin(), bytes.end()};
}

std::string Decoded(const std::string& text) {
    return AsText(Util::Base64Decode(text));
}

void ExpectDecoded(const std::vector<std::pair<std::string, std::string>>& cases) {
    for (const auto& [text, bytes] : cases) {
        SCOPED_TRACE(text);
        EXPECT_EQ(Decoded(text), bytes);
        // Nothing behind the text is read: it stands at the end of its memory, for a sanitizer.
        const std::vector<char> memory(text.begin(), text.end());
        EXPECT_EQ(AsText(Util::Base64Decode(memory.data(), memory.size())), bytes);
    }
}

TEST(Base64DecodeTest, TheVectorsOfRfc4648) {
    std::size_t length = 0;
    for (const char* text : {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"}) {
        ExpectDecoded({{text, std::string("foobar", length++)}});
    }
}

TEST(Base64DecodeTest, NeedsNoPadding) {
    ExpectDecoded({{"TWFu", "Man"},
                   {"TWE=", "Ma"},
                   {"TQ==", "M"},
                   {"TWE", "Ma"},
                   {"TQ", "M"},
                   {"TWE.", "Ma>"},
                   {"TQ=", "M"},
                   {"TWFuTWE", "ManMa"},
                   {"TWFuTQ", "ManM"},
                   {"TWFuTQ=", "ManM"},
                   {"////", "\xff\xff\xff"}});
}

// The last group's fourth character is never used where there is padding.
TEST(Base64DecodeTest, AShortOrPaddedGroupYieldsAtMostTwoBytes) {
    ExpectDecoded({{"TW//", "Mo\xff"},
                   {"TW/=", "Mo"},
                   {"TW/", "Mo"},
                   {"TW=/", "M`?"},
                   {"TW==", "M"},
                   {"T/==", "O"},
                   {"TWFuTWE=TWE=", "ManMa\0Ma"s},
                   {"====", "\0"s},
                   {"=", "\0"s},
                   {"==", "\0"s},
                   {"===", "\0"s},
                   {"TWFu=", "Man\0"s},
                   {"TWFuTW/=", "ManMo"}});
}

// A group of one character counts as followed by a zero byte.
TEST(Base64DecodeTest, ASingleLastCharacterYieldsItsSixBits) {
    ExpectDecoded({{"T", "L"}, {"/", "\xfc"}, {"TWFuT", "ManL"}, {"TWFuTWFu/", "ManMan\xfc"}});
}

TEST(Base64DecodeTest, TheVariantsReadTheSame) {
    const std::string bytes = "\x03\xef\xf3\xff\xef";
    ExpectDecoded({{"A+/z/+8=", bytes}, {"A-_z_-8=", bytes}, {"A.,z,.8=", bytes}});
}

TEST(Base64DecodeTest, TakesAsManyBytesAsTold) {
    EXPECT_EQ(AsText(Util::Base64Decode("TWFuTWFu", 4)), "Man");
    EXPECT_EQ(AsText(Util::Base64Decode("TWFuTWFu", 6)), "ManM");
    EXPECT_EQ(AsText(Util::Base64Decode("T/////", 1)), "L");
    EXPECT_TRUE(Util::Base64Decode("TWFu", 0).empty());
    EXPECT_TRUE(Util::Base64Decode(nullptr, 0).empty());
}

// The six bits of every byte value, at each place of a group.
TEST(Base64DecodeTest, EveryByteValueHasItsSixBits) {
    std::array<unsigned, UCHAR_MAX + 1> sixBits{};
    for (const char c : Alphabet) {
        sixBits[static_cast<unsigned char>(c)] = static_cast<unsigned>(Alphabet.find(c));
    }
    sixBits['-'] = sixBits['.'] = 62;
    sixBits['_'] = sixBits[','] = 63;

    for (unsigned value = 0; value <= UCHAR_MAX; ++value) {
        for (std::size_t place = 0; place < 4; ++place) {
            std::string group = "AAAA";
            group[place] = static_cast<char>(value);
            const unsigned bits = sixBits[value] << (18 - 6 * place);
            const std::vector<unsigned char> bytes{static_cast<unsigned char>(bits >> 16),
                                                   static_cast<unsigned char>(bits >> 8),
                                                   static_cast<unsigned char>(bits)};
            // With another group behind it, so that "=" is no padding.
            std::vector<unsigned char> decoded = Util::Base64Decode(group + "AAAA");
            decoded.resize(3);
            EXPECT_EQ(decoded, bytes) << "byte " << value << " at place " << place;
        }
    }
}

std::string Encoded(const std::string& bytes) {
    std::string text;
    unsigned bits = 0;
    int count = 0;
    for (const char byte : bytes + '\0') {
        bits = bits << 8 | static_cast<unsigned char>(byte);
        for (count += 8; count >= 6; count -= 6) text += Alphabet[bits >> (count - 6) & 63];
    }
    text.resize((bytes.size() * 8 + 5) / 6);  // without what the last byte put in
    return text;
}

TEST(Base64DecodeTest, ReturnsWhatWasEncodedOfAnyLength) {
    for (std::size_t length = 0; length < 100; ++length) {
        const std::string bytes = Noise(length, 7);
        const std::string text = Encoded(bytes);
        EXPECT_EQ(Decoded(text), bytes) << length;
        EXPECT_EQ(Decoded(text + std::string((4 - text.size() % 4) % 4, '=')), bytes) << length;
    }
}

}  // namespace
