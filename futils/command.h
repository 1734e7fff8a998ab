// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Commands run through the shell, in the signal state of a fresh process: none blocked, none
// ignored. system(3) passes on what the caller blocks or ignores, and not every shell resets that.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <string>

namespace Futils {

// Runs `command` and waits for it. Returns the wait status: that of an exit with status 127, with
// errno set, if no process could be started, and -1 if its status cannot be read. As system(3)
// does, ignores SIGINT and SIGQUIT for as long, but only where the default action would end the
// caller: a handler of the caller's is called at once.
[[nodiscard]] int RunCommand(const std::string& command);

// The standard output of a command, read while it runs.
class CommandOutput {
public:
    explicit CommandOutput(const std::string& command);
    CommandOutput(const CommandOutput&) = delete;
    CommandOutput& operator=(const CommandOutput&) = delete;
    // Waits for the command, which gets SIGPIPE if it still writes.
    ~CommandOutput();

    // Reads up to `size` bytes; fewer only at the end of the output. Returns how many.
    [[nodiscard]] std::size_t Read(char* data, std::size_t size);

private:
    int fd = -1;  // -1: the command could not be run, and has no output
    pid_t pid = -1;
};

}  // namespace Futils
