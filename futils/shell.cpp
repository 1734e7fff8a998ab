// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Shell commands.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "futils/command.h"
#include "futils/futils.h"
#include "logging/logging.h"

namespace {

// What system(3) returns for a shell that could not be started: that of an exit with status 127.
constexpr int NotStarted = 127 << 8;

// Starts a command. `output` becomes its standard output unless it is -1. Returns its process ID
// and leaves errno alone, or returns -1 with errno set.
pid_t Spawn(const std::string& command, int output) {
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (output >= 0) posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);

    std::string name = "sh";
    std::string option = "-c";
    std::string line = command;
    char* const arguments[] = {name.data(), option.data(), line.data(), nullptr};
    pid_t pid = -1;
    const int errnoBefore = errno;
    const int error = posix_spawn(&pid, "/bin/sh", &actions, &attributes, arguments, environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    errno = error == 0 ? errnoBefore : error;
    return error == 0 ? pid : -1;
}

// Returns the wait status, or -1 with errno set.
int WaitFor(pid_t pid) {
    int status = -1;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) return -1;
    }
    return status;
}

// Ignores a signal whose default action would end this process.
class Ignored {
public:
    explicit Ignored(int signal) : signal(signal) {
        (void)sigaction(signal, nullptr, &before);
        if (before.sa_handler == SIG_DFL) (void)std::signal(signal, SIG_IGN);  // guard: command
    }
    Ignored(const Ignored&) = delete;
    Ignored& operator=(const Ignored&) = delete;
    ~Ignored() {
        if (before.sa_handler == SIG_DFL) (void)sigaction(signal, &before, nullptr);
    }

private:
    const int signal;
    struct sigaction before {};
};

}  // namespace

int Futils::RunCommand(const std::string& command) {
    const Ignored interrupt(SIGINT);
    const Ignored quit(SIGQUIT);
    const pid_t pid = Spawn(command, -1);
    return pid < 0 ? NotStarted : WaitFor(pid);
}

bool Futils::System(const std::string& command) {
    const int result = RunCommand(command);
    if (result == 0) return false;
    Log::Error("Unable to '%s'.  Result: %d, Error: '%s'", command.c_str(), result,
               strerror(errno));
    return true;
}

Futils::CommandOutput::CommandOutput(const std::string& command) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return;
    pid = Spawn(command, ends[1]);
    (void)close(ends[1]);
    fd = ends[0];
}

Futils::CommandOutput::~CommandOutput() {
    if (fd >= 0) (void)close(fd);
    if (pid >= 0) (void)WaitFor(pid);
}

std::size_t Futils::CommandOutput::Read(char* data, std::size_t size) {
    std::size_t length = 0;
    while (fd >= 0 && length < size) {
        const ssize_t count = read(fd, data + length, size - length);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        length += static_cast<std::size_t>(count);
    }
    return length;
}
