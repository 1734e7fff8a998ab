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

#include "tool/held_signals.h"

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

// The length of a path's folder, with the slash; 0 if there is none.
std::size_t FolderLength(const std::string& path) {
    return path.rfind('/') + 1;
}

// The place that symbolic links lead to, whether there is a file or not.
std::string FollowLinks(std::string path) {
    constexpr int MaxLinks = 40;
    std::array<char, 4096> target;
    for (int i = 0; i < MaxLinks; ++i) {
        const ssize_t length = readlink(path.c_str(), target.data(), target.size());
        if (length <= 0) break;  // It is no link.
        path.erase(target.front() == '/' ? 0 : FolderLength(path));
        path.append(target.data(), static_cast<std::size_t>(length));
    }
    return path;
}

mode_t DefaultMode() {
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
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
    return OpenDirectly();
}

bool OutputFile::Update(const std::string& wanted, std::string_view text) {
    name = wanted;
    isForced = true;
    struct stat status {};
    const bool exists = stat(name.c_str(), &status) == 0;
    if (!exists && errno != ENOENT) return Fail(std::strerror(errno));
    if (exists && !S_ISREG(status.st_mode)) return OpenDirectly() || Write(text);
    name = FollowLinks(wanted);
    const HeldSignals signals;
    const bool hasFailed = MakeSuccessor(exists ? &status : nullptr) || Write(text) || Commit();
    RemoveTemporary();
    return hasFailed;
}

bool OutputFile::OpenDirectly() {
    descriptor = open(name.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
    return descriptor < 0 && Fail(std::strerror(errno));
}

bool OutputFile::OpenTemporary() {
    NameTemporary(std::to_string(getpid()));
    RemoveOnSignals(temporary);
    descriptor =
        open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (descriptor >= 0) return false;
    const int reason = errno;
    ForgetFile();
    temporary.clear();
    return Fail(std::strerror(reason));
}

// Its name is not that of the process: what a power cut has left behind must not be in the way of
// one that gets the same number after each start.
bool OutputFile::MakeSuccessor(const struct stat* old) {
    NameTemporary("XXXXXX");
    descriptor = mkostemp(temporary.data(), O_CLOEXEC);
    if (descriptor < 0) {
        temporary.clear();
        return Fail(std::strerror(errno));
    }
    if (old != nullptr) {
        // Only root gives files away.
        [[maybe_unused]] const int result = fchown(descriptor, old->st_uid, old->st_gid);
    }
    const mode_t mode = old == nullptr ? DefaultMode() : old->st_mode & 0777U;
    return fchmod(descriptor, mode) != 0 && Fail(std::strerror(errno));
}

void OutputFile::NameTemporary(const std::string& end) {
    const std::size_t folder = FolderLength(name);
    temporary = name.substr(0, folder) + "." + name.substr(folder) + "." + end;
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
