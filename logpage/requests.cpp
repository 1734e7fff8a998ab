// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// What the requests share, and the shortest of them.
#include "logpage/requests.h"

#include <cerrno>
#include <cstring>

#include "logpage/limits.h"
#include "reader/format.h"
#include "reader/status.h"

namespace Page {

void TakeTurn() {
    if (!TakeSlot()) throw Error{503, "four requests are running; try again"};
}

std::unique_ptr<Reader::Log> OpenLog(const Reader::Report& report) {
    // The log goes on reporting when this function has returned.
    const auto reason = std::make_shared<std::string>();
    auto log = std::make_unique<Reader::Log>(
        [reason, report](const std::string& file, const std::string& what) {
            if (reason->empty()) *reason = file + ": " + what;
            if (report) report(file, what);
        });
    const bool hasFailed = log->OpenDevice();
    if (hasFailed && log->NumSources() == 0) {
        if (reason->ends_with(std::strerror(EACCES))) *reason += ": LOG_GROUP is not set";
        throw Error{500, *reason};
    }
    return log;
}

void ServeStatus(Parameters& parameters, Answer& answer) {
    parameters.RefuseOthers();
    TakeTurn();
    answer.Write(Reader::ToJson(Reader::ReadStatus()) + '\n');
    answer.Flush();
}

}  // namespace Page
