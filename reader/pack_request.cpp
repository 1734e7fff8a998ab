// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// What a download is called, and how large it may be: the same for the command and the log page.
#include <unistd.h>

#include <array>
#include <charconv>
#include <climits>
#include <ctime>

#include "reader/pack.h"

namespace Reader {

std::optional<std::uint64_t> ParsePackLimit(std::string_view text) {
    if (text == "none") return PackOptions::NoLimit;
    std::uint64_t number = 0;
    const char* const end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || end - rest > 1) return std::nullopt;
    unsigned shift = 0;
    if (rest != end) {
        const std::size_t unit = std::string_view("kKmMgG").find(*rest);
        if (unit == std::string_view::npos) return std::nullopt;
        shift = 10 * (static_cast<unsigned>(unit) / 2 + 1);
    }
    if (number > UINT64_MAX >> shift) return std::nullopt;
    return number << shift;
}

std::string HostName() {
    std::array<char, HOST_NAME_MAX + 1> name{};
    if (gethostname(name.data(), name.size() - 1) != 0 || name.front() == '\0') return "device";
    return name.data();
}

std::string DownloadName(std::string_view host, std::string_view what, std::int64_t time,
                         std::string_view extension) {
    std::string name(host);
    for (char& c : name) {
        const bool isPlain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                             (c >= '0' && c <= '9') || c == '-' || c == '.';
        if (!isPlain) c = '_';
    }
    const std::time_t seconds = time;
    std::tm local{};
    (void)localtime_r(&seconds, &local);  // Cannot fail before the year 2147485547.
    std::array<char, 32> stamp{};
    (void)std::strftime(stamp.data(), stamp.size(), "-%Y%m%d-%H%M%S.", &local);  // It fits.
    return name.append("-").append(what).append(stamp.data()).append(extension);
}

}  // namespace Reader
