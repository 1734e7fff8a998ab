// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// What a file is, by its name alone. The grammar stands in logfileutils/names.cpp; this parser
// logs nothing, because programs that read the log run on machines with a log of their own, and it
// is strict where the daemon is deliberately wide:
//
//   messages.txt                               the live log
//   messages.txt.tmp                           a log whose archiving was interrupted
//   messages.txt.3, messages.txt.old           rotations: a suffix without dots
//   messages.txt.xz, messages.txt.tmp.xz, messages.txt.3.xz
//                                              the same in a download, compressed
//   messages.013.1970-01-01.00:14:07.txt.xz    an archive file of boot 13
//   messages.ANYTHING.xz                       an archive file's name without a boot number
#pragma once

#include <cstdint>
#include <string_view>

namespace Reader {

// In the order of the text, oldest first.
enum class Kind : std::uint8_t { Archive, Interrupted, Rotation, Live };

struct Name {
    enum class Form : std::uint8_t {
        Foreign,   // not the log's
        Misnamed,  // an archive file's name, without a boot number up to 65535
        Log,
    };
    Form form = Form::Foreign;
    Kind kind = Kind::Live;
    bool isCompressed = false;
    std::uint32_t boot = 0;  // of an archive file
    std::string_view rest =
        {};  // of an archive file: all behind the boot number; a rotation's suffix
};

// What is behind the last slash.
std::string_view BareName(std::string_view path);

// The name of an entry of an archive folder: messages.txt.xz is Misnamed there.
Name ParseArchiveName(std::string_view name);

// The name of an entry of a folder for logs that wait. An archive file's name is parsed as above.
Name ParseName(std::string_view name);

// True if an archive file is named as the daemon names it, with date and time.
bool IsFullArchiveName(std::string_view name);

// The order of the text among the rotations: true if `a` is older than `b`.
bool IsOlderRotation(std::string_view a, std::string_view b);

}  // namespace Reader
