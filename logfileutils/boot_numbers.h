// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The boot numbers in the archive, as one walk over it finds them.
#pragma once

#include <bitset>

#include "daemon/moraine.h"

namespace Catalogue {

struct BootNumbers {
    unsigned short min = Moraine::MaxBootNum;
    unsigned short max = 0;
    std::bitset<Moraine::MaxBootNum + 1> used;  // those up to MaxBootNum
};

// Every entry counts, whatever it is: one whose name has no boot number counts as 0, after an Error
// line. Throws std::filesystem::filesystem_error if the archive directory cannot be read.
[[nodiscard]] BootNumbers ReadBootNumbers();

}  // namespace Catalogue
