// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Reports at once, one line each, what happens to the names in some folders: "@event m
// archive/NAME". The letters: n created, w closed after writing, m moved in, y moved out, d
// deleted. It returns when it watches, and does so in the background.
//
// The console is slow. Where there are too many events to report them all, the variables NTH and
// LETTER name the one that is reported.
#include <sys/inotify.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>

namespace {

struct Letter {
    std::uint32_t mask;
    char letter;
};

constexpr Letter Letters[] = {{IN_CREATE, 'n'},
                              {IN_CLOSE_WRITE, 'w'},
                              {IN_MOVED_TO, 'm'},
                              {IN_MOVED_FROM, 'y'},
                              {IN_DELETE, 'd'}};

// Whether this event is to be reported.
bool IsWanted(char letter) {
    static const char* const wanted = std::getenv("LETTER");
    static const char* const nth = std::getenv("NTH");
    static long left = nth ? std::atol(nth) : 0;
    return wanted == nullptr || (letter == *wanted && --left == 0);
}

void Report(const char* folder, const inotify_event& event) {
    for (const auto& [mask, letter] : Letters) {
        if ((event.mask & mask) == 0 || !IsWanted(letter)) continue;
        char line[512];
        const int size =
            std::snprintf(line, sizeof line, "@event %c %s/%s\n", letter, folder, event.name);
        if (write(STDOUT_FILENO, line, static_cast<std::size_t>(size)) != size) {
            syslog(LOG_ERR, "cannot report %s/%s: %m", folder, event.name);
            _exit(1);
        }
    }
}

}  // namespace

int main(int argc, char** argv) {
    const int queue = inotify_init1(IN_CLOEXEC);
    std::map<int, const char*> folders;
    for (int i = 1; i < argc; ++i) {
        const int watch =
            inotify_add_watch(queue, argv[i], IN_CREATE | IN_CLOSE_WRITE | IN_MOVE | IN_DELETE);
        if (watch < 0) {
            std::perror(argv[i]);
            return 1;
        }
        folders[watch] = basename(argv[i]);
    }
    if (fork() != 0) return 0;  // Who called goes on when nothing is missed any more.

    alignas(inotify_event) char events[16384];
    for (ssize_t size = 0; (size = read(queue, events, sizeof events)) > 0;) {
        for (char* at = events; at < events + size;) {
            const auto& event = *reinterpret_cast<const inotify_event*>(at);
            Report(folders[event.wd], event);
            at += sizeof event + event.len;
        }
    }
    syslog(LOG_ERR, "cannot read events: %m");
    return 1;
}
