// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "tool/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace Tool {

namespace {

// The file that a signal must not leave behind.
std::array<char, 4096> removedBySignal{};

void RemoveAndEnd(int signal) {
    unlink(removedBySignal.data());
    _exit(128 + signal);
}

// Called before the file is made, so that there is no moment in between.
void RemoveOnSignals(const std::string& path) {
    std::copy_n(path.c_str(), std::min(path.size() + 1, removedBySignal.size() - 1),
                removedBySignal.data());
    struct sigaction action {};
    action.sa_handler = RemoveAndEnd;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaction(signal, &action, nullptr);
}

// From now on there is nothing to remove; ending without a message stays.
void ForgetFile() {
    removedBySignal.front() = '\0';
}

}  // namespace

OutputFile::~OutputFile() {
    RemoveTemporary();
    if (descriptor > STDERR_FILENO) close(descriptor);
}

bool OutputFile::Open(const std::string& wanted, bool replaces) {
    name = wanted;
    isForced = replaces;
    if (name == "-") {
        descriptor = STDOUT_FILENO;
        return isatty(descriptor) == 1 &&
               Fail("a terminal shows no tar file; redirect it, or use -o FILE");
    }
    struct stat status {};
    if (stat(name.c_str(), &status) != 0) return OpenTemporary();
    if (S_ISDIR(status.st_mode)) return Fail(std::strerror(EISDIR));
    if (S_ISREG(status.st_mode)) {
        return isForced ? OpenTemporary() : Fail("the file exists; --force replaces it");
    }
    descriptor = open(name.c_str(), O_WRONLY | O_CLOEXEC);
    return descriptor < 0 && Fail(std::strerror(errno));
}

bool OutputFile::OpenTemporary() {
    const std::size_t folder = name.rfind('/') + 1;  // 0 if there is no slash
    temporary = name.substr(0, folder) + "." + name.substr(folder) + "." + std::to_string(getpid());
    RemoveOnSignals(temporary);
    descriptor =
        open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (descriptor >= 0) return false;
    const int reason = errno;
    ForgetFile();
    temporary.clear();
    return Fail(std::strerror(reason));
}

bool OutputFile::Write(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = write(descriptor, bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return Fail(std::strerror(errno));
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return false;
}

bool OutputFile::Commit() {
    if (temporary.empty()) return false;
    if (fsync(descriptor) != 0 || Rename()) return Fail(std::strerror(errno));
    temporary.clear();
    ForgetFile();
    return false;
}

// A file that was made under this name meanwhile is not replaced either. Not every file system can
// do that in one step.
bool OutputFile::Rename() {
    if (isForced) return rename(temporary.c_str(), name.c_str()) != 0;
    if (renameat2(AT_FDCWD, temporary.c_str(), AT_FDCWD, name.c_str(), RENAME_NOREPLACE) == 0) {
        return false;
    }
    if (errno != EINVAL && errno != ENOSYS) return true;
    return rename(temporary.c_str(), name.c_str()) != 0;
}

bool OutputFile::Fail(const char* reason) {
    error = reason;
    return true;
}

std::string OutputFile::Name() const {
    return name == "-" ? "standard output" : name;
}

void OutputFile::RemoveTemporary() {
    if (temporary.empty()) return;
    unlink(temporary.c_str());
    temporary.clear();
    ForgetFile();
}

}  // namespace Tool
