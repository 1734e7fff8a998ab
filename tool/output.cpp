// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "tool/output.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include "reader/format.h"

namespace Tool {

namespace {

constexpr int InterruptStatus = 130;
constexpr long long NanosPerSec = 1000000000;

volatile pid_t pagerPid = 0;
ProgressLine* progressLine = nullptr;
Output* currentOutput = nullptr;

void WaitForPager() {
    if (pagerPid == 0) return;
    int status = 0;
    while (waitpid(pagerPid, &status, 0) < 0 && errno == EINTR) {
    }
}

void Interrupt(int) {
    (void)close(STDOUT_FILENO);  // The pager sees the end.
    WaitForPager();
    _exit(InterruptStatus);
}

long long Now() {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * NanosPerSec + now.tv_nsec;
}

bool IsExecutable(const std::string& name) {
    if (name.find('/') != std::string::npos) return access(name.c_str(), X_OK) == 0;
    const char* const path = std::getenv("PATH");
    std::string_view rest = path == nullptr ? "/usr/bin:/bin" : path;
    for (;;) {
        const std::size_t end = rest.find(':');
        if (access((std::string(rest.substr(0, end)) + "/" + name).c_str(), X_OK) == 0) return true;
        if (end == std::string_view::npos) return false;
        rest.remove_prefix(end + 1);
    }
}

// False if a shell command cannot be run, as far as its first word shows; what only a shell
// understands may be anything.
bool CanRun(std::string_view command) {
    const std::string_view word = command.substr(0, command.find_first_of(" \t"));
    return word.find_first_of("$`'\"\\=({~") != std::string_view::npos ||
           IsExecutable(std::string(word));
}

// The pager as a shell command; empty if there is none, or none is wanted. What a pager that cannot
// be run is given would be lost.
std::string FindPager() {
    const char* const wanted = std::getenv("PAGER");
    if (wanted != nullptr) {
        const std::string_view pager = wanted;
        return pager == "cat" || !CanRun(pager) ? std::string() : std::string(pager);
    }
    return IsExecutable("less") ? "less" : "";
}

}  // namespace

bool Output::IsStandardOutputTerminal() {
    return isatty(STDOUT_FILENO) == 1;
}

Output::Output() {
    currentOutput = this;
}

Output::~Output() {
    currentOutput = nullptr;
    try {
        Finish();
    } catch (const OutputError&) {
        // Whoever wants to know has called Finish.
    }
}

void Output::StartPager() {
    if (!isTerminal || hasPager) return;
    const std::string pager = FindPager();
    int ends[2];
    if (pager.empty() || pipe2(ends, O_CLOEXEC) != 0) return;
    const pid_t child = fork();
    if (child == 0) {
        (void)dup2(ends[0], STDIN_FILENO);
        (void)signal(SIGINT, SIG_DFL);
        (void)setenv("LESS", "FRSX", 0);
        (void)execl("/bin/sh", "sh", "-c", pager.c_str(), nullptr);
        _exit(127);
    }
    (void)close(ends[0]);
    if (child > 0) {
        pagerPid = child;
        hasPager = true;
        (void)dup2(ends[1], STDOUT_FILENO);
    }
    (void)close(ends[1]);
}

void Output::Flush() {
    std::string_view rest = text;
    while (!rest.empty()) {
        const ssize_t count = write(STDOUT_FILENO, rest.data(), rest.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) {
            text.clear();
            throw OutputError{errno};
        }
        rest.remove_prefix(static_cast<std::size_t>(count));
    }
    text.clear();
}

void Output::Finish() {
    Flush();
    if (!hasPager) return;
    hasPager = false;
    (void)close(STDOUT_FILENO);
    WaitForPager();
    pagerPid = 0;
}

void FlushStandardOutput() {
    if (std::fflush(stdout) != 0) throw OutputError{errno};
    if (std::ferror(stdout) != 0) throw OutputError{EIO};  // The reason came with an earlier part.
}

void PrintMessage(const std::string& what, const std::string& reason) {
    if (progressLine != nullptr) progressLine->Clear();
    if (currentOutput != nullptr) currentOutput->Flush();
    std::string line = "moraine: ";
    const std::string text = what.empty() ? reason : what + ": " + reason;
    if (isatty(STDERR_FILENO) == 1) {
        Reader::AppendVisible(line, text);
    } else {
        line += text;
    }
    line += '\n';
    (void)std::fwrite(line.data(), 1, line.size(), stderr);
}

ProgressLine::ProgressLine() : isTerminal(isatty(STDERR_FILENO) == 1), start(Now()) {
    progressLine = this;
}

ProgressLine::~ProgressLine() {
    Clear();
    progressLine = nullptr;
}

bool ProgressLine::IsDue() const {
    return isTerminal && Now() - start >= NanosPerSec;
}

double ProgressLine::Seconds() const {
    return static_cast<double>(Now() - start) / static_cast<double>(NanosPerSec);
}

void ProgressLine::Show(const std::string& line) {
    isShown = true;
    (void)std::fprintf(stderr, "\r%s\033[K", line.c_str());
    (void)std::fflush(stderr);
}

void ProgressLine::Clear() {
    if (!isShown) return;
    isShown = false;
    (void)std::fputs("\r\033[K", stderr);
    (void)std::fflush(stderr);
}

void HandleInterrupt() {
    struct sigaction action {};
    action.sa_handler = Interrupt;
    (void)sigaction(SIGINT, &action, nullptr);
}

}  // namespace Tool
