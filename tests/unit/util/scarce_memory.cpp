// This program's memory can run out, too.
#include "tests/unit/futils/scarce_memory.cpp"  // NOLINT(bugprone-suspicious-include)
