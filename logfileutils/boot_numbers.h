// The boot numbers in the archive, as one walk over it finds them.
#pragma once

#include <bitset>

struct BootNumbers {
    static constexpr unsigned short Max = 999;  // that has three digits

    unsigned short min = Max;
    unsigned short max = 0;
    std::bitset<Max + 1> used;  // those up to Max
};

// Every entry counts, whatever it is: one whose name tells no boot number counts as 0, after an
// Error line. An archive directory that cannot be read raises std::filesystem::filesystem_error.
[[nodiscard]] BootNumbers ReadBootNumbers();
