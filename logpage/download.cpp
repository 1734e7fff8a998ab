// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// /download: the tar stream of `moraine pack`.
#include <unistd.h>

#include <array>
#include <charconv>
#include <climits>
#include <cstdint>
#include <ctime>

#include "logpage/requests.h"
#include "reader/format.h"
#include "reader/pack.h"

namespace Page {

namespace {

constexpr std::uint64_t MaxNumber = 65535;

std::string HostName() {
    std::array<char, HOST_NAME_MAX + 1> name{};
    if (gethostname(name.data(), name.size() - 1) != 0 || name[0] == '\0') return "device";
    return name.data();
}

// "none", or bytes with K, M or G for a power of 1024.
std::optional<std::uint64_t> ToLimit(std::string_view text) {
    if (text == "none") return Reader::PackOptions::NoLimit;
    std::uint64_t number = 0;
    const char* const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, number);
    const std::size_t unit = end == last ? 0 : std::string_view("BKMG").find(*end);
    if (error != std::errc() || unit > 3 || last - end > 1 || (unit == 0 && end != last) ||
        number > UINT64_MAX >> (10 * unit)) {
        return std::nullopt;
    }
    return number << (10 * unit);
}

std::uint64_t TakeLimit(Parameters& parameters) {
    const std::optional<std::string> text = parameters.Text("limit");
    if (!text) return Reader::PackOptions::DefaultLimit;
    const std::optional<std::uint64_t> limit = ToLimit(*text);
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

std::string FileName(const std::string& what, const std::string& extension) {
    std::string name = HostName();
    // It becomes part of a header field.
    for (char& c : name) {
        const bool isPlain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                             (c >= '0' && c <= '9') || c == '-' || c == '.';
        if (!isPlain) c = '_';
    }
    std::array<char, 32> time{};
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    (void)localtime_r(&now, &local);  // Cannot fail before the year 2147485547.
    (void)std::strftime(time.data(), time.size(), "%Y%m%d-%H%M%S", &local);  // It fits.
    return name + '-' + what + '-' + time.data() + '.' + extension;
}

void ServeDownload(Parameters& parameters, Answer& answer) {
    Reader::PackOptions options = TakeOptions(parameters);
    const std::optional<Reader::BootChoice> boots = TakeBoots(parameters);
    const bool isDryRun = parameters.Flag("dry-run");
    parameters.RefuseOthers();

    TakeTurn();
    const std::unique_ptr<Reader::Log> log = OpenLog();
    options.boots = ResolveBoots(boots, *log);
    const Reader::PackOrigin origin{HostName(), MORAINE_VERSION, log->CurrentBoot(),
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
    answer.SetFileName(FileName("logs", "tar"));
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
