// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Hiding a file from a casual look.
#pragma once

#include <string>

namespace Util {

// Write a copy of `inFile` to `outFile` (made or emptied) with every byte substituted through a
// fixed table, and back. This hides a file from a casual look and protects nothing: the table is in
// every copy of the program. Returns 0, or -1 if a file cannot be opened or read or does not fit
// into memory; `outFile` is then untouched, unless opening it was what failed. Whether all of it
// could be written is not checked. DecryptFile also takes a file that ends early while it is read.
int EncryptFile(const std::string& inFile, const std::string& outFile);
int DecryptFile(const std::string& inFile, const std::string& outFile);

}  // namespace Util
