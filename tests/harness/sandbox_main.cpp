// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// sandbox: runs a command inside a sandbox.

#include <getopt.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <system_error>

#include "tests/harness/sandbox.h"

namespace {

constexpr const char* Usage =
    "Usage: sandbox [OPTION]... [--] COMMAND [ARGUMENT]...\n"
    "\n"
    "Runs COMMAND inside a sandbox: a root of its own with an own /perm, /etc,\n"
    "/usr/sbin, /dev, /run, /var and /tmp, and an own process table. The machine's other\n"
    "programs and libraries are visible, read-only. Nothing outlives COMMAND, whose exit\n"
    "status is that of sandbox.\n"
    "\n"
    "  --perm-size BYTES   size of /perm (2147483648)\n"
    "  --bind DIR          DIR of the machine is visible at the same path, read-only\n"
    "  --bind-rw DIR       the same, writable\n"
    "  --place FILE=PATH   FILE of the machine stands at PATH of the sandbox, read-only\n"
    "  --help              print this\n";

[[noreturn]] void RefuseArguments(const std::string& reason) {
    (void)std::fprintf(stderr, "sandbox: %s (see --help)\n", reason.c_str());
    std::exit(EXIT_FAILURE);
}

std::uint64_t ParseSize(std::string_view text) {
    std::uint64_t bytes = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), bytes);
    if (error != std::errc() || end != text.data() + text.size() || bytes == 0) {
        RefuseArguments("'" + std::string(text) + "' is not a size in bytes");
    }
    return bytes;
}

Sandbox::Placement ParsePlacement(std::string_view text) {
    const std::size_t equals = text.rfind('=');
    if (equals == std::string_view::npos) {
        RefuseArguments("'" + std::string(text) + "' is not FILE=PATH");
    }
    return {std::string(text.substr(0, equals)), std::string(text.substr(equals + 1))};
}

Sandbox::Options ParseArguments(int argc, char** argv) {
    constexpr std::array<option, 6> Known{{{"perm-size", required_argument, nullptr, 's'},
                                           {"bind", required_argument, nullptr, 'b'},
                                           {"bind-rw", required_argument, nullptr, 'w'},
                                           {"place", required_argument, nullptr, 'p'},
                                           {"help", no_argument, nullptr, 'h'},
                                           {nullptr, 0, nullptr, 0}}};
    Sandbox::Options options;
    // "+": what follows COMMAND belongs to it.
    for (int found = 0; (found = getopt_long(argc, argv, "+h", Known.data(), nullptr)) != -1;) {
        switch (found) {
            case 's':
                options.permBytes = ParseSize(optarg);
                break;
            case 'b':
                options.readOnly.emplace_back(optarg);
                break;
            case 'w':
                options.writable.emplace_back(optarg);
                break;
            case 'p':
                options.placed.push_back(ParsePlacement(optarg));
                break;
            case 'h':
                (void)std::fputs(Usage, stdout);
                std::exit(EXIT_SUCCESS);
            default:
                std::exit(EXIT_FAILURE);  // getopt_long has said why
        }
    }
    if (optind == argc) RefuseArguments("no command given");
    return options;
}

}  // namespace

int main(int argc, char** argv) {
    const Sandbox::Options options = ParseArguments(argc, argv);
    char** const command = argv + optind;
    Sandbox::Enter(options);
    (void)execvp(command[0], command);
    (void)std::fprintf(stderr, "sandbox: cannot run %s: %s\n", command[0], std::strerror(errno));
    return 127;
}
