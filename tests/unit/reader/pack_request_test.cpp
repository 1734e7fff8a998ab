// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string_view>

#include "reader/pack.h"

namespace {

TEST(PackLimitTest, IsANumberOfBytesWithAUnit) {
    constexpr struct {
        std::string_view text;
        std::optional<std::uint64_t> limit;
    } Cases[]{{"0", 0},
              {"61440", 61440},
              {"60K", 61440},
              {"60k", 61440},
              {"15M", 15U << 20},
              {"2g", 2UL << 30},
              {"17179869183G", 17179869183UL << 30},
              {"17179869184G", std::nullopt},
              {"18446744073709551615", UINT64_MAX},
              {"18446744073709551616", std::nullopt},
              {"none", Reader::PackOptions::NoLimit},
              {"None", std::nullopt},
              {"", std::nullopt},
              {"K", std::nullopt},
              {"5X", std::nullopt},
              {"5KB", std::nullopt},
              {"-1", std::nullopt},
              {"1.5M", std::nullopt},
              {" 5", std::nullopt},
              {"5 ", std::nullopt}};
    for (const auto& [text, limit] : Cases) {
        EXPECT_EQ(Reader::ParsePackLimit(text), limit) << text;
    }
}

TEST(DownloadNameTest, HasHostTimeAndNoCharacterThatNeedsQuotes) {
    setenv("TZ", "UTC", 1);
    tzset();
    EXPECT_EQ(Reader::DownloadName("pump-17.lan", "logs", 1'700'000'000, "tar"),
              "pump-17.lan-logs-20231114-221320.tar");
    EXPECT_EQ(Reader::DownloadName("a/b \"c\"\n\xc3\xa9", "log", 0, "json"),
              "a_b__c____-log-19700101-000000.json");
}

}  // namespace
