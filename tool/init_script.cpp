// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "tool/init_script.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

namespace Tool {

namespace {

constexpr int CannotRun = 127;

// Only calls that are safe in a child of a program with threads.
[[noreturn]] void Become(const char* script, const char* action, int output) {
    setsid();
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    (void)signal(SIGPIPE, SIG_DFL);
    const int input = open("/dev/null", O_RDONLY);
    dup2(input, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    execl(script, script, action, static_cast<char*>(nullptr));
    _exit(CannotRun);
}

std::string ReadAll(int file) {
    std::string text;
    std::array<char, 4096> buffer;
    off_t offset = 0;
    for (ssize_t count; (count = pread(file, buffer.data(), buffer.size(), offset)) > 0;) {
        text.append(buffer.data(), static_cast<std::size_t>(count));
        offset += count;
    }
    return text;
}

// Why a script failed that printed nothing.
std::string ReasonOf(int status) {
    if (WIFSIGNALED(status)) return "was killed by signal " + std::to_string(WTERMSIG(status));
    if (WEXITSTATUS(status) == CannotRun) return "cannot be run";
    return "ended with status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

bool RunInitScript(const std::string& script, const char* action, std::string& output) {
    // A file and not a pipe: the daemon may inherit it, and a pipe would not end before the daemon.
    const int file = memfd_create("init-script", MFD_CLOEXEC);
    const pid_t child = file < 0 ? -1 : fork();
    if (child < 0) {
        output = std::strerror(errno);
        if (file >= 0) close(file);
        return true;
    }
    if (child == 0) Become(script.c_str(), action, file);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    output = ReadAll(file);
    close(file);
    while (output.ends_with('\n')) output.pop_back();
    if (status != 0 && output.empty()) output = ReasonOf(status);
    return status != 0;
}

}  // namespace Tool
