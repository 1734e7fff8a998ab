// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// moraine boots
#include <array>
#include <cstdio>

#include "reader/format.h"
#include "tool/input.h"
#include "tool/output.h"
#include "tool/verbs.h"

namespace Tool {

namespace {

enum LongOnly { Json = 256, NoPager };

constexpr Option Options[]{
    {'D', "directory", Option::Value::Required}, {Json, "json"}, {NoPager, "no-pager"}};

std::string FormatTime(const std::optional<Reader::CivilTime>& time, const char* none) {
    if (!time) return none;
    std::string text;
    Reader::AppendTime(text, *time);
    return text;
}

void AppendRow(std::string& out, const Reader::BootRow& row) {
    std::array<char, 160> text;
    std::string first = FormatTime(row.times.first, "-");
    std::string last = FormatTime(row.times.last, "-");
    for (std::string* const time : {&first, &last}) {
        const std::size_t separator = time->find('T');
        if (separator != std::string::npos) (*time)[separator] = ' ';
    }
    const int length = std::snprintf(text.data(), text.size(), "%6lld %6u %6zu %10s  %-19s  %s\n",
                                     static_cast<long long>(row.files.offset), row.files.boot,
                                     row.files.sources.size(), FormatSize(row.bytes).c_str(),
                                     first.c_str(), last.c_str());
    out.append(text.data(), static_cast<std::size_t>(length));
}

}  // namespace

int RunBoots(Arguments arguments) {
    std::optional<std::string> directory;
    bool isJson = false;
    bool usesPager = true;
    OptionReader options(Options, arguments);
    while (const int id = options.Next()) {
        if (id == 'D') directory = ReadDirectory(options);
        if (id == Json) isJson = true;
        if (id == NoPager) usesPager = false;
    }
    HandleInterrupt();
    Input input = OpenInput(directory);
    Output output;
    ProgressLine progress;
    const std::vector<Reader::BootFiles> boots = input.log->Boots();
    const std::size_t total = boots.size();
    std::string text =
        isJson ? "[" : "OFFSET   BOOT  FILES       SIZE  FIRST                LAST\n";
    std::size_t done = 0;
    for (const Reader::BootFiles& boot : boots) {
        Reader::BootRow row;
        input.hasFailed = Reader::ReadBootRow(*input.log, boot, row) || input.hasFailed;
        if (isJson && done != 0) text += ',';
        if (isJson) Reader::AppendJson(text, row);
        if (!isJson) AppendRow(text, row);
        ++done;
        if (progress.IsDue()) {
            progress.Show("moraine: " + std::to_string(done) + " of " + std::to_string(total) +
                          " boots");
        }
    }
    progress.Clear();
    if (isJson) text += "]\n";
    if (isJson || total != 0) {
        if (usesPager && !isJson) output.StartPager();
        output.Write(text);
    }
    output.Finish();
    if (input.hasFailed) return FailureStatus;
    return total != 0 ? FoundStatus : NothingStatus;
}

}  // namespace Tool
