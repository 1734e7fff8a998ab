// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The answer to a request: status, header fields, and a body that is written as it comes. The
// header is sent with the first part of the body, so that whatever fails before can still be
// answered by an error.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace Page {

// Ends a request. The text names the parameter that is wrong, if one is.
struct Error {
    int status;
    std::string text;
};

constexpr const char* EventStream = "text/event-stream";

class Answer {
public:
    // Without a body for HEAD.
    explicit Answer(bool hasBody) : hasBody(hasBody) {}

    // Before the body.
    void SetType(std::string_view type) { contentType = type; }
    void SetFileName(std::string_view name) { fileName = name; }
    void SetSize(std::uint64_t size) { contentSize = size; }

    bool HasBody() const { return hasBody; }
    bool IsStarted() const { return isStarted; }

    // Adds to the body. What waits longer than a moment is sent.
    void Write(std::string_view text);

    // Sends what waits.
    void Flush();

    // Sends `filler` if nothing has been sent for half a second: writing is the only way to notice
    // that nobody listens any more. SIGPIPE ends the process then.
    void KeepAlive(std::string_view filler);

    // As the whole answer, or as the last line of one that has begun.
    void Fail(const Error& error);

private:
    using Clock = std::chrono::steady_clock;

    void Start(int status);
    void Send(std::string_view text);

    bool hasBody;
    bool isStarted = false;
    std::string contentType = "application/json";
    std::string fileName;
    std::optional<std::uint64_t> contentSize;
    std::string waiting;
    Clock::time_point lastSent = Clock::now();
};

}  // namespace Page
