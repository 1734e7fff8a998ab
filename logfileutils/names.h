// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Archive names, built and renumbered. The grammar stands in names.cpp; the predicates on names are
// operations of LogFileUtils.
#pragma once

#include <string>

namespace Catalogue {

// The bare name of an archive file. `timeStamp` is the time since the device started, as
// GetMonotonicClockString writes it.
[[nodiscard]] std::string ArchiveName(unsigned int bootNum, const std::string& timeStamp);

// An archive file's name with another boot number. The name must have a boot number field.
[[nodiscard]] std::string WithBootNum(const std::string& name, unsigned int bootNum);

}  // namespace Catalogue
