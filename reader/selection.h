// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// From the lines that pass to the lines that are delivered: context around the matches, and the
// limit on their number.
#pragma once

#include <cstdint>
#include <deque>
#include <string>

#include "reader/scan.h"

namespace Reader {

class Selection {
public:
    struct Limits {
        std::uint64_t before = 0;  // lines of context, in the order in which lines come
        std::uint64_t after = 0;
        std::uint64_t skip = 0;  // matches that are left out first
        std::uint64_t matches = UINT64_MAX;
        bool marksBlocks = false;
    };

    Selection(const Limits& limits, const Take& take) : limits(limits), take(take) {}

    // Leaves out so many of the next matches.
    void Skip(std::uint64_t count) { limits.skip = count; }

    // Returns false if no more is wanted.
    bool Add(const SharedInfo& info, const Run& run);

    bool HasContext() const {
        return limits.marksBlocks || limits.before != 0 || limits.after != 0;
    }

private:
    struct Held {
        SharedInfo info;
        std::string text;
        std::uint64_t number;
    };

    bool AddLine(const SharedInfo& info, std::string_view text, std::uint64_t number, bool isMatch);
    bool AddContext(const SharedInfo& info, std::string_view text, std::uint64_t number);
    bool Deliver(const SharedInfo& info, std::string_view text, std::uint64_t number, bool isMatch);
    bool IsComplete() const { return matches == limits.matches && afterLeft == 0; }

    Limits limits;
    const Take& take;
    std::uint64_t matches = 0;
    std::uint64_t afterLeft = 0;
    std::deque<Held> held;  // the last lines that were not delivered
    bool hasGap = false;    // lines were left out since the last delivered one
    bool hasDelivered = false;
};

}  // namespace Reader
