// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Every test program's main: each run has a sandbox to itself, in which the fixed paths are
// real and nothing of the machine can be touched.
#include <gtest/gtest.h>

#include <cstring>

#include "tests/harness/sandbox.h"
#include "tests/support/faults.h"

namespace {

// A test starts without faults and recorded calls, and no fault outlives it.
class ClearFaults : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo& /*test*/) override { Faults::Clear(); }
    void OnTestEnd(const testing::TestInfo& /*test*/) override { Faults::Clear(); }
};

}  // namespace

int main(int argc, char** argv) {
    const bool onlyLists = argc > 1 && std::strncmp(argv[1], "--gtest_list_tests", 18) == 0;
    if (!onlyLists) {
        Sandbox::Options options;
        options.writable = {MORAINE_BINARY_DIR};  // for coverage data
        Sandbox::Enter(options);
    }
    testing::InitGoogleTest(&argc, argv);
    testing::UnitTest::GetInstance()->listeners().Append(new ClearFaults);
    return RUN_ALL_TESTS();
}
