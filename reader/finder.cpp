// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "reader/finder.h"

#include <algorithm>
#include <cstring>

namespace Reader {

namespace {

constexpr char CaseBit = 0x20;

bool IsLower(char c) {
    return c >= 'a' && c <= 'z';
}

char Lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c | CaseBit) : c;
}

// How common a byte is in logs; those that are not listed are rare.
int Commonness(char c) {
    constexpr std::string_view FromCommonOn = " e0t1ao2inr3sd:l45cu.6m78p9f-hgb/v_y=[]wk,xDSN";
    const std::size_t rank = FromCommonOn.find(c);
    return rank == std::string_view::npos ? 0 : static_cast<int>(FromCommonOn.size() - rank);
}

}  // namespace

Finder::Finder(const std::vector<std::string>& strings, bool ignoresCase)
    : ignoresCase(ignoresCase) {
    for (const std::string& string : strings) {
        Needle needle;
        needle.string = string;
        const auto rarest = std::min_element(string.begin(), string.end(), [](char a, char b) {
            return Commonness(a) < Commonness(b);
        });
        needle.anchor = static_cast<std::size_t>(rarest - string.begin());
        needle.bytes.push_back({*rarest, 0});
        if (ignoresCase && IsLower(*rarest)) {
            needle.bytes.push_back({static_cast<char>(*rarest & ~CaseBit), 0});
        }
        needles.push_back(std::move(needle));
    }
}

void Finder::SetText(std::string_view newText) {
    text = newText;
    for (Needle& needle : needles) {
        needle.at = 0;
        for (Byte& byte : needle.bytes) byte.at = 0;
        Advance(needle, 0);
    }
}

std::size_t Finder::Find(std::size_t from) {
    std::size_t first = std::string_view::npos;
    for (Needle& needle : needles) {
        if (needle.at < from) Advance(needle, from);
        first = std::min(first, needle.at);
    }
    return first;
}

void Finder::Advance(Needle& needle, std::size_t from) const {
    for (std::size_t start = from;; ++start) {
        std::size_t next = std::string_view::npos;
        for (Byte& byte : needle.bytes) {
            const std::size_t at = start + needle.anchor;
            if (byte.at < at || byte.at == 0) {
                const void* const found =
                    at < text.size() ? memchr(text.data() + at, byte.value, text.size() - at)
                                     : nullptr;
                byte.at =
                    found == nullptr
                        ? std::string_view::npos
                        : static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
            }
            next = std::min(next, byte.at);
        }
        if (next == std::string_view::npos) {
            needle.at = next;
            return;
        }
        start = next - needle.anchor;
        if (!IsAt(needle, start)) continue;
        needle.at = start;
        return;
    }
}

bool Finder::IsAt(const Needle& needle, std::size_t offset) const {
    const std::string& string = needle.string;
    if (offset + string.size() > text.size()) return false;
    const char* const at = text.data() + offset;
    if (!ignoresCase) return std::memcmp(at, string.data(), string.size()) == 0;
    return std::equal(string.begin(), string.end(), at,
                      [](char wanted, char c) { return wanted == Lower(c); });
}

}  // namespace Reader
