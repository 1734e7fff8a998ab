// The boots that have a log: the parameter "boot", and the address /boots.
#include <charconv>
#include <string>

#include "logpage/limits.h"
#include "logpage/requests.h"
#include "reader/format.h"

namespace Page {

namespace {

std::optional<std::int64_t> ToNumber(std::string_view text) {
    std::int64_t number = 0;
    const char* const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, number);
    if (error != std::errc() || end != last) return std::nullopt;
    return number;
}

// A boot number, or an offset if it is 0 or negative. An offset without a boot gives one that does
// not exist.
std::optional<std::int64_t> ToBoot(std::string_view text, const Reader::Log& log) {
    const std::optional<std::int64_t> number = ToNumber(text);
    if (!number || *number > 65535) return std::nullopt;
    if (*number > 0) return number;
    const std::optional<std::uint32_t> boot = log.BootAt(*number);
    return boot ? *boot : -1;
}

void AppendTime(std::string& out, const std::optional<Reader::CivilTime>& time) {
    if (!time) {
        out += "null";
        return;
    }
    out += '"';
    Reader::AppendTime(out, *time);
    out += '"';
}

}  // namespace

std::optional<Reader::BootRange> TakeBoots(const std::optional<std::string>& text,
                                           const Reader::Log& log) {
    if (!text) return std::nullopt;
    const std::size_t dots = text->find("..");
    const bool isRange = dots != std::string::npos;
    const std::string_view whole = *text;
    const std::optional<std::int64_t> first = ToBoot(whole.substr(0, dots), log);
    const std::optional<std::int64_t> last = isRange ? ToBoot(whole.substr(dots + 2), log) : first;
    if (!first || !last) Refuse("boot", *text, "is neither a boot nor a range such as 3..7");
    if (*first > *last && *last >= 0) Refuse("boot", *text, "is a reversed range");
    return Reader::BootRange{*first, *last};
}

void ServeBoots(Parameters& parameters, Answer& answer) {
    parameters.RefuseOthers();
    TakeTurn();
    const std::unique_ptr<Reader::Log> log = OpenLog();
    std::string text = "[";
    for (const Reader::BootFiles& boot : log->Boots()) {
        std::uint64_t bytes = 0;
        for (const std::size_t source : boot.sources) bytes += log->GetSize(source);
        Reader::Log::Times times;
        (void)log->GetTimes(boot, times);  // What cannot be read has no time.
        if (text.size() > 1) text += ',';
        text += "{\"offset\":" + std::to_string(boot.offset) +
                ",\"boot\":" + std::to_string(boot.boot) +
                ",\"files\":" + std::to_string(boot.sources.size()) +
                ",\"bytes\":" + std::to_string(bytes) + ",\"first\":";
        AppendTime(text, times.first);
        text += ",\"last\":";
        AppendTime(text, times.last);
        text += boot.isCurrent ? ",\"current\":true}" : ",\"current\":false}";
    }
    answer.Write(text + "]\n");
    answer.Flush();
}

}  // namespace Page
