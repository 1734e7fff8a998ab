// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// What --help prints.
#pragma once

#include <string_view>

namespace Tool {

// The help of one verb; of the whole command if `verb` is empty.
std::string_view Help(std::string_view verb);

}  // namespace Tool
