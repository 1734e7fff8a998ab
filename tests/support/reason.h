// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Texts that log lines end in. Their wording is the standard library's: a test asks for it instead
// of knowing it.
#pragma once

#include <gtest/gtest.h>

#include <exception>
#include <filesystem>
#include <string>
#include <system_error>

// What the standard library says when `call` fails.
template <typename Call>
std::string Reason(Call call) {
    try {
        call();
    } catch (const std::exception& e) {
        return e.what();
    }
    ADD_FAILURE() << "the call succeeded";
    return {};
}

// What a failure says that a walk over a folder met at `path`.
inline std::string WalkReason(const char* what, const std::filesystem::path& path, int error) {
    return std::filesystem::filesystem_error(what, path, {error, std::generic_category()}).what();
}

inline std::string CannotOpen(const std::filesystem::path& dir, int error) {
    return WalkReason("cannot open directory", dir, error);
}

// The text of a file that cannot be removed.
inline std::string RemovalFailure(const std::filesystem::path& pfn) {
    return "Remove failure for " + pfn.string() + ": " +
           Reason([&] { std::filesystem::remove(pfn); });
}

// A message as it reaches the log: a long one is cut.
inline std::string AsLogged(const std::string& message) {
    return message.size() <= 255 ? message : message.substr(0, 252) + " ...";
}
