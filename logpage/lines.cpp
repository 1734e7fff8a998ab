// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The addresses that answer with lines: /log and /follow.
//
// A page of lines is read from its cursor on, in the direction in which it lies, and ends as soon
// as it is full. To know whether there are more, one line more than asked for is read.
#include <algorithm>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "logpage/limits.h"
#include "logpage/requests.h"
#include "reader/expression.h"
#include "reader/format.h"
#include "reader/line.h"
#include "reader/pack.h"
#include "reader/time.h"

namespace Page {

namespace {

constexpr std::uint64_t DefaultLines = 500;
constexpr std::uint64_t MaxLines = 10'000;
constexpr std::uint64_t DefaultFollowed = 10;

// What /log and /follow have in common.
struct Selection {
    Reader::Query query;
    std::optional<Reader::BootChoice> boots;
    std::optional<std::uint64_t> lines;
};

std::optional<Reader::Cursor> TakeCursor(Parameters& parameters, std::string_view name) {
    const std::optional<std::string> text = parameters.Text(name);
    if (!text) return std::nullopt;
    const std::optional<Reader::Cursor> cursor = Reader::ParseCursor(*text);
    if (!cursor) Refuse(name, *text, "is not a cursor");
    return cursor;
}

std::optional<Reader::CivilTime> TakeTime(Parameters& parameters, std::string_view name) {
    const std::optional<std::string> text = parameters.Text(name);
    if (!text) return std::nullopt;
    const std::optional<Reader::CivilTime> time =
        Reader::ParseTime(*text, Reader::LocalTime(std::time(nullptr)));
    if (!time) {
        Refuse(name, *text, "is not a time, such as '2026-11-21 17:48', 'yesterday' or '-2h'");
    }
    return time;
}

void TakePattern(Parameters& parameters, Reader::Filter& filter) {
    Reader::Expression expression;
    expression.patterns = parameters.Texts("grep");
    expression.isFixed = parameters.Flag("fixed-strings");
    expression.ignoresCase = parameters.Flag("ignore-case");
    filter.isInverted = parameters.Flag("invert-match");
    if (expression.patterns.empty()) {
        filter.isInverted = false;
        return;
    }
    std::string error;
    if (filter.pattern.Compile(expression, error)) Refuse("grep", expression.patterns[0], error);
}

Selection TakeSelection(Parameters& parameters) {
    Selection selection;
    Reader::Filter& filter = selection.query.filter;
    TakePattern(parameters, filter);
    if (const auto text = parameters.Text("priority")) {
        filter.severity = Reader::ParseSeverity(*text);
        if (!filter.severity) Refuse("priority", *text, "is neither emerg to debug nor 0 to 7");
    }
    filter.tags = parameters.Texts("tag");
    filter.since = TakeTime(parameters, "since");
    filter.until = TakeTime(parameters, "until");
    selection.boots = TakeBoots(parameters);
    selection.lines = parameters.Number("lines", MaxLines);
    selection.query.after = TakeCursor(parameters, "after");
    selection.query.cancel = &TimeIsUp;
    return selection;
}

// To be called when all has been read that the processor time allows.
void RequireTime(const Reader::Query& query) {
    if (!TimeIsUp) return;
    const std::string name = query.filter.pattern.IsSet() ? "grep: " : "";
    throw Error{500, name + "this takes too long for the device; name a boot or a shorter time"};
}

// Opens the log for a selection whose parameters are all known to be valid.
std::unique_ptr<Reader::Log> Open(Selection& selection, bool isChecked) {
    TakeTurn();
    // The log reports a position that is not in it any more under the name "cursor".
    const std::string name = selection.query.before ? "before" : "after";
    const auto refuse = [name, &query = selection.query] {
        RequireTime(query);  // It may only not have been found yet.
        throw Error{404, name + ": this line is not kept any more"};
    };
    std::unique_ptr<Reader::Log> log =
        OpenLog([refuse](const std::string& file, const std::string& /*what*/) {
            if (file == "cursor") refuse();
        });
    selection.query.filter.boots = ResolveBoots(selection.boots, *log);
    // Where the header is sent before the position is looked for.
    const auto& cursor = selection.query.before ? selection.query.before : selection.query.after;
    if (isChecked && cursor && !log->HasLine(*cursor, selection.query.cancel)) refuse();
    return log;
}

std::string ToJson(const Reader::Line& line) {
    std::string text;
    // For the longest form of its bytes: a long line is not copied while the text grows.
    text.reserve(512 + 6 * line.text.size());
    Reader::AppendJson(text, line, true);
    return text;
}

// -- /log

class Page {
public:
    Page(Reader::Log& log, const Reader::Query& query, std::uint64_t lines, Answer& answer)
        : log(log), query(query), lines(lines), answer(answer) {}

    void Serve() {
        query.progress = [&](const Reader::Progress& now) {
            progress = now;
            answer.KeepAlive(" ");
        };
        if (query.newestFirst || query.fromOldest) {
            ReadOnwards();
        } else {
            ReadLast();
        }
        std::string end = hasMore ? R"({"end":true,"more":true)" : R"({"end":true,"more":false)";
        if (const auto position = TimeIsUp ? Reached() : std::nullopt) {
            end = R"({"end":true,"more":true,"cursor":")" + ToText(*position) + '"';
        } else {
            RequireTime(query);
        }
        answer.Write(end + "}\n");
        answer.Flush();
    }

private:
    // The order of the answer is that of the reading: the line behind the last one ends it.
    void ReadOnwards() {
        query.lines = lines + 1;
        std::uint64_t written = 0;
        Read(query, [&](const Reader::Line& line) {
            hasMore = written == lines;
            if (hasMore) return false;
            answer.Write(ToJson(line));
            last = line.GetCursor();
            lastFile = line.source->name;
            ++written;
            return true;
        });
    }

    // Where a search back through the log continues after its time is up: before the last line
    // that it has found, or before the first line of the last file that it has read, whichever is
    // older. Nothing if it has got nowhere.
    std::optional<Reader::Cursor> Reached() {
        if (!query.newestFirst || query.after) return std::nullopt;
        std::vector<std::size_t> files;  // oldest first
        for (std::size_t i = 0; i < log.NumSources() && files.size() < progress.allFiles; ++i) {
            const std::uint32_t boot = log.GetSource(i).boot;
            const auto& range = query.filter.boots;
            if (!range || (boot >= range->first && boot <= range->last)) files.push_back(i);
        }
        const auto isOfLast = [&](std::size_t i) { return log.GetSource(i).name == lastFile; };
        const auto unread = files.end() - static_cast<long>(progress.files);
        if (std::any_of(files.begin(), unread, isOfLast)) return last;
        // Before the first line of a file there is nothing to read in it.
        const std::size_t own = query.before && query.before->number == 1 ? 1 : 0;
        for (std::size_t done = progress.files; done > own; --done) {
            // The daemon may have deleted it meanwhile.
            if (const auto first = FirstLine(files[files.size() - done])) return first;
        }
        return last;
    }

    std::optional<Reader::Cursor> FirstLine(std::size_t source) {
        std::optional<Reader::Cursor> first;
        Reader::Query any;
        any.source = source;
        any.lines = 1;
        any.fromOldest = true;
        Read(any, [&](const Reader::Line& line) {
            first = line.GetCursor();
            return false;
        });
        return first;
    }

    // The last lines, oldest first: whether there is one before the first is asked separately.
    void ReadLast() {
        query.lines = lines;
        std::uint64_t written = 0;
        std::optional<Reader::Cursor> first;
        Read(query, [&](const Reader::Line& line) {
            if (written++ == 0) first = line.GetCursor();
            answer.Write(ToJson(line));
            return true;
        });
        if (written < lines) return;
        query.before = first ? first : query.before;
        query.lines = 1;
        query.newestFirst = true;
        Read(query, [&](const Reader::Line&) {
            hasMore = true;
            return false;
        });
    }

    void Read(const Reader::Query& part, const Reader::Take& take) {
        // What could not be read was reported; the rest is worth having.
        (void)log.Read(part, take);
    }

    Reader::Log& log;
    Reader::Query query;
    std::uint64_t lines;
    Answer& answer;
    bool hasMore = false;
    Reader::Progress progress;
    std::optional<Reader::Cursor> last;  // of the lines that were written
    std::string lastFile;
};

void ServeCount(Reader::Log& log, const Reader::Query& query, Answer& answer) {
    std::uint64_t count = 0;
    Reader::Query counted = query;
    counted.progress = [&](const Reader::Progress&) { answer.KeepAlive(" "); };
    (void)log.Count(counted, count);  // As above.
    RequireTime(query);
    answer.Write("{\"count\":" + std::to_string(count) + "}\n{\"end\":true,\"more\":false}\n");
    answer.Flush();
}

// The lines as a file: all of them, unless a number was given.
void ServeFile(Reader::Log& log, const Reader::Query& query, bool isJson, Answer& answer) {
    answer.SetType(isJson ? "application/x-ndjson" : "text/plain; charset=utf-8");
    answer.SetFileName(Reader::DownloadName(Reader::HostName(), "log", std::time(nullptr),
                                            isJson ? "json" : "txt"));
    if (!answer.HasBody()) return answer.Flush();
    std::string text;
    Reader::Query quiet = query;
    quiet.progress = [&](const Reader::Progress&) { answer.KeepAlive({}); };
    (void)log.Read(quiet, [&](const Reader::Line& line) {
        text.clear();
        if (isJson) {
            Reader::AppendJson(text, line);
        } else {
            text.append(line.text).push_back('\n');
        }
        answer.Write(text);
        return true;
    });
    RequireTime(query);
    answer.Flush();
}

}  // namespace

void ServeLog(Parameters& parameters, Answer& answer) {
    Selection selection = TakeSelection(parameters);
    Reader::Query& query = selection.query;
    query.before = TakeCursor(parameters, "before");
    query.newestFirst = parameters.Flag("reverse");
    query.fromOldest = query.after.has_value() && !query.newestFirst;
    const bool isCount = parameters.Flag("count");
    const std::optional<std::string> file = parameters.Text("download");
    if (file && *file != "text" && *file != "json") {
        Refuse("download", *file, "is neither text nor json");
    }
    parameters.RefuseOthers();
    if (query.before && query.after) throw Error{400, "before: not together with after"};
    if (isCount && file) throw Error{400, "count: not together with download"};

    const std::unique_ptr<Reader::Log> log = Open(selection, !answer.HasBody());
    answer.SetType("application/x-ndjson");
    if (file) {
        query.lines = selection.lines;
        return ServeFile(*log, query, *file == "json", answer);
    }
    if (!answer.HasBody()) return answer.Flush();
    if (isCount) {
        query.lines = selection.lines;
        return ServeCount(*log, query, answer);
    }
    Page(*log, query, selection.lines.value_or(DefaultLines), answer).Serve();
}

// -- /follow

void ServeFollow(Parameters& parameters, Answer& answer) {
    Selection selection = TakeSelection(parameters);
    parameters.RefuseOthers();
    const std::unique_ptr<Reader::Log> log = Open(selection, true);
    selection.query.lines = selection.lines;
    if (!selection.query.lines && !selection.query.after) selection.query.lines = DefaultFollowed;

    answer.SetType(EventStream);
    answer.Flush();
    if (!answer.HasBody()) return;
    selection.query.progress = [&](const Reader::Progress&) { answer.KeepAlive(":\n\n"); };
    // What could not be read was reported. A browser reads on by itself when the answer ends.
    (void)log->Follow(
        selection.query,
        [&](const Reader::Line& line) {
            answer.Write("id: " + ToText(line.GetCursor()) + "\ndata: " + ToJson(line) + '\n');
            return !TimeIsUp;
        },
        [&] {
            answer.KeepAlive(":\n\n");
            return !TimeIsUp;
        });
    answer.Flush();
}

}  // namespace Page
