// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "reader/tar_format.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/files.h"

namespace {

std::string Write(std::size_t width, std::uint64_t number) {
    std::string field(width, '?');
    Reader::WriteTarNumber(field, number);
    return field;
}

std::uint64_t Read(const std::string& field) {
    std::uint64_t number = 1;
    EXPECT_SUCCESS(Reader::ReadTarNumber(field, number)) << field;
    return number;
}

TEST(TarNumber, IsOctalAsLongAsItsDigitsSuffice) {
    EXPECT_EQ(Write(8, 0), std::string("0000000", 8));
    EXPECT_EQ(Write(8, 0640), std::string("0000640", 8));
    EXPECT_EQ(Write(12, 077777777777), std::string("77777777777", 12));
    EXPECT_EQ(Write(12, 0100000000000), std::string("\x80\0\0\0\0\0\0\2\0\0\0\0", 12));
    EXPECT_EQ(Write(12, UINT64_MAX), "\x80" + std::string(3, '\0') + std::string(8, '\xff'));
}

TEST(TarNumber, IsReadAsItIsWritten) {
    for (const std::uint64_t number :
         {0UL, 1UL, 07777777UL, 077777777777UL, 1UL << 33, 1UL << 62}) {
        EXPECT_EQ(Read(Write(12, number)), number);
    }
}

TEST(TarNumber, IsReadAsOtherProgramsWriteIt) {
    EXPECT_EQ(Read(std::string("   644 \0", 8)), 0644U);
    EXPECT_EQ(Read(std::string("644\0garb", 8)), 0644U);
    EXPECT_EQ(Read(std::string(8, '\0')), 0U);
    EXPECT_EQ(Read("77777777777 "), 077777777777U);
}

TEST(TarNumber, OfAnyOtherFormIs0) {
    for (const std::string& field :
         {std::string("12x"), std::string("-1"), std::string("8"), std::string(12, '\xff'),
          "\xff" + std::string(10, '\xff') + "\xfe", "\x80" + std::string(11, '\xff'),
          "\x81" + std::string(11, '\0')}) {
        std::uint64_t number = 1;
        EXPECT_FAILURE(Reader::ReadTarNumber(field, number)) << field;
        EXPECT_EQ(number, 0U);
    }
}

}  // namespace
