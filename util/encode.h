// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Small conversions between representations, and a few helpers on files and commands. Nothing here
// logs: the result carries the outcome.
#pragma once

#include <string>
#include <vector>

namespace Util {

// Decodes Base64, the URL-safe variants too ("-" and "." read as "+", "_" and "," as "/"). Nothing
// is checked: any other byte counts as 0 bits. A last group of three or four characters yields two
// bytes at most if it is padded or short; one of a single character is read as if a zero byte
// followed.
std::vector<unsigned char> Base64Decode(const void* data, unsigned long length);
std::vector<unsigned char> Base64Decode(const std::string& text);

// Replaces & < > " ' by their XML entities; every other byte stays.
std::string EscapeForXml(const std::string& text);

// For use inside a JSON string, deliberately minimal: a quote becomes \", a line feed \n, a tab
// four blanks, and carriage returns go. Every other byte stays, backslashes included.
std::string DashboardToJson(const std::string& text);

// Dotted IPv4 text of an address whose first octet is the most significant byte: 0xC0A80001 gives
// "192.168.0.1", and "192.168.0.1 (0xc0a80001)" when `withHex` is set.
std::string GetIpAddrString(unsigned int address, bool withHex);

// The standard output of a shell command, whole; empty if it could not be started. The exit
// status is discarded.
std::string ReadStdOutFromSystemCall(const char* command);

// True if the path exists, as a file of whatever kind; links are followed.
bool CheckIfFileExists(const char* pfn);

}  // namespace Util
