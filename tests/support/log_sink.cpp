// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "tests/support/log_sink.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

testing::Matcher<LogLine> Line(int severity, const testing::Matcher<std::string>& text) {
    return testing::AllOf(testing::Field("severity", &LogLine::severity, severity),
                          testing::Field("text", &LogLine::text, text));
}

}  // namespace

testing::Matcher<LogLine> Error(const testing::Matcher<std::string>& text) {
    return Line(LOG_ERR, text);
}

testing::Matcher<LogLine> Warning(const testing::Matcher<std::string>& text) {
    return Line(LOG_WARNING, text);
}

testing::Matcher<LogLine> Info(const testing::Matcher<std::string>& text) {
    return Line(LOG_INFO, text);
}

testing::Matcher<LogLine> Debug(const testing::Matcher<std::string>& text) {
    return Line(LOG_DEBUG, text);
}

testing::Matcher<const LogLines&> LinesAre(std::initializer_list<testing::Matcher<LogLine>> lines) {
    return testing::ElementsAreArray(lines);
}

LogSink::LogSink() : tag(program_invocation_short_name), fd(socket(AF_UNIX, SOCK_DGRAM, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "/dev/log");
    (void)unlink(address.sun_path);
    if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ADD_FAILURE() << "cannot bind /dev/log: " << strerror(errno);
    }
    // The socket's queue may be as short as ten lines: a thread of its own empties it, so that the
    // code under test never waits. Signals are not for that thread.
    sigset_t all;
    sigset_t before;
    (void)sigfillset(&all);
    (void)pthread_sigmask(SIG_BLOCK, &all, &before);
    reader = std::thread(&LogSink::KeepReading, this);
    (void)pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

LogSink::~LogSink() {
    (void)shutdown(fd, SHUT_RDWR);
    reader.join();
    (void)close(fd);
}

void LogSink::KeepReading() {
    pollfd arrival{fd, POLLIN, 0};
    while (poll(&arrival, 1, -1) >= 0 && (arrival.revents & POLLHUP) == 0) {
        const std::lock_guard lock(mutex);
        Receive();
    }
}

void LogSink::Receive() {
    std::array<char, 65536> datagram;
    for (;;) {
        const ssize_t length = recv(fd, datagram.data(), datagram.size(), MSG_DONTWAIT);
        if (length <= 0) return;
        datagrams.emplace_back(datagram.data(), static_cast<std::size_t>(length));
    }
}

std::vector<std::string> LogSink::TakeRaw() {
    const std::lock_guard lock(mutex);
    Receive();
    return std::exchange(datagrams, {});
}

// "<PRI>Mmm dd hh:mm:ss TAG: TEXT"
LogLines LogSink::Take() {
    constexpr std::size_t TimeLength = 16;
    LogLines lines;
    for (const std::string& datagram : TakeRaw()) {
        const std::size_t head = datagram.find('>') + 1;
        const int priority = std::atoi(datagram.c_str() + 1);
        const std::string start = tag + ": ";
        if (LOG_FAC(priority) != LOG_FAC(LOG_USER) ||
            datagram.compare(head + TimeLength, start.size(), start) != 0) {
            ADD_FAILURE() << "unexpected datagram: " << datagram;
            continue;
        }
        lines.push_back({LOG_PRI(priority), datagram.substr(head + TimeLength + start.size())});
    }
    return lines;
}
