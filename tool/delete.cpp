// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Deletes archive files. The daemon keeps a running total of the archive's size, so it must not run
// meanwhile; it is started again whatever happens.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "daemon/moraine.h"
#include "reader/log.h"
#include "tool/held_signals.h"
#include "tool/init_script.h"
#include "tool/input.h"
#include "tool/options.h"
#include "tool/output.h"
#include "tool/verbs.h"
#include "tool/wording.h"

namespace Tool {

namespace {

struct Request {
    enum class From { Nowhere, Oldest, Newest } from = From::Nowhere;
    std::optional<std::uint64_t> maxFiles;
    std::optional<std::uint64_t> maxBoots;
    std::optional<Reader::BootChoice> boots;  // -b
    bool isConfirmed = false;
    bool isDryRun = false;
};

void SetFrom(Request& request, Request::From from) {
    if (request.from != Request::From::Nowhere && request.from != from) {
        throw UsageError("--oldest and --newest exclude each other");
    }
    request.from = from;
}

// What is not said precisely enough is refused: a forgotten option must not delete everything.
void Check(const Request& request) {
    const bool hasLimit = request.maxFiles || request.maxBoots;
    if (request.from == Request::From::Nowhere && hasLimit) {
        throw UsageError("--files and --boots need --oldest or --newest");
    }
    if (request.from != Request::From::Nowhere && !hasLimit && !request.boots) {
        throw UsageError("--oldest and --newest need --files, --boots or -b");
    }
    if (request.from == Request::From::Nowhere && !request.boots) {
        throw UsageError("say what to delete: --oldest or --newest with --files or --boots, or -b");
    }
}

Request ReadRequest(Arguments arguments) {
    enum { Oldest = 256, Newest, Files, Boots, Yes, DryRun };
    static constexpr Option Options[]{{Oldest, "oldest"},
                                      {Newest, "newest"},
                                      {Files, "files", Option::Value::Required},
                                      {Boots, "boots", Option::Value::Required},
                                      {'b', "boot", Option::Value::OptionalRange},
                                      {Yes, "yes"},
                                      {DryRun, "dry-run"}};
    Request request;
    OptionReader options(Options, arguments);
    while (const int option = options.Next()) {
        switch (option) {
            case Oldest:
                SetFrom(request, Request::From::Oldest);
                break;
            case Newest:
                SetFrom(request, Request::From::Newest);
                break;
            case Files:
                request.maxFiles = options.Number();
                break;
            case Boots:
                request.maxBoots = options.Number();
                break;
            case 'b':
                request.boots = ReadBoots(options);
                break;
            case Yes:
                request.isConfirmed = true;
                break;
            default:
                request.isDryRun = true;
        }
    }
    Check(request);
    return request;
}

struct Victim {
    std::string name;
    std::uint64_t size = 0;
};

std::vector<Victim> Choose(const Request& request, const Reader::Log& log) {
    std::vector<Victim> victims;
    std::optional<Reader::BootRange> range;
    if (request.boots) range = ResolveBoots(log, *request.boots);
    std::set<std::uint32_t> boots;
    const std::size_t count = log.NumSources();
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t index = request.from == Request::From::Newest ? count - 1 - i : i;
        const Reader::Source source = log.GetSource(index);
        if (source.kind != Reader::Kind::Archive) continue;
        if (range && (source.boot < range->first || source.boot > range->last)) continue;
        if (request.maxFiles && victims.size() >= *request.maxFiles) break;
        boots.insert(source.boot);
        if (request.maxBoots && boots.size() > *request.maxBoots) break;
        victims.push_back({std::string(source.name), log.GetSize(index)});
    }
    return victims;
}

std::uint64_t TotalSize(const std::vector<Victim>& victims) {
    std::uint64_t size = 0;
    for (const Victim& victim : victims) size += victim.size;
    return size;
}

std::string Summary(const std::vector<Victim>& victims) {
    return Counted(victims.size(), "file", "files") + ", " + FormatSize(TotalSize(victims));
}

void Print(const Victim& victim, std::FILE* stream) {
    (void)std::fprintf(stream, "%12llu  %s\n", static_cast<unsigned long long>(victim.size),
                       Shown(victim.name, fileno(stream)).c_str());
}

bool IsConfirmed(const std::vector<Victim>& victims) {
    for (const Victim& victim : victims) Print(victim, stderr);
    (void)std::fprintf(stderr, "Delete %s? [y/N] ", Summary(victims).c_str());
    std::string answer;
    for (int c; (c = std::getchar()) != EOF && c != '\n';) answer += static_cast<char>(c);
    return answer == "y" || answer == "Y" || answer == "yes";
}

// Returns true on failure.
bool CallScript(const char* action) {
    std::string output;
    if (!RunInitScript(Moraine::ArchInit, action, output)) return false;
    PrintMessage(Moraine::ArchInit.native() + " " + action, output);
    return true;
}

// Prints those that it removes; `victims` keeps only them. Returns true on failure.
bool Remove(std::vector<Victim>& victims) {
    bool hasFailed = false;
    auto next = victims.begin();
    for (const Victim& victim : victims) {
        const std::filesystem::path path = Moraine::ArchPathAbs / victim.name;
        if (unlink(path.c_str()) == 0) {
            Print(victim, stdout);
            *next++ = victim;
        } else if (errno != ENOENT) {
            PrintMessage("cannot delete " + path.native(), std::strerror(errno));
            hasFailed = true;
        }
    }
    victims.erase(next, victims.end());
    if (std::fflush(stdout) == 0) return hasFailed;
    if (errno != EPIPE) PrintMessage("standard output", std::strerror(errno));
    return true;
}

int DeleteWithoutDaemon(std::vector<Victim>& victims) {
    const HeldSignals signals;
    bool hasFailed = CallScript("stop");
    const bool isInterrupted = HeldSignals::HasInterrupt();
    if (!hasFailed && !isInterrupted) hasFailed = Remove(victims);
    if (CallScript("start")) hasFailed = true;
    return hasFailed ? FailureStatus : 0;
}

bool CanDelete() {
    if (access(Moraine::ArchPathAbs.c_str(), W_OK | X_OK) == 0) return true;
    PrintMessage("cannot delete from " + Moraine::ArchPathAbs.native(), std::strerror(errno));
    return false;
}

}  // namespace

int RunDelete(Arguments arguments) {
    const Request request = ReadRequest(arguments);
    HandleInterrupt();
    Reader::Log log(PrintMessage);
    log.CollectMisnamed(
        [](const std::string&, const std::string&) {});  // They stay, and that is all.
    const bool isIncomplete = log.OpenDevice();
    std::vector<Victim> victims = Choose(request, log);
    if (victims.empty()) {
        (void)std::fputs("moraine: nothing to delete\n", stderr);
        return isIncomplete ? FailureStatus : NothingStatus;
    }

    const bool mustAsk = !request.isConfirmed && !request.isDryRun;
    if (mustAsk && isatty(STDIN_FILENO) == 0) {
        throw UsageError("delete needs --yes where it cannot ask");
    }
    if (!request.isDryRun && !CanDelete()) return FailureStatus;
    if (request.isDryRun) {
        for (const Victim& victim : victims) Print(victim, stdout);
        FlushStandardOutput();
        (void)std::fprintf(stderr, "Would delete %s.\n", Summary(victims).c_str());
        return 0;
    }
    if (mustAsk && !IsConfirmed(victims)) {
        (void)std::fputs("Nothing is deleted.\n", stderr);
        return NothingStatus;
    }
    const int status = DeleteWithoutDaemon(victims);
    if (status == 0) (void)std::fprintf(stderr, "Deleted %s.\n", Summary(victims).c_str());
    return status;
}

}  // namespace Tool
