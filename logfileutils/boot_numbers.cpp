// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "logfileutils/boot_numbers.h"

#include <string>

#include "futils/directory_walk.h"
#include "logfileutils/log_file_utils.h"

namespace {

// Same result as path::stem(), without building a path.
std::string Stem(const std::string& name) {
    const std::size_t dot = name.rfind('.');
    return dot == 0 ? name : name.substr(0, dot);
}

}  // namespace

Catalogue::BootNumbers Catalogue::ReadBootNumbers() {
    BootNumbers found;
    Futils::DirectoryWalk walk(Moraine::ArchPathAbs);
    while (walk.Next()) {
        unsigned short number = 0;
        (void)LogFileUtils::GetFnBootNum(Stem(walk.Name()), number);  // 0: foreign
        if (number > found.max) found.max = number;
        if (number < found.min) found.min = number;
        if (number <= Moraine::MaxBootNum) found.used.set(number);
    }
    if (found.min == Moraine::MaxBootNum && found.max == 0) found.min = 0;
    return found;
}
