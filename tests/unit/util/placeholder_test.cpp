#include <gtest/gtest.h>
TEST(Placeholder, IsReplaced) {}
