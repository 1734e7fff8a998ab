// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "logpage/parameters.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "logpage/answer.h"

namespace Page {

namespace {

constexpr int BadRequest = 400;
constexpr std::size_t MaxQuery = 8192;
constexpr std::size_t MaxQuoted = 100;

int HexDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Of the application/x-www-form-urlencoded form: "+" is a blank. No value needs a zero byte, and
// the C library's functions would take it for the end.
std::string Decode(std::string_view text, std::string_view name) {
    std::string decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i] == '+' ? ' ' : text[i];
        if (c == '%') {
            const int high = i + 2 < text.size() ? HexDigit(text[i + 1]) : -1;
            const int low = high >= 0 ? HexDigit(text[i + 2]) : -1;
            if (low < 0) Refuse(name, text.substr(i), "does not begin with an escape");
            c = static_cast<char>(high * 16 + low);
            i += 2;
        }
        if (c == '\0') Refuse(name, "%00", "is not possible");
        decoded += c;
    }
    return decoded;
}

}  // namespace

void Refuse(std::string_view name, std::string_view value, std::string_view reason) {
    std::string text(name);
    text += ": '";
    text += value.substr(0, MaxQuoted);
    text += "' ";
    text += reason;
    throw Error{BadRequest, text};
}

Parameters::Parameters(std::string_view query) {
    if (query.size() > MaxQuery) throw Error{BadRequest, "the address is too long"};
    while (!query.empty()) {
        const std::string_view part = query.substr(0, query.find('&'));
        query.remove_prefix(std::min(part.size() + 1, query.size()));
        if (part.empty()) continue;
        const std::size_t equal = part.find('=');
        const std::string name = Decode(part.substr(0, equal), part.substr(0, MaxQuoted));
        const bool hasValue = equal != std::string_view::npos;
        all.emplace_back(name, hasValue ? Decode(part.substr(equal + 1), name) : std::string());
    }
}

std::vector<std::string> Parameters::Texts(std::string_view name) {
    std::vector<std::string> found;
    std::erase_if(all, [&](auto& parameter) {
        if (parameter.first != name) return false;
        found.push_back(std::move(parameter.second));
        return true;
    });
    return found;
}

std::optional<std::string> Parameters::Text(std::string_view name) {
    std::vector<std::string> found = Texts(name);
    if (found.size() > 1) Refuse(name, found[1], "is a second value");
    if (found.empty()) return std::nullopt;
    return std::move(found.front());
}

std::optional<std::uint64_t> Parameters::Number(std::string_view name, std::uint64_t maximum) {
    const std::optional<std::string> text = Text(name);
    if (!text) return std::nullopt;
    std::uint64_t number = 0;
    const char* const last = text->data() + text->size();
    const auto [end, error] = std::from_chars(text->data(), last, number);
    if (error != std::errc() || end != last || number > maximum) {
        Refuse(name, *text, "is not a number from 0 to " + std::to_string(maximum));
    }
    return number;
}

bool Parameters::Flag(std::string_view name) {
    constexpr std::array<std::string_view, 4> Yes{"", "1", "true", "yes"};
    constexpr std::array<std::string_view, 3> No{"0", "false", "no"};
    const std::optional<std::string> text = Text(name);
    if (!text || std::find(No.begin(), No.end(), *text) != No.end()) return false;
    if (std::find(Yes.begin(), Yes.end(), *text) == Yes.end()) {
        Refuse(name, *text, "is neither true nor false");
    }
    return true;
}

void Parameters::RefuseOthers() const {
    if (all.empty()) return;
    throw Error{BadRequest, all.front().first.substr(0, MaxQuoted) + ": unknown parameter"};
}

}  // namespace Page
