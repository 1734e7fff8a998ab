// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "reader/format.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>

#include "reader/hash.h"

namespace Reader {

namespace {

constexpr std::string_view Replacement = "\xEF\xBF\xBD";  // U+FFFD

// The length of the valid UTF-8 sequence at the beginning of a text; 0 if there is none.
std::size_t SequenceLength(std::string_view text) {
    const auto at = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned first = at(0);
    if (first < 0x80) return 1;
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < length) return 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((at(i) & 0xC0) != 0x80) return 0;
    }
    // Too long a form, a surrogate, above U+10FFFF.
    const unsigned second = at(1);
    if ((first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) ||
        (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F)) {
        return 0;
    }
    return length;
}

// A valid sequence that is one of the control characters U+0080 to U+009F.
bool IsC1(std::string_view sequence) {
    return sequence.size() == 2 && sequence[0] == '\xC2' &&
           static_cast<unsigned char>(sequence[1]) < 0xA0;
}

bool IsPlainJson(char c) {
    return c >= 0x20 && c < 0x7F && c != '"' && c != '\\';
}

void AppendNumber(std::string& out, std::uint64_t number) {
    std::array<char, 20> digits;
    std::size_t at = digits.size();
    do {
        digits[--at] = static_cast<char>('0' + number % 10);
        number /= 10;
    } while (number != 0);
    out.append(&digits[at], digits.size() - at);
}

void AppendPadded(std::string& out, int number, int width) {
    for (int divisor = width == 4 ? 1000 : 10; divisor != 0; divisor /= 10) {
        out += static_cast<char>('0' + number / divisor % 10);
    }
}

void AppendEscape(std::string& out, char c) {
    constexpr std::string_view Hex = "0123456789abcdef";
    switch (c) {
        case '"':
        case '\\':
            out += '\\';
            out += c;
            break;
        case '\n':
            out += "\\n";
            break;
        case '\t':
            out += "\\t";
            break;
        case '\r':
            out += "\\r";
            break;
        default:
            out += "\\u00";
            out += Hex[static_cast<unsigned char>(c) >> 4];
            out += Hex[static_cast<unsigned char>(c) & 15U];
            break;
    }
}

void AppendText(std::string& out, std::string_view key, std::string_view value) {
    if (value.empty()) return;
    out += key;
    AppendJsonString(out, value);
}

// A facility without a name is a number.
std::string FacilityName(const Fields& fields) {
    return fields.facility.empty() ? std::to_string(fields.facilityCode)
                                   : std::string(fields.facility);
}

// A field of the Journal Export Format: as text, or, if it has control characters, with its length.
void AppendField(std::string& out, std::string_view key, std::string_view value) {
    bool isText = true;
    for (std::size_t i = 0; i < value.size() && isText;) {
        const std::size_t length = SequenceLength(value.substr(i));
        const auto c = static_cast<unsigned char>(value[i]);
        isText = length != 0 && (c >= 0x20 || c == '\t');
        i += length;
    }
    out += key;
    if (isText) {
        out += '=';
    } else {
        out += '\n';
        for (std::uint64_t i = 0, size = value.size(); i < 8; ++i, size >>= 8) {
            out += static_cast<char>(size & 0xFF);
        }
    }
    out += value;
    out += '\n';
}

void AppendBootId(std::string& out, std::string_view host, std::uint32_t boot) {
    const std::string number = std::to_string(boot);
    const std::uint64_t high = Hash(number, Hash("boot", Hash(host)));
    const std::uint64_t low = Hash(host, Hash("moraine", Hash(number)));
    std::array<char, 64> text;
    const int length = std::snprintf(text.data(), text.size(), "_BOOT_ID=%016llx%016llx\n",
                                     static_cast<unsigned long long>(high),
                                     static_cast<unsigned long long>(low | 1));
    out.append(text.data(), static_cast<std::size_t>(length));
}

}  // namespace

void AppendJsonString(std::string& out, std::string_view text) {
    out += '"';
    while (!text.empty()) {
        std::size_t plain = 0;
        while (plain < text.size() && IsPlainJson(text[plain])) ++plain;
        out += text.substr(0, plain);
        text.remove_prefix(plain);
        if (text.empty()) break;
        const std::size_t length = SequenceLength(text);
        if (length == 0) {
            out += Replacement;
        } else if (length == 1 || IsC1(text.substr(0, length))) {
            AppendEscape(out, text[length - 1]);
        } else {
            out += text.substr(0, length);
        }
        text.remove_prefix(length == 0 ? 1 : length);
    }
    out += '"';
}

void AppendTime(std::string& out, CivilTime time) {
    const Date date = ToDate(time);
    AppendPadded(out, date.year, 4);
    out += '-';
    AppendPadded(out, date.month, 2);
    out += '-';
    AppendPadded(out, date.day, 2);
    out += 'T';
    AppendPadded(out, date.hour, 2);
    out += ':';
    AppendPadded(out, date.minute, 2);
    out += ':';
    AppendPadded(out, date.second, 2);
}

void AppendJson(std::string& out, const Line& line, bool withCursor) {
    const Fields fields = line.GetFields();
    out += "{\"boot\":";
    AppendNumber(out, line.source->boot);
    out += ",\"file\":";
    AppendJsonString(out, line.source->name);
    out += ",\"line\":";
    AppendNumber(out, line.number);
    if (fields.hasForm) {
        out += ",\"time\":\"";
        AppendTime(out, line.years->TimeOf(fields));
        out += '"';
        AppendText(out, ",\"host\":", fields.host);
        AppendText(out, ",\"facility\":", FacilityName(fields));
        AppendText(out, ",\"severity\":", SeverityName(fields.severity));
        AppendText(out, ",\"tag\":", fields.tag);
        if (fields.pid) {
            out += ",\"pid\":";
            AppendNumber(out, *fields.pid);
        }
    }
    out += ",\"message\":";
    AppendJsonString(out, fields.message);
    if (withCursor) {
        out += ",\"cursor\":\"";
        out += ToText(line.GetCursor());
        out += '"';
    }
    out += "}\n";
}

void JournalExport::Append(std::string& out, const Line& line) {
    const Fields fields = line.GetFields();
    if (!fields.host.empty() && fields.host != host) host = fields.host;
    if (fields.hasForm) {
        time = line.years->TimeOf(fields);
    } else if (time == 0) {
        time = line.years->ModificationTime();
    }
    out += "__REALTIME_TIMESTAMP=";
    constexpr std::uint64_t MicrosPerSec = 1000000;
    AppendNumber(
        out, static_cast<std::uint64_t>(std::max<std::int64_t>(EpochTime(time), 1)) * MicrosPerSec);
    out += '\n';
    AppendBootId(out, host, line.source->boot);
    AppendField(out, "MESSAGE", fields.message);
    if (fields.hasForm) {
        AppendField(out, "PRIORITY", std::to_string(fields.severity));
        AppendField(out, "SYSLOG_FACILITY", std::to_string(fields.facilityCode));
        if (!fields.tag.empty()) AppendField(out, "SYSLOG_IDENTIFIER", fields.tag);
        if (fields.pid) AppendField(out, "SYSLOG_PID", std::to_string(*fields.pid));
    }
    if (!host.empty()) AppendField(out, "_HOSTNAME", host);
    out += '\n';
}

void AppendVisible(std::string& out, std::string_view text) {
    constexpr std::string_view Hex = "0123456789ABCDEF";
    while (!text.empty()) {
        const auto c = static_cast<unsigned char>(text[0]);
        const std::size_t length = SequenceLength(text);
        const bool isC1 = IsC1(text.substr(0, length));
        if (length == 0 || isC1) {
            const auto shown = isC1 ? static_cast<unsigned char>(text[1]) : c;
            out += "\\x";
            out += Hex[shown >> 4];
            out += Hex[shown & 15U];
        } else if (length == 1 && (c < 0x20 || c == 0x7F) && c != '\t') {
            out += '^';
            out += static_cast<char>(c ^ 0x40);
        } else {
            out += text.substr(0, length);
        }
        text.remove_prefix(length == 0 ? 1 : length);
    }
}

}  // namespace Reader
