// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "logpage/answer.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>

#include "reader/format.h"

namespace Page {

namespace {

using namespace std::chrono_literals;

constexpr std::size_t MaxWaiting = 16UL << 10;
constexpr auto MaxDelay = 50ms;
constexpr auto KeepAliveAfter = 500ms;

// A browser that takes nothing for so long is gone, or means harm: four of them would keep
// everybody out.
constexpr int MaxStallMs = 30'000;

const char* Reason(int status) {
    switch (status) {
        case 200:
            return "OK";
        case 400:
            return "Bad Request";
        case 404:
            return "Not Found";
        case 405:
            return "Method Not Allowed";
        case 503:
            return "Service Unavailable";
        default:
            return "Internal Server Error";
    }
}

}  // namespace

void Answer::Start(int status) {
    isStarted = true;
    std::string header = "Status: " + std::to_string(status) + ' ' + Reason(status) + "\r\n";
    header += "Content-Type: " + contentType + "\r\n";
    if (contentSize) header += "Content-Length: " + std::to_string(*contentSize) + "\r\n";
    if (!fileName.empty()) {
        header += "Content-Disposition: attachment; filename=\"" + fileName + "\"\r\n";
    }
    if (status == 405) header += "Allow: GET, HEAD\r\n";
    if (status == 503) header += "Retry-After: 1\r\n";
    header +=
        "Content-Security-Policy: default-src 'none'\r\n"
        "X-Content-Type-Options: nosniff\r\n"
        "Referrer-Policy: no-referrer\r\n"
        "Cache-Control: no-store\r\n"
        "\r\n";
    Send(header);
}

void Answer::Write(std::string_view text) {
    if (!hasBody) return;
    if (text.size() >= MaxWaiting) {
        Flush();
        return Send(text);
    }
    waiting += text;
    if (waiting.size() >= MaxWaiting || Clock::now() - lastSent >= MaxDelay) Flush();
}

void Answer::Flush() {
    if (!isStarted) Start(200);
    if (waiting.empty()) return;
    Send(waiting);
    waiting.clear();
}

void Answer::KeepAlive(std::string_view filler) {
    if (!waiting.empty()) {
        Flush();
    } else if (hasBody && Clock::now() - lastSent >= KeepAliveAfter) {
        waiting = filler;
        Flush();
    }
}

void Answer::Fail(const Error& error) {
    std::string body = R"({"error":)";
    Reader::AppendJsonString(body, error.text);
    body += "}\n";
    if (!isStarted) {
        waiting.clear();
        fileName.clear();
        contentType = "application/json";
        contentSize = body.size();
        Start(error.status);
    } else if (contentType == EventStream) {
        body = "data: " + body + '\n';
    }
    if (hasBody) Send(waiting + body);
}

void Answer::Send(std::string_view text) {
    lastSent = Clock::now();
    while (!text.empty()) {
        pollfd output{STDOUT_FILENO, POLLOUT, 0};
        const int ready = poll(&output, 1, MaxStallMs);
        if (ready < 0 && errno == EINTR) continue;
        if (ready <= 0) std::_Exit(EXIT_FAILURE);
        // A pipe that has room takes so much at once; a longer write would wait without a limit.
        const std::size_t size = std::min<std::size_t>(text.size(), PIPE_BUF);
        const ssize_t written = write(STDOUT_FILENO, text.data(), size);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) std::_Exit(EXIT_FAILURE);
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

}  // namespace Page
