// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "util/encode.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/stat.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "util/format.h"

namespace Util {

namespace {

constexpr std::array<std::uint32_t, 256> MakeBase64Index() {
    constexpr std::string_view Alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::array<std::uint32_t, 256> index{};
    for (std::size_t i = 0; i < Alphabet.size(); ++i) {
        index[static_cast<unsigned char>(Alphabet[i])] = static_cast<std::uint32_t>(i);
    }
    index['-'] = index['.'] = 62;
    index['_'] = index[','] = 63;
    return index;
}

constexpr std::array<std::uint32_t, 256> Base64Index = MakeBase64Index();

// The 24 bits of up to four characters; what the group lacks counts as 0.
std::uint32_t GroupBits(const unsigned char* group, std::size_t length) {
    std::uint32_t bits = 0;
    for (std::size_t i = 0; i < 4; ++i) bits = bits << 6 | (i < length ? Base64Index[group[i]] : 0);
    return bits;
}

// Replaces every byte for which `replacement` gives a text (not null) by that text.
template <typename Replacement>
std::string ReplaceBytes(const std::string& text, Replacement replacement) {
    std::string result;
    result.reserve(text.size());
    for (const char c : text) {
        if (const char* replaced = replacement(c)) {
            result += replaced;
        } else {
            result += c;
        }
    }
    return result;
}

}  // namespace

std::vector<unsigned char> Base64Decode(const void* data, unsigned long length) {
    std::vector<unsigned char> bytes;
    if (length == 0) return bytes;

    const auto* text = static_cast<const unsigned char*>(data);
    const bool padded = length % 4 != 0 || text[length - 1] == '=';
    const std::size_t wholeGroups = padded ? (length + 3) / 4 - 1 : length / 4;
    bytes.reserve(wholeGroups * 3 + 2);

    for (std::size_t i = 0; i < wholeGroups * 4; i += 4) {
        const std::uint32_t bits = GroupBits(text + i, 4);
        bytes.push_back(static_cast<unsigned char>(bits >> 16));
        bytes.push_back(static_cast<unsigned char>(bits >> 8));
        bytes.push_back(static_cast<unsigned char>(bits));
    }
    if (padded) {
        const unsigned char* last = text + wholeGroups * 4;
        const std::size_t lastLength = length - wholeGroups * 4;
        const std::uint32_t bits = GroupBits(last, lastLength);
        bytes.push_back(static_cast<unsigned char>(bits >> 16));
        if (lastLength > 2 && last[2] != '=') {
            bytes.push_back(static_cast<unsigned char>(bits >> 8));
        }
    }
    return bytes;
}

std::vector<unsigned char> Base64Decode(const std::string& text) {
    return Base64Decode(text.data(), text.size());
}

std::string EscapeForXml(const std::string& text) {
    return ReplaceBytes(text, [](char c) -> const char* {
        switch (c) {
            case '&':
                return "&amp;";
            case '<':
                return "&lt;";
            case '>':
                return "&gt;";
            case '"':
                return "&quot;";
            case '\'':
                return "&apos;";
            default:
                return nullptr;
        }
    });
}

std::string DashboardToJson(const std::string& text) {
    return ReplaceBytes(text, [](char c) -> const char* {
        switch (c) {
            case '\r':
                return "";
            case '"':
                return "\\\"";
            case '\t':
                return "    ";
            case '\n':
                return "\\n";
            default:
                return nullptr;
        }
    });
}

std::string GetIpAddrString(unsigned int address, bool withHex) {
    const in_addr networkOrder{htonl(address)};
    std::array<char, INET_ADDRSTRLEN> dotted{};
    (void)inet_ntop(AF_INET, &networkOrder, dotted.data(), dotted.size());  // It always fits.
    return withHex ? Format("%s (0x%08x)", dotted.data(), address) : dotted.data();
}

std::string ReadStdOutFromSystemCall(const char* command) {
    std::string output;
    std::FILE* pipe = popen(command, "r");
    if (pipe == nullptr) return output;
    std::array<char, 128> piece;
    while (std::fgets(piece.data(), static_cast<int>(piece.size()), pipe) != nullptr) {
        output += piece.data();
    }
    (void)pclose(pipe);  // The command's exit status is discarded.
    return output;
}

bool CheckIfFileExists(const char* pfn) {
    struct stat status {};
    return stat(pfn, &status) == 0;
}

}  // namespace Util
