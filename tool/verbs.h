// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The verbs of the command `moraine`. Each is thin: it reads its options, calls the library, and
// prints. Each returns the exit status: 0, 1 (nothing found, or a problem found) or 2 (something
// could not be read). A command line that makes no sense is thrown as UsageError.
#pragma once

#include <span>

namespace Tool {

using Arguments = std::span<char* const>;

int RunLog(Arguments arguments);
int RunBoots(Arguments arguments);
int RunVerify(Arguments arguments);
int RunStatus(Arguments arguments);
int RunPack(Arguments arguments);
int RunDelete(Arguments arguments);

}  // namespace Tool
