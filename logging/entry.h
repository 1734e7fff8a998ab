// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Between the two halves of this folder: an entry as a plain character string, so that the front
// end's path to the system log needs no memory.
#pragma once

#include "logging/logging.h"

namespace Logging {

void AddEntry(LOGGING_SEVERITY_LEVEL level, const char* message);

}  // namespace Logging
