// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Writes the log to a tar file, which gets its name only once it is complete.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "reader/format.h"
#include "reader/log.h"
#include "reader/pack.h"
#include "tool/input.h"
#include "tool/options.h"
#include "tool/output.h"
#include "tool/output_file.h"
#include "tool/verbs.h"
#include "tool/wording.h"

namespace Tool {

namespace {

using Which = Reader::PackOptions::Which;

struct Request {
    std::string output;  // empty: named for host and time
    bool isForced = false;
    bool isDryRun = false;
    std::optional<Reader::BootChoice> boots;  // -b
    Reader::PackOptions options;
};

std::uint64_t ReadLimit(const std::string& text) {
    const std::optional<std::uint64_t> limit = Reader::ParsePackLimit(text);
    if (!limit) throw UsageError("--limit: '" + text + "' is not a size, as 500K, 15M, 2G or none");
    return *limit;
}

void SetWhich(Request& request, Which which) {
    if (request.options.which != Which::All && request.options.which != which) {
        throw UsageError("--oldest and --newest exclude each other");
    }
    request.options.which = which;
}

Request ReadRequest(Arguments arguments) {
    enum { Force = 256, Newest, Oldest, Files, Boots, DryRun };
    static constexpr Option Options[]{{'o', "output", Option::Value::Required},
                                      {Force, "force"},
                                      {'l', "limit", Option::Value::Required},
                                      {Newest, "newest"},
                                      {Oldest, "oldest"},
                                      {Files, "files", Option::Value::Required},
                                      {Boots, "boots", Option::Value::Required},
                                      {'b', "boot", Option::Value::OptionalRange},
                                      {DryRun, "dry-run"}};
    Request request;
    OptionReader options(Options, arguments);
    while (const int option = options.Next()) {
        switch (option) {
            case 'o':
                request.output = options.Value();
                if (request.output.empty()) throw UsageError("--output: no file is named");
                break;
            case Force:
                request.isForced = true;
                break;
            case 'l':
                request.options.limit = ReadLimit(options.Value());
                break;
            case Newest:
                SetWhich(request, Which::Newest);
                break;
            case Oldest:
                SetWhich(request, Which::Oldest);
                break;
            case Files:
                request.options.maxFiles = options.Number();
                break;
            case Boots:
                request.options.maxBoots = options.Number();
                break;
            case 'b':
                request.boots = ReadBoots(options);
                break;
            default:
                request.isDryRun = true;
        }
    }
    return request;
}

// Of what could not be opened, the messages have named what is not among the sources.
std::string LeftOut(const Reader::Packer& packer, bool isIncomplete) {
    const std::vector<std::uint32_t>& sources = packer.LeftOut();
    if (sources.empty()) return isIncomplete ? "nothing else left out" : "nothing left out";
    std::string text = Counted(sources.size(), "file", "files") + " left out";
    text += " (" + Shown(packer.NameOf(sources.front()), STDERR_FILENO);
    if (sources.size() > 1) text += " to " + Shown(packer.NameOf(sources.back()), STDERR_FILENO);
    return text + ")";
}

void PrintMembers(const Reader::Packer& packer, bool isIncomplete) {
    for (const Reader::PackMember& member : packer.Members()) {
        (void)std::printf("%12llu  %s\n", static_cast<unsigned long long>(member.size),
                          Shown(packer.NameOf(member.source)).c_str());
    }
    (void)std::printf("%12llu  in all, with the manifest; %s\n",
                      static_cast<unsigned long long>(packer.StreamSize()),
                      LeftOut(packer, isIncomplete).c_str());
}

int WriteFile(OutputFile& file, Reader::Packer& packer, const std::string& name,
              bool isIncomplete) {
    static constexpr std::uint64_t BetweenShows = 256UL << 10;
    const std::string planned = FormatSize(packer.StreamSize());
    ProgressLine progress;
    std::uint64_t shown = 0;
    const auto show = [&](std::uint64_t done) {
        if (done - shown < BetweenShows || !progress.IsDue()) return;
        shown = done;
        progress.Show("Packing: " + FormatSize(done) + " of " + planned);
    };
    const bool hasFailed =
        packer.Write([&](std::string_view bytes) { return file.Write(bytes); }, show) ||
        file.Commit();
    progress.Clear();
    if (hasFailed) {
        PrintMessage(file.Name(), file.Error());
        return FailureStatus;
    }
    (void)std::fprintf(stderr, "%s: %s, %s; %s\n", Shown(name, STDERR_FILENO).c_str(),
                       Counted(packer.Members().size(), "file", "files").c_str(),
                       FormatSize(packer.StreamSize()).c_str(),
                       LeftOut(packer, isIncomplete).c_str());
    return 0;
}

int Pack(const Request& request, const Reader::Log& log, const Reader::Report& report,
         bool isIncomplete) {
    const Reader::PackOrigin origin{.host = Reader::HostName(),
                                    .version = MORAINE_VERSION,
                                    .boot = log.CurrentBoot(),
                                    .time = std::time(nullptr)};
    const std::string name = request.output.empty()
                                 ? Reader::DownloadName(origin.host, "logs", origin.time, "tar")
                                 : request.output;
    OutputFile file;
    if (!request.isDryRun && file.Open(name, request.isForced)) {
        PrintMessage(file.Name(), file.Error());
        return FailureStatus;
    }
    Reader::Packer packer(log, request.options, origin, report);
    int status = 0;
    if (packer.Members().empty()) {
        PrintMessage("nothing to pack", LeftOut(packer, isIncomplete));
        status = NothingStatus;
    } else if (request.isDryRun) {
        PrintMembers(packer, isIncomplete);
        FlushStandardOutput();
    } else {
        status = WriteFile(file, packer, name, isIncomplete);
    }
    return isIncomplete || packer.HasUnreadable() ? FailureStatus : status;
}

}  // namespace

int RunPack(Arguments arguments) {
    Request request = ReadRequest(arguments);
    HandleInterrupt();
    const Reader::Report report = PrintMessage;
    Reader::Log log(report);
    const bool isIncomplete = log.OpenDevice();
    if (request.boots) request.options.boots = ResolveBoots(log, *request.boots);
    return Pack(request, log, report, isIncomplete);
}

}  // namespace Tool
