// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "reader/selection.h"

#include <cstring>

namespace Reader {

bool Selection::Add(const SharedInfo& info, const Run& run) {
    if (limits.matches == 0) return false;
    if (!HasContext() && run.isMatch && limits.skip >= run.lines) {
        limits.skip -= run.lines;
        return true;
    }
    std::uint64_t number = run.firstNumber;
    std::string_view rest = run.text;
    while (!rest.empty()) {
        const std::size_t length = rest.find('\n');
        if (!AddLine(info, rest.substr(0, length), number++, run.isMatch)) return false;
        rest.remove_prefix(length + 1);
    }
    return true;
}

bool Selection::AddLine(const SharedInfo& info, std::string_view text, std::uint64_t number,
                        bool isMatch) {
    if (isMatch && limits.skip != 0) {
        --limits.skip;
        isMatch = false;
    }
    // What comes behind the last match is context, whatever it is.
    if (!isMatch || matches == limits.matches) return AddContext(info, text, number);
    while (!held.empty()) {
        const Held& line = held.front();
        if (!Deliver(line.info, line.text, line.number, false)) return false;
        held.pop_front();
    }
    ++matches;
    afterLeft = limits.after;
    return Deliver(info, text, number, true) && !IsComplete();
}

bool Selection::AddContext(const SharedInfo& info, std::string_view text, std::uint64_t number) {
    if (afterLeft != 0) {
        --afterLeft;
        return Deliver(info, text, number, false) && !IsComplete();
    }
    if (limits.before == 0) {
        hasGap = true;
        return true;
    }
    held.push_back({info, std::string(text), number});
    if (held.size() > limits.before) {
        held.pop_front();
        hasGap = true;
    }
    return true;
}

bool Selection::Deliver(const SharedInfo& info, std::string_view text, std::uint64_t number,
                        bool isMatch) {
    Line line;
    line.source = &info->source;
    line.years = &info->years;
    line.number = number;
    line.text = text;
    line.isMatch = isMatch;
    line.startsBlock = HasContext() && hasGap && hasDelivered;
    line.fileHash = info->hash;
    hasGap = false;
    hasDelivered = true;
    return take(line);
}

}  // namespace Reader
