// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Prints the newest errors of the log, newest first, with the boot that each is of: from the
// device's own folders or, with an argument, from a copy or a download.
#include <vandis-moraine/reader/log.h>
#include <cstdio>

int main(int argc, char** argv) {
    const Reader::Report report = [](const std::string& file, const std::string& reason) {
        std::fprintf(stderr, "last-errors: %s: %s\n", file.c_str(), reason.c_str());
    };
    Reader::Log log(report);
    bool hasFailed = argc > 1 ? log.OpenCopy(argv[1]) : log.OpenDevice();

    Reader::Query query;
    query.filter.severity = 3;  // err
    query.newestFirst = true;
    query.lines = 10;
    hasFailed = log.Read(query, [](const Reader::Line& line) {
        const Reader::Fields fields = line.GetFields();
        std::printf("boot %u: %.*s: %.*s\n", line.source->boot, static_cast<int>(fields.tag.size()),
                    fields.tag.data(), static_cast<int>(fields.message.size()),
                    fields.message.data());
        return true;  // more, please
    }) || hasFailed;
    return hasFailed ? 1 : 0;
}
