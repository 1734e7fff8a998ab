// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// What only a device has.
#pragma once

#include <cstdint>

#include "reader/catalogue.h"

namespace Reader {

// True if the archive file is what became of the file `source`, which is open.
bool IsFormOf(const OpenFile& archived, int source);

// The number that the running daemon leaves for programs like this one; 0 without a daemon.
std::uint32_t ReadCurrentBoot();

}  // namespace Reader
