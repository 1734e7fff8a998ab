// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The engine object itself.
#include <type_traits>

#include "tests/unit/rotate/engine.h"

namespace {

static_assert(std::is_same_v<decltype(Engine::numReboots), unsigned short>);
static_assert(std::is_same_v<decltype(Engine::bootNum), unsigned int>);
static_assert(std::is_same_v<decltype(Engine::archDirSize), unsigned long>);
static_assert(std::is_base_of_v<LogFileUtils, Rotate>);
static_assert(!std::is_polymorphic_v<Rotate>);

TEST(EngineObject, StartsFresh) {
    const Engine rotate;
    EXPECT_EQ(rotate.numReboots, 0xFFFF);
    EXPECT_EQ(rotate.bootNum, 0U);
    EXPECT_EQ(rotate.archDirSize, 0U);
}

using FreshEngineTest = RotateTest;

TEST_F(FreshEngineTest, CountsTheBootsInsteadOfTrustingItsCache) {
    WriteFiles(archive, {ArchFn(3), ArchFn(5)});
    ArchiveStats_s stats{};
    EXPECT_SUCCESS(rotate.GetArchiveStats(stats, false));
    EXPECT_EQ(stats.numReboots, 3);
    EXPECT_EQ(rotate.numReboots, 3);
}

}  // namespace
