// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// A file that was archived and is there all the same: a loss of power undid its removal, the daemon
// was killed before it, or syslogd moved it away at that moment. Archived again, its lines would be
// in the archive twice.
//
// xz gives its output the modification time of its input. So a file that has the time of an archive
// file, to the nanosecond, and whose content that file begins with, was archived. (Begins with: the
// end of a file that came back may not have reached the disk.) But two rotations may be alike: an
// archive file that was just made of one of them is no twin of the other.
#pragma once

#include <set>
#include <string>

#include "rotate/source_file.h"

namespace Rotation {

// Returns the name of the file in `archive`, a list of archive names, that was made of `source`;
// empty if none was.
[[nodiscard]] std::string FindTwin(const SourceFile& source, const std::set<std::string>& archive);

}  // namespace Rotation
