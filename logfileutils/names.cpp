// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// File names, and nothing else, say what a file is. This is the grammar.
//
//   messages.txt                                  the live log
//   messages.txt.0 ... messages.txt.9             rotations by syslogd, .0 the newest
//   messages.txt.tmp                              a log that was taken from syslogd
//   messages.txt.7.xz, messages.txt.tmp.xz        their copies by xz; a start deletes them
//   messages.007.1970-01-01.00:14:07.txt.xz       an archive file:
//   |        |   |                   |
//   |        |   |                   `- compressed text
//   |        |   `- time since the device started, as a date and time counted from 1970-01-01
//   |        `- boot number, three digits (four above 999)
//   `- the live log's stem
//
// Ascending byte order of archive names is oldest first, up to boot number 999. The predicates are
// deliberately wide: an archive file is all that begins with the stem and ends in ".xz", a rotation
// all that has "txt" as its last but one field. So a ".tmp" file that could not be archived counts
// as a rotation, and the next check cycle takes it.
#include "logfileutils/names.h"

#include <vector>

#include "daemon/moraine.h"
#include "logfileutils/log_file_utils.h"
#include "logging/logging.h"
#include "util/format.h"
#include "util/parse.h"

namespace {

// Cuts a name into its fields. Returns true on failure. Logs an Error line then.
bool SliceName(std::vector<std::string>& fields, const std::string& name) {
    if (!Util::Slice(fields, name, '.')) return false;
    Log::Error("Slice() failure on %s.", name.c_str());
    return true;
}

bool IsExtension(const std::string& field, const std::filesystem::path& extension) {
    return extension.native().compare(1, std::string::npos, field) == 0;
}

}  // namespace

bool LogFileUtils::IsArchiveFileName(const std::string& name) {
    std::vector<std::string> fields;
    if (SliceName(fields, name) || fields.size() < 2) return false;
    return fields.front() == Moraine::SyslogFn.native() &&
           IsExtension(fields.back(), Moraine::XzExt);
}

bool LogFileUtils::GetFnBootNum(const std::string& name, unsigned short& bootNum) {
    bootNum = 0;
    std::vector<std::string> fields;
    if (SliceName(fields, name)) return true;
    if (fields.size() < 2) {
        Log::Error("%s is not a logging archive file.", name.c_str());
        return false;
    }
    const std::string& field = fields[1];
    int number = 0;
    if (Util::StringToInt(field, number, 0, 65535, nullptr, 10)) {
        Log::Error("StringToInt() failure on %s.", field.c_str());
        return true;
    }
    bootNum = static_cast<unsigned short>(number);
    return false;
}

bool LogFileUtils::IsSyslogRotFn(const std::string& name) {
    // Fast path: rejects the live log and foreign files without allocating.
    if (Util::EndsWith(name, Moraine::TxtExt.native())) return false;
    if (!Util::BeginsWith(name, Moraine::SyslogFn.native())) return false;

    std::vector<std::string> fields;
    if (SliceName(fields, name) || fields.size() < 2) return false;
    if (fields.front() != Moraine::SyslogFn.native()) return false;
    if (IsExtension(fields.back(), Moraine::TxtExt)) return false;
    return IsExtension(fields[fields.size() - 2], Moraine::TxtExt);
}

std::string Catalogue::ArchiveName(unsigned int bootNum, const std::string& timeStamp) {
    static const std::string ArchExt = Moraine::TxtExt.native() + Moraine::XzExt.native();
    return Util::Format("%s.%03u.%s%s", Moraine::SyslogFn.c_str(), bootNum, timeStamp.c_str(),
                        ArchExt.c_str());
}

std::string Catalogue::WithBootNum(const std::string& name, unsigned int bootNum) {
    // The old number may have four digits, after a foreign file kept the numbers from being
    // lowered.
    const std::size_t field = Moraine::SyslogFn.native().size() + 1;
    return Moraine::SyslogFn.native() + Util::Format(".%03u", bootNum) +
           name.substr(name.find('.', field));
}
