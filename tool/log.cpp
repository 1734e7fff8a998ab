// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// moraine log
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

#include "reader/time.h"
#include "tool/input.h"
#include "tool/line_writer.h"
#include "tool/options.h"
#include "tool/output.h"
#include "tool/output_file.h"
#include "tool/verbs.h"

namespace Tool {

namespace {

using Value = Option::Value;

enum LongOnly { Color = 256, NoPager, AfterCursor, CursorFile, ShowCursor };

constexpr Option Options[]{{'b', "boot", Value::OptionalRange},
                           {'n', "lines", Value::OptionalNumberOrAll},
                           {'r', "reverse"},
                           {'f', "follow"},
                           {'g', "grep", Value::Required},
                           {'E', "extended-regexp"},
                           {'F', "fixed-strings"},
                           {'i', "ignore-case"},
                           {'v', "invert-match"},
                           {'C', "context", Value::Required},
                           {'A', "after-context", Value::Required},
                           {'B', "before-context", Value::Required},
                           {'p', "priority", Value::Required},
                           {'t', "tag", Value::Required},
                           {'t', "identifier", Value::Required},  // as journalctl has it
                           {'S', "since", Value::Required},
                           {'U', "until", Value::Required},
                           {'c', "count"},
                           {'o', "output", Value::Required},
                           {'j', "jobs", Value::Required},
                           {'D', "directory", Value::Required},
                           {Color, "color", Value::Required},
                           {NoPager, "no-pager"},
                           {AfterCursor, "after-cursor", Value::Required},
                           {CursorFile, "cursor-file", Value::Required},
                           {ShowCursor, "show-cursor"}};

enum class When { Auto, Always, Never };

struct Request {
    Reader::Query query;
    Reader::Expression expression;
    std::optional<Reader::BootChoice> boots;
    std::optional<std::string> directory;
    std::optional<std::string> cursorFile;
    Format format = Format::Text;
    When color = When::Auto;
    bool usesPager = true;
    bool isFollowing = false;
    bool isCounting = false;
    bool showsCursor = false;
    bool hasLines = false;
};

constexpr std::uint64_t DefaultLines = 10;
constexpr std::uint64_t MaxJobs = 1024;

[[noreturn]] void ThrowUnknown(const OptionReader& options, const char* what) {
    throw UsageError(options.Name() + ": '" + options.Value() + "' is not " + what);
}

// err, or err..warning in either order.
void ReadPriority(const OptionReader& options, Reader::Filter& filter) {
    const std::string& text = options.Value();
    const std::size_t dots = text.find("..");
    const std::string_view first = std::string_view(text).substr(0, dots);
    const std::optional<int> one = Reader::ParseSeverity(first);
    const std::optional<int> other =
        dots == std::string::npos ? 0
                                  : Reader::ParseSeverity(std::string_view(text).substr(dots + 2));
    if (!one || !other) {
        ThrowUnknown(options,
                     "a severity (emerg alert crit err warning notice info debug, 0 to 7)");
    }
    filter.severity = std::max(*one, *other);
    filter.lowestSeverity = std::min(*one, *other);
}

Reader::CivilTime ReadTime(const OptionReader& options) {
    const auto time = Reader::ParseTime(options.Value(), Reader::LocalTime(std::time(nullptr)));
    if (!time) ThrowUnknown(options, "a time (2026-11-21 17:48:08, 17:48, yesterday, -2h, ...)");
    return *time;
}

Format ReadFormat(const OptionReader& options) {
    const std::string& name = options.Value();
    if (name == "text") return Format::Text;
    if (name == "json") return Format::Json;
    if (name == "export") return Format::Export;
    ThrowUnknown(options, "a format (text, json, export)");
}

When ReadWhen(const OptionReader& options) {
    const std::string& when = options.Value();
    if (when == "auto") return When::Auto;
    if (when == "always") return When::Always;
    if (when == "never") return When::Never;
    ThrowUnknown(options, "auto, always or never");
}

Reader::Cursor ReadCursor(const OptionReader& options) {
    const auto cursor = Reader::ParseCursor(options.Value());
    if (!cursor) ThrowUnknown(options, "a cursor");
    return *cursor;
}

void ReadLines(const OptionReader& options, Request& request) {
    request.hasLines = true;
    if (options.Value() == "all") {
        request.query.lines.reset();
    } else {
        request.query.lines = options.HasValue() ? options.Number() : DefaultLines;
    }
}

// What selects lines by their text or place. Returns false if the option is another.
bool ReadFilterOption(int id, const OptionReader& options, Request& request) {
    Reader::Query& query = request.query;
    switch (id) {
        case 'g':
            request.expression.patterns.push_back(options.Value());
            return true;
        case 'E':
            request.expression.isFixed = false;
            return true;
        case 'F':
            request.expression.isFixed = true;
            return true;
        case 'i':
            request.expression.ignoresCase = true;
            return true;
        case 'v':
            query.filter.isInverted = true;
            return true;
        case 'p':
            ReadPriority(options, query.filter);
            return true;
        case 't':
            query.filter.tags.push_back(options.Value());
            return true;
        case 'S':
            query.filter.since = ReadTime(options);
            return true;
        case 'U':
            query.filter.until = ReadTime(options);
            return true;
        case 'b':
            request.boots = ReadBoots(options);
            return true;
        default:
            return false;
    }
}

// How much is printed, and in which order.
bool ReadAmountOption(int id, const OptionReader& options, Request& request) {
    Reader::Query& query = request.query;
    switch (id) {
        case 'n':
            ReadLines(options, request);
            return true;
        case 'r':
            query.newestFirst = true;
            return true;
        case 'f':
            request.isFollowing = true;
            return true;
        case 'c':
            request.isCounting = true;
            return true;
        case 'C':
        case 'A':
        case 'B':
            if (id != 'A') query.contextBefore = options.Number();
            if (id != 'B') query.contextAfter = options.Number();
            query.marksBlocks = true;
            return true;
        case AfterCursor:
            query.after = ReadCursor(options);
            return true;
        case CursorFile:
            request.cursorFile = options.Value();
            query.leavesUnfinished = true;
            return true;
        default:
            return false;
    }
}

void ReadOutputOption(int id, const OptionReader& options, Request& request) {
    switch (id) {
        case 'o':
            request.format = ReadFormat(options);
            break;
        case 'j':
            request.query.jobs = static_cast<unsigned>(options.Number(MaxJobs));
            if (request.query.jobs == 0) ThrowUnknown(options, "a number of files above 0");
            break;
        case 'D':
            request.directory = ReadDirectory(options);
            break;
        case Color:
            request.color = ReadWhen(options);
            break;
        case ShowCursor:
            request.showsCursor = true;
            request.query.leavesUnfinished = true;
            break;
        default:
            request.usesPager = false;
            break;
    }
}

void CheckCombinations(const Request& request) {
    if (request.showsCursor && request.format != Format::Json) {
        throw UsageError("--show-cursor needs --output=json");
    }
    if (!request.isFollowing) return;
    if (request.directory) throw UsageError("--follow cannot be combined with --directory");
    if (request.query.newestFirst) throw UsageError("--follow cannot be combined with --reverse");
    if (request.isCounting) throw UsageError("--follow cannot be combined with --count");
}

Request ReadRequest(Arguments arguments) {
    Request request;
    request.query.jobs = NumProcessors();
    OptionReader options(Options, arguments);
    while (const int id = options.Next()) {
        if (!ReadFilterOption(id, options, request) && !ReadAmountOption(id, options, request)) {
            ReadOutputOption(id, options, request);
        }
    }
    CheckCombinations(request);
    std::string error;
    if (!request.expression.patterns.empty() &&
        request.query.filter.pattern.Compile(request.expression, error)) {
        throw UsageError("--grep: " + error);
    }
    if (!request.query.filter.pattern.IsSet()) {
        request.query.contextBefore = request.query.contextAfter = 0;
        request.query.marksBlocks = false;
    }
    return request;
}

// A file that remembers the last line that was printed; a device or a pipe does not, and is not
// waited for. Returns true on failure.
bool LoadCursor(const std::string& path, std::optional<Reader::Cursor>& cursor) {
    struct stat status {};
    if (stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) return false;
    FILE* const file = std::fopen(path.c_str(), "re");
    if (file == nullptr) {
        if (errno == ENOENT) return false;
        PrintMessage(path, strerror(errno));
        return true;
    }
    char text[128] = {};
    const bool hasLine = std::fgets(text, sizeof text, file) != nullptr;
    (void)std::fclose(file);  // Only read from.
    text[strcspn(text, "\n")] = '\0';
    if (!hasLine || text[0] == '\0') return false;  // An empty file is none.
    cursor = Reader::ParseCursor(text);
    if (!cursor) PrintMessage(path, "there is no cursor in it");
    return !cursor;
}

// Returns true on failure.
bool StoreCursor(const std::string& path, const Reader::Cursor& cursor) {
    OutputFile file;
    const bool hasFailed = file.Update(path, Reader::ToText(cursor) + "\n");
    if (hasFailed) PrintMessage(path, file.Error());
    return hasFailed;
}

std::string DescribeProgress(const Reader::Progress& progress, double seconds) {
    std::string text = "moraine: " + std::to_string(progress.files) + " of " +
                       std::to_string(progress.allFiles) + " files, " +
                       FormatSize(progress.textBytes) + " of text";
    text += ", " + std::to_string(progress.matches) + " matches";
    if (progress.files != 0) {
        const auto left = static_cast<double>(progress.allFiles - progress.files);
        const double rest = seconds * left / static_cast<double>(progress.files);
        text += ", " + std::to_string(static_cast<long>(rest + 1)) + " s left";
    }
    return text;
}

// The current boot is one, even if it has no log yet.
bool HasBoot(const Reader::Log& log, const Reader::BootRange& range) {
    const auto isInRange = [&](std::uint32_t boot) {
        return boot >= range.first && boot <= range.last;
    };
    const std::vector<Reader::BootFiles> boots = log.Boots();
    return isInRange(log.CurrentBoot()) ||
           std::any_of(boots.begin(), boots.end(),
                       [&](const Reader::BootFiles& row) { return isInRange(row.boot); });
}

// One call of the verb.
class LogPrinter {
public:
    explicit LogPrinter(Request& request);
    int Run();

private:
    bool Print(const Reader::Line& line);
    bool PrintAll();
    bool Idle();
    void Remember();
    int Count();

    Request& request;
    Output output;
    ProgressLine progress;
    LineWriter writer;
    Input input;
    bool hasPrinted = false;
    bool hasFailed = false;
    std::optional<Reader::Cursor> lastPrinted;
};

LineWriter::Style StyleOf(const Request& request, const Output& output) {
    LineWriter::Style style;
    style.format = request.format;
    style.hasCursor = request.showsCursor;
    style.isVisible = output.IsTerminal();
    const char* const noColor = std::getenv("NO_COLOR");
    const bool isWanted = output.IsTerminal() && (noColor == nullptr || *noColor == '\0');
    style.isColored = request.color == When::Always || (request.color == When::Auto && isWanted);
    return style;
}

Reader::Pattern HighlightOf(const Request& request) {
    const Reader::Filter& filter = request.query.filter;
    return filter.isInverted ? Reader::Pattern() : filter.pattern;
}

LogPrinter::LogPrinter(Request& request)
    : request(request), writer(StyleOf(request, output), HighlightOf(request)) {
    request.query.progress = [this](const Reader::Progress& now) {
        if (progress.IsDue() && !hasPrinted) {
            progress.Show(DescribeProgress(now, progress.Seconds()));
        }
    };
}

int LogPrinter::Run() {
    input = OpenInput(request.directory);
    hasFailed = input.hasFailed;
    Reader::Query& query = request.query;
    if (request.boots) {
        query.filter.boots = ResolveBoots(*input.log, *request.boots);
        const Reader::BootRange& range = *query.filter.boots;
        if (range.IsEmpty() || (!request.isFollowing && !HasBoot(*input.log, range))) {
            PrintMessage("", "there is no such boot in the log (see moraine boots)");
            if (request.isCounting) output.Write("0\n");
            output.Finish();
            return hasFailed ? FailureStatus : NothingStatus;
        }
    }
    if (request.cursorFile && LoadCursor(*request.cursorFile, query.after)) {
        hasFailed = true;
        request.cursorFile.reset();  // Whatever it is, it stays.
    }
    if (query.after && !input.log->HasLine(*query.after)) {
        PrintMessage("cursor", "its line is not in the log any more; beginning with the oldest");
        hasFailed = true;
        query.after.reset();
        if (!request.hasLines) query.lines.reset();
    } else if (request.isFollowing && !request.hasLines && !query.after) {
        query.lines = DefaultLines;
    }
    return request.isCounting
               ? Count()
               : (PrintAll() ? FailureStatus : (hasPrinted ? FoundStatus : NothingStatus));
}

int LogPrinter::Count() {
    std::uint64_t count = 0;
    hasFailed = input.log->Count(request.query, count) || hasFailed;
    progress.Clear();
    output.Write(std::to_string(count) + "\n");
    output.Finish();
    if (hasFailed) return FailureStatus;
    return count != 0 ? FoundStatus : NothingStatus;
}

// Returns true if something could not be read.
bool LogPrinter::PrintAll() {
    const Reader::Take take = [this](const Reader::Line& line) { return Print(line); };
    const bool hasProblem = request.isFollowing
                                ? input.log->Follow(request.query, take, [this] { return Idle(); })
                                : input.log->Read(request.query, take);
    hasFailed = hasProblem || hasFailed;
    progress.Clear();
    output.Finish();
    Remember();
    return hasFailed;
}

bool LogPrinter::Print(const Reader::Line& line) {
    if (!hasPrinted) {
        hasPrinted = true;
        progress.Clear();
        if (request.usesPager && !request.isFollowing) output.StartPager();
    }
    writer.Append(output.Text(), line);
    output.Check();
    if (request.cursorFile) lastPrinted = line.GetCursor();
    return true;
}

// Nothing new at the moment. A pipe that nobody reads any more ends the program.
bool LogPrinter::Idle() {
    output.Flush();
    Remember();
    pollfd reader{STDOUT_FILENO, 0, 0};
    if (poll(&reader, 1, 0) > 0 && (reader.revents & POLLERR) != 0) (void)raise(SIGPIPE);
    return true;
}

void LogPrinter::Remember() {
    if (!request.cursorFile || !lastPrinted) return;
    hasFailed = StoreCursor(*request.cursorFile, *lastPrinted) || hasFailed;
    lastPrinted.reset();
}

}  // namespace

int RunLog(Arguments arguments) {
    Request request = ReadRequest(arguments);
    HandleInterrupt();
    return LogPrinter(request).Run();
}

}  // namespace Tool
