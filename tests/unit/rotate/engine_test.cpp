// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The engine object itself.
#include <type_traits>

#include "tests/unit/rotate/engine.h"

namespace {

TEST(EngineObject, StartsFresh) {
    const Engine rotate;
    EXPECT_EQ(rotate.numReboots, 0xFFFF);
    EXPECT_EQ(rotate.bootNum, 0U);
    EXPECT_EQ(rotate.archDirSize, 0U);
}

TEST(EngineObject, HasFieldsOfTheseTypes) {
    EXPECT_TRUE((std::is_same_v<decltype(Engine::numReboots), unsigned short>));
    EXPECT_TRUE((std::is_same_v<decltype(Engine::bootNum), unsigned int>));
    EXPECT_TRUE((std::is_same_v<decltype(Engine::archDirSize), unsigned long>));
}

TEST(EngineObject, IsTheCatalogueWithNothingVirtual) {
    EXPECT_TRUE((std::is_base_of_v<LogFileUtils, Rotate>));
    EXPECT_FALSE(std::is_polymorphic_v<Rotate>);
}

using FreshEngineTest = RotateTest;

TEST_F(FreshEngineTest, CountsTheBootsInsteadOfTrustingItsCache) {
    WriteFile(archive / ArchFn(3));
    WriteFile(archive / ArchFn(5));
    ArchiveStats_s stats{};
    EXPECT_SUCCESS(rotate.GetArchiveStats(stats, false));
    EXPECT_EQ(stats.numReboots, 3);
    EXPECT_EQ(rotate.numReboots, 3);
}

}  // namespace
