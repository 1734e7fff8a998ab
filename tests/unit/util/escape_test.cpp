// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Texts for XML, for JSON and for an IPv4 address.
#include <gtest/gtest.h>

#include <climits>
#include <map>
#include <string>
#include <tuple>

#include "util/util.h"

using namespace std::string_literals;

namespace {

using Replacements = std::map<char, std::string>;

// All byte values, once each, and what they become.
void ExpectEveryByte(std::string (*escape)(const std::string&), const Replacements& replacements) {
    for (int value = 0; value <= UCHAR_MAX; ++value) {
        const char byte = static_cast<char>(value);
        const auto replaced = replacements.find(byte);
        const std::string text(1, byte);
        EXPECT_EQ(escape(text), replaced == replacements.end() ? text : replaced->second) << value;
    }
}

TEST(EscapeForXmlTest, OnlyFiveBytesAreReplaced) {
    ExpectEveryByte(
        Util::EscapeForXml,
        {{'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}, {'"', "&quot;"}, {'\'', "&apos;"}});
}

TEST(EscapeForXmlTest, EscapesInPlace) {
    EXPECT_EQ(Util::EscapeForXml(""), "");
    EXPECT_EQ(Util::EscapeForXml("nothing special"), "nothing special");
    EXPECT_EQ(Util::EscapeForXml("<a href=\"x\">it's &amp;</a>"),
              "&lt;a href=&quot;x&quot;&gt;it&apos;s &amp;amp;&lt;/a&gt;");
    EXPECT_EQ(Util::EscapeForXml("a\0<b"s), "a\0&lt;b"s);
}

TEST(DashboardToJsonTest, OnlyFourBytesAreReplaced) {
    ExpectEveryByte(Util::DashboardToJson,
                    {{'\r', ""}, {'"', "\\\""}, {'\t', "    "}, {'\n', "\\n"}});
}

TEST(DashboardToJsonTest, EscapesInPlace) {
    EXPECT_EQ(Util::DashboardToJson(""), "");
    EXPECT_EQ(Util::DashboardToJson("nothing special"), "nothing special");
    EXPECT_EQ(Util::DashboardToJson("one\r\ntwo\r\n"), "one\\ntwo\\n");
    EXPECT_EQ(Util::DashboardToJson("{\"a\":\t1}\n"), "{\\\"a\\\":    1}\\n");
    EXPECT_EQ(Util::DashboardToJson("back\\slash\b\0"s), "back\\slash\b\0"s);
}

TEST(GetIpAddrStringTest, TheFirstOctetIsTheMostSignificantByte) {
    const std::tuple<unsigned int, const char*, const char*> cases[] = {
        {0xC0A80001, "192.168.0.1", "192.168.0.1 (0xc0a80001)"},
        {0x7F000001, "127.0.0.1", "127.0.0.1 (0x7f000001)"},
        {0x01020304, "1.2.3.4", "1.2.3.4 (0x01020304)"},
        {0, "0.0.0.0", "0.0.0.0 (0x00000000)"},
        {0xFFFFFFFF, "255.255.255.255", "255.255.255.255 (0xffffffff)"},
    };
    for (const auto& [address, dotted, withHex] : cases) {
        EXPECT_EQ(Util::GetIpAddrString(address, false), dotted);
        EXPECT_EQ(Util::GetIpAddrString(address, true), withHex);
    }
}

}  // namespace
