// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The parameters of a request, as the browser wrote them behind the "?". Every name has to be known
// and every value valid, so that a mistake shows instead of giving other lines than were asked for.
//
// All operations throw a Page::Error with status 400 that names the parameter.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Page {

class Parameters {
public:
    explicit Parameters(std::string_view query);

    // Each takes a parameter out. Only Texts takes one that is given more than once.
    std::optional<std::string> Text(std::string_view name);
    std::vector<std::string> Texts(std::string_view name);
    std::optional<std::uint64_t> Number(std::string_view name, std::uint64_t maximum);

    // "name", "name=", "name=1", "name=true" or "name=yes"; "0", "false" and "no" mean the
    // contrary.
    bool Flag(std::string_view name);

    // To be called when all that are known have been taken.
    void RefuseOthers() const;

private:
    std::vector<std::pair<std::string, std::string>> all;
};

// Throws the error of a parameter: "lines: 'x' is not a number".
[[noreturn]] void Refuse(std::string_view name, std::string_view value, std::string_view reason);

}  // namespace Page
