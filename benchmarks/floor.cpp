// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// floor: the least that a piece of work can cost, measured. See Usage.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "benchmarks/stopwatch.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* Usage =
    "Usage: floor OPERATION ARGUMENT...\n"
    "\n"
    "Does nothing but the bare work, and prints what it cost.\n"
    "\n"
    "  rename FOLDER        rename(2) of each archive file, to a boot number one higher\n"
    "  unlink FOLDER COUNT  unlink(2) of the first COUNT files by name\n"
    "  compress FILE        xz -fk, started without a shell\n"
    "  keep FILE            the same, then fsync(2) of the compressed file and of its folder\n"
    "  run COMMAND...       any program, started without a shell\n"
    "  --help               print this\n";

long Check(long result, const std::string& what) {
    if (result < 0) throw std::system_error(errno, std::generic_category(), what);
    return result;
}

std::vector<std::string> SortedFiles(const char* folder) {
    std::vector<std::string> files;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::string OneBootUp(std::string file) {
    const std::size_t number = file.rfind('/') + std::string_view("/messages.").size();
    const int boot = std::stoi(file.substr(number, 3));
    std::string digits = std::to_string(boot + 1);
    digits.insert(0, 3 - std::min<std::size_t>(digits.size(), 3), '0');
    return file.replace(number, 3, digits);
}

// From the highest boot number down, so that no new name is taken.
void Rename(const char* folder) {
    std::vector<std::string> files = SortedFiles(folder);
    std::reverse(files.begin(), files.end());
    std::vector<std::string> newNames;
    for (const std::string& file : files) newNames.push_back(OneBootUp(file));
    const Stopwatch stopwatch;
    for (std::size_t i = 0; i < files.size(); ++i) {
        Check(rename(files[i].c_str(), newNames[i].c_str()), files[i]);
    }
    stopwatch.Print();
}

void Unlink(const char* folder, std::size_t count) {
    std::vector<std::string> files = SortedFiles(folder);
    files.resize(std::min(count, files.size()));
    const Stopwatch stopwatch;
    for (const std::string& file : files) Check(unlink(file.c_str()), file);
    stopwatch.Print();
}

void Spawn(const std::vector<std::string>& command) {
    std::vector<char*> argv;
    for (const std::string& word : command) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    pid_t child = 0;
    int status = 0;
    errno = posix_spawnp(&child, argv[0], nullptr, nullptr, argv.data(), environ);
    Check(errno == 0 ? 0 : -1, command[0]);
    Check(waitpid(child, &status, 0), "waitpid");
    if (status != 0) throw std::runtime_error(command[0] + " failed");
}

void Sync(const fs::path& path) {
    const int fd = static_cast<int>(Check(open(path.c_str(), O_RDONLY | O_CLOEXEC), path));
    Check(fsync(fd), path);
    (void)close(fd);
}

void Run(const std::vector<std::string>& command) {
    const Stopwatch stopwatch;
    Spawn(command);
    stopwatch.Print();
}

void Keep(const std::string& file) {
    const Stopwatch stopwatch;
    Spawn({"xz", "-fk", file});
    Sync(file + ".xz");
    Sync(fs::path(file).parent_path());
    stopwatch.Print();
}

}  // namespace

int main(int argc, char** argv) {
    const std::string_view operation = argc > 1 ? argv[1] : "";
    const int arguments = argc - 2;
    try {
        if (operation == "rename" && arguments == 1) {
            Rename(argv[2]);
        } else if (operation == "unlink" && arguments == 2) {
            Unlink(argv[2], std::stoul(argv[3]));
        } else if (operation == "compress" && arguments == 1) {
            Run({"xz", "-fk", argv[2]});
        } else if (operation == "keep" && arguments == 1) {
            Keep(argv[2]);
        } else if (operation == "run" && arguments > 0) {
            Run({argv + 2, argv + argc});
        } else {
            const bool isHelp = operation == "--help";
            (void)std::fputs(Usage, isHelp ? stdout : stderr);
            return isHelp ? EXIT_SUCCESS : EXIT_FAILURE;
        }
    } catch (const std::exception& error) {
        (void)std::fprintf(stderr, "floor: %s\n", error.what());
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
