// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "util/parse.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <utility>

namespace Util {

int Split(std::vector<std::string>& fields, const std::string& text, char delimiter) {
    fields.clear();
    std::size_t start = 0;
    while ((start = text.find_first_not_of(delimiter, start)) != std::string::npos) {
        const std::size_t end = text.find(delimiter, start);
        fields.push_back(text.substr(start, end - start));
        if (end == std::string::npos) break;
        start = end;
    }
    return static_cast<int>(fields.size());
}

bool Slice(std::vector<std::string>& fields, const std::string& text, char delimiter) {
    return Slice(fields, text, std::string(1, delimiter));
}

bool Slice(std::vector<std::string>& fields, const std::string& text,
           const std::string& delimiter) {
    fields.clear();
    if (text.size() < delimiter.size()) return false;
    if (delimiter.empty()) return !text.empty();  // It would never advance.
    try {
        fields.reserve(8);  // As a rule that is all of them.
        for (std::size_t start = 0; start < text.size();) {
            const std::size_t end = text.find(delimiter, start);
            fields.push_back(text.substr(start, end - start));
            if (end == std::string::npos) break;
            start = end + delimiter.size();
        }
    } catch (const std::exception&) {
        return true;
    }
    return false;
}

bool StringToInt(std::string text, int& value, int minimum, int maximum, unsigned long* consumed,
                 int base) {
    value = 0;
    Trim(text, ' ');

    const char* begin = text.c_str();
    char* end = text.data();
    const int callersErrno = std::exchange(errno, 0);
    const long number = std::strtol(begin, &end, base);
    const bool failed = end == begin || errno != 0;
    errno = callersErrno;
    if (failed) return true;

    if (consumed != nullptr) *consumed = static_cast<unsigned long>(end - begin);
    if (number < minimum || number > maximum) return true;
    value = static_cast<int>(number);
    return false;
}

void Trim(std::string& text, char c) {
    TrimFromStart(text, c);
    TrimFromEnd(text, c);
}

void TrimFromStart(std::string& text, char c) {
    text.erase(0, text.find_first_not_of(c));
}

void TrimFromEnd(std::string& text, char c) {
    text.erase(text.find_last_not_of(c) + 1);
}

bool BeginsWith(const std::string& text, char c) {
    return text.starts_with(c);
}

bool EndsWith(const std::string& text, char c) {
    return text.ends_with(c);
}

bool BeginsWith(const std::string& text, const std::string& prefix) {
    return text.starts_with(prefix);
}

bool EndsWith(const std::string& text, const std::string& suffix) {
    return text.ends_with(suffix);
}

}  // namespace Util
