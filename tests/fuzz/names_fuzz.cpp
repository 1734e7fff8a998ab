// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Archive and rotation names: no name that a directory may hold breaks the parsers, and they agree
// with the grammar written out another way.
#include <filesystem>
#include <sstream>
#include <vector>

#include "logfileutils/log_file_utils.h"
#include "logging/logging.h"
#include "tests/fuzz/fuzz.h"
#include "util/format.h"

namespace {

std::vector<std::string> Fields(const std::string& name) {
    std::vector<std::string> fields;
    std::istringstream stream(name);
    for (std::string field; std::getline(stream, field, '.');) fields.push_back(field);
    return fields;
}

void CheckBootNumber(const std::string& name, const std::vector<std::string>& fields) {
    unsigned short bootNum = 12345;
    const bool failed = LogFileUtils::GetFnBootNum(name, bootNum);
    if (failed || fields.size() < 2) REQUIRE(bootNum == 0);
    if (fields.size() < 2) REQUIRE(!failed);
    if (failed) return;

    // A name built with the number that was read gives the same number.
    const std::string built = Util::Format("messages.%03u.1970-01-01.00:00:00.txt.xz", bootNum);
    unsigned short again = 0;
    REQUIRE(!LogFileUtils::GetFnBootNum(built, again));
    REQUIRE(again == bootNum);
    REQUIRE(LogFileUtils::IsArchiveFileName(built));
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    Logging::SetLogLevel(Logging::SeverityEmergency);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string name = ToString(data, size);
    const std::vector<std::string> fields = Fields(name);
    const bool isOurs = fields.size() >= 2 && std::filesystem::path(fields.front()) == "messages";

    REQUIRE(LogFileUtils::IsArchiveFileName(name) == (isOurs && fields.back() == "xz"));
    REQUIRE(LogFileUtils::IsSyslogRotFn(name) ==
            (isOurs && fields.back() != "txt" && fields[fields.size() - 2] == "txt"));
    CheckBootNumber(name, fields);
    return 0;
}
