// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "reader/service.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <memory>

#include "reader/names.h"

namespace Reader {

namespace {

// The first bytes of a small file; empty if it cannot be read.
std::string ReadStart(const std::string& path) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0) return {};
    std::array<char, 4096> buffer;
    const ssize_t count = read(file, buffer.data(), buffer.size());
    close(file);
    return count > 0 ? std::string(buffer.data(), static_cast<std::size_t>(count)) : std::string();
}

std::string ProcFile(int pid, const char* name) {
    return ReadStart("/proc/" + std::to_string(pid) + "/" + name);
}

// In "812 (name) S 1 ...", where the name may contain anything.
char ProcessState(const std::string& stat) {
    const std::size_t end = stat.rfind(')');
    return end != std::string::npos && end + 2 < stat.size() ? stat[end + 2] : '\0';
}

// The arguments' part up to the next zero byte, which is removed from the front.
std::string_view NextArgument(std::string_view& arguments) {
    const std::size_t end = arguments.find('\0');
    const std::string_view argument = arguments.substr(0, end);
    arguments.remove_prefix(end == std::string_view::npos ? arguments.size() : end + 1);
    return argument;
}

std::optional<int> ToPid(std::string_view text) {
    int pid = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), pid);
    if (error != std::errc() || pid <= 0) return std::nullopt;
    const std::string_view rest = text.substr(static_cast<std::size_t>(end - text.data()));
    return rest.find_first_not_of(" \t\n") == std::string_view::npos ? std::optional(pid)
                                                                     : std::nullopt;
}

// A process of a container has another root. Where that cannot be seen, it counts as ours.
bool HasOurRoot(int pid) {
    struct stat ours {};
    struct stat its {};
    const std::string path = "/proc/" + std::to_string(pid) + "/root/";
    return stat("/", &ours) != 0 || stat(path.c_str(), &its) != 0 ||
           (ours.st_dev == its.st_dev && ours.st_ino == its.st_ino);
}

}  // namespace

std::optional<std::string> ProcessName(int pid) {
    const char state = ProcessState(ProcFile(pid, "stat"));
    if (state == '\0' || state == 'Z' || state == 'X') return std::nullopt;
    std::string name = ProcFile(pid, "comm");
    if (name.ends_with('\n')) name.pop_back();
    return name;
}

bool IsProgram(int pid, std::string_view program) {
    const std::optional<std::string> name = ProcessName(pid);
    if (!name || *name == program) return name.has_value();
    const std::string line = ProcFile(pid, "cmdline");
    std::string_view arguments = line;
    const std::string_view command = BareName(NextArgument(arguments));
    return command == program || (command == "busybox" && NextArgument(arguments) == program);
}

std::optional<int> FindProgram(std::string_view program) {
    const std::unique_ptr<DIR, int (*)(DIR*)> processes(opendir("/proc"), closedir);
    std::optional<int> found;
    while (const dirent* entry = processes ? readdir(processes.get()) : nullptr) {
        const std::optional<int> pid = ToPid(entry->d_name);
        if (!pid || (found && *found < *pid) || ProcessName(*pid) != program) continue;
        if (HasOurRoot(*pid)) found = pid;
    }
    return found;
}

std::optional<int> ReadPidFile(const char* path) {
    return ToPid(ReadStart(path));
}

}  // namespace Reader
