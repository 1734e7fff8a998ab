// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// moraine verify
#include "reader/format.h"
#include "tool/input.h"
#include "tool/output.h"
#include "tool/verbs.h"
#include "tool/wording.h"

namespace Tool {

namespace {

enum LongOnly { Json = 256 };

constexpr Option Options[]{{'D', "directory", Option::Value::Required}, {Json, "json"}};

struct Damage {
    std::string file;
    std::string reason;
};

struct Summary {
    std::size_t files = 0;
    std::uint64_t bytes = 0, textBytes = 0, lines = 0;
    std::vector<Damage> damaged;
    bool isIncomplete = false;  // there may be files that are not counted
};

std::string ToJson(const Summary& summary) {
    std::string text = "{\"files\":" + std::to_string(summary.files) +
                       ",\"bytes\":" + std::to_string(summary.bytes) +
                       ",\"text_bytes\":" + std::to_string(summary.textBytes) +
                       ",\"lines\":" + std::to_string(summary.lines) + ",\"damaged\":[";
    for (const Damage& damage : summary.damaged) {
        if (&damage != &summary.damaged.front()) text += ',';
        text += "{\"file\":";
        Reader::AppendJsonString(text, damage.file);
        text += ",\"reason\":";
        Reader::AppendJsonString(text, damage.reason);
        text += '}';
    }
    return text + "]}\n";
}

std::string Verdict(const Summary& summary) {
    if (!summary.damaged.empty()) return std::to_string(summary.damaged.size()) + " failed";
    if (summary.isIncomplete) return "not all could be read";
    return summary.files == 0 ? "nothing to check" : "all intact";
}

std::string ToText(const Summary& summary, bool isTerminal) {
    std::string text;
    for (const Damage& damage : summary.damaged) {
        if (isTerminal) {
            Reader::AppendVisible(text, damage.file);
        } else {
            text += damage.file;
        }
        text += ": " + damage.reason + "\n";
    }
    text += Counted(summary.files, "archive file", "archive files") + ", " +
            FormatSize(summary.bytes) + ", " + FormatSize(summary.textBytes) + " of text, " +
            Counted(summary.lines, "line", "lines") + ": ";
    return text + Verdict(summary) + "\n";
}

}  // namespace

int RunVerify(Arguments arguments) {
    std::optional<std::string> directory;
    bool isJson = false;
    OptionReader options(Options, arguments);
    while (const int id = options.Next()) {
        if (id == 'D') directory = ReadDirectory(options);
        if (id == Json) isJson = true;
    }
    HandleInterrupt();
    Output output;
    ProgressLine progress;
    Summary summary;
    Reader::Log log(PrintMessage);
    log.CollectMisnamed([&](const std::string& name, const std::string&) {
        summary.damaged.push_back({name, "no boot number in its name"});
        ++summary.files;
    });
    summary.isIncomplete = directory ? log.OpenCopy(*directory) : log.OpenDevice();
    bool hasFailed = summary.isIncomplete;
    for (std::size_t i = 0; i < log.NumSources(); ++i) {
        if (log.GetSource(i).kind != Reader::Kind::Archive) continue;
        const Reader::Log::Check check = log.Verify(i);
        if (check.isGone) continue;
        const std::string name(log.GetSource(i).name);
        ++summary.files;
        summary.bytes += check.bytes;
        summary.textBytes += check.textBytes;
        summary.lines += check.lines;
        if (check.isUnreadable) {
            PrintMessage(name, check.damage);
            hasFailed = true;
        }
        if (!check.damage.empty()) summary.damaged.push_back({name, check.damage});
        if (progress.IsDue()) {
            progress.Show("moraine: " + std::to_string(i + 1) + " of " +
                          std::to_string(log.NumSources()) + " files, " +
                          FormatSize(summary.textBytes) + " of text");
        }
    }
    progress.Clear();
    output.Write(isJson ? ToJson(summary) : ToText(summary, output.IsTerminal()));
    output.Finish();
    if (hasFailed) return FailureStatus;
    return summary.damaged.empty() ? FoundStatus : NothingStatus;
}

}  // namespace Tool
