// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Characters, whatever the locale.
#pragma once

namespace Reader {

constexpr bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

}  // namespace Reader
