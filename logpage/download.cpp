// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// /download: the tar stream of `moraine pack`.
#include <cstdint>
#include <ctime>

#include "logpage/requests.h"
#include "reader/format.h"
#include "reader/pack.h"

namespace Page {

namespace {

constexpr std::uint64_t MaxNumber = 65535;

std::uint64_t TakeLimit(Parameters& parameters) {
    const std::optional<std::string> text = parameters.Text("limit");
    if (!text) return Reader::PackOptions::DefaultLimit;
    const std::optional<std::uint64_t> limit = Reader::ParsePackLimit(*text);
    if (!limit) Refuse("limit", *text, "is neither a size, such as 15M, nor none");
    return *limit;
}

Reader::PackOptions TakeOptions(Parameters& parameters) {
    Reader::PackOptions options;
    options.limit = TakeLimit(parameters);
    const bool isNewest = parameters.Flag("newest");
    const bool isOldest = parameters.Flag("oldest");
    if (isNewest && isOldest) throw Error{400, "oldest: not together with newest"};
    if (isNewest) options.which = Reader::PackOptions::Which::Newest;
    if (isOldest) options.which = Reader::PackOptions::Which::Oldest;
    options.maxFiles = parameters.Number("files", MaxNumber).value_or(options.maxFiles);
    options.maxBoots = parameters.Number("boots", MaxNumber).value_or(options.maxBoots);
    return options;
}

// {"members":[{"name":"messages.txt.xz","size":5120},...],"size":10240,"left_out":["..."]}
std::string Describe(const Reader::Packer& packer) {
    std::string text = R"({"members":[)";
    const char* comma = "";
    for (const Reader::PackMember& member : packer.Members()) {
        text += comma;
        text += R"({"name":)";
        Reader::AppendJsonString(text, packer.NameOf(member.source));
        text += R"(,"size":)" + std::to_string(member.size);
        text += R"(,"boot":)" + std::to_string(member.boot) + '}';
        comma = ",";
    }
    text += R"(],"size":)" + std::to_string(packer.StreamSize()) + R"(,"left_out":[)";
    comma = "";
    for (const std::uint32_t source : packer.LeftOut()) {
        text += comma;
        Reader::AppendJsonString(text, packer.NameOf(source));
        comma = ",";
    }
    return text + "]}\n";
}

}  // namespace

void ServeDownload(Parameters& parameters, Answer& answer) {
    Reader::PackOptions options = TakeOptions(parameters);
    const std::optional<Reader::BootChoice> boots = TakeBoots(parameters);
    const bool isDryRun = parameters.Flag("dry-run");
    parameters.RefuseOthers();

    TakeTurn();
    const std::unique_ptr<Reader::Log> log = OpenLog();
    options.boots = ResolveBoots(boots, *log);
    const Reader::PackOrigin origin{Reader::HostName(), MORAINE_VERSION, log->CurrentBoot(),
                                    std::time(nullptr)};
    Reader::Packer packer(*log, options, origin, [](const std::string&, const std::string&) {});
    if (isDryRun) {
        const std::string text = Describe(packer);
        answer.SetSize(text.size());
        answer.Write(text);
        return answer.Flush();
    }
    if (packer.Members().empty()) throw Error{404, "nothing to pack"};

    answer.SetType("application/x-tar");
    answer.SetFileName(Reader::DownloadName(origin.host, "logs", origin.time, "tar"));
    const std::uint64_t size = packer.StreamSize();
    answer.SetSize(size);
    answer.Flush();
    if (!answer.HasBody()) return;
    std::uint64_t written = 0;
    const auto sink = [&](std::string_view bytes) {
        written += bytes.size();
        answer.Write(bytes);
        return false;
    };
    (void)packer.Write(sink, [](std::uint64_t) {});  // The sink cannot fail: it ends the process.
    // A file that the daemon has deleted meanwhile is missing. Readers of tar ignore zeros behind.
    constexpr std::array<char, 512> Zeros{};
    for (; written < size; written += Zeros.size()) answer.Write({Zeros.data(), Zeros.size()});
    answer.Flush();
}

}  // namespace Page
