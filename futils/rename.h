// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Renaming that never replaces a file: atomic, by renameat2, where the file system supports that,
// else a check and a rename.
#pragma once

#include <filesystem>

namespace Futils {

// Returns 0 or the errno; EEXIST if there is something named `to`. Logs nothing.
[[nodiscard]] int TryRenameNoReplace(const std::filesystem::path& from,
                                     const std::filesystem::path& to);

enum class RenameResult { Renamed, TargetExists, Failed };

// The same. Logs an Error line if it returns Failed.
[[nodiscard]] RenameResult RenameNoReplace(const std::filesystem::path& from,
                                           const std::filesystem::path& to);

}  // namespace Futils
