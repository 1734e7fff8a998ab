#include "tests/support/log_sink.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <cstring>

LogSink::LogSink() : tag(program_invocation_short_name), fd(socket(AF_UNIX, SOCK_DGRAM, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strcpy(address.sun_path, "/dev/log");
    (void)unlink(address.sun_path);
    if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        ADD_FAILURE() << "cannot bind /dev/log: " << strerror(errno);
    }
    // Room for all lines of a test: nobody reads while the code under test runs.
    const int room = 8 << 20;
    (void)setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room);
}

LogSink::~LogSink() {
    (void)close(fd);
}

std::vector<std::string> LogSink::TakeRaw() {
    std::vector<std::string> datagrams;
    std::array<char, 65536> datagram;
    for (;;) {
        const ssize_t length = recv(fd, datagram.data(), datagram.size(), MSG_DONTWAIT);
        if (length < 0) return datagrams;
        datagrams.emplace_back(datagram.data(), static_cast<std::size_t>(length));
    }
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
