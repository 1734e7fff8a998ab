// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// A sandbox: the fixed paths of the real device (/perm, /etc/init.d, /dev/log ...) for the
// calling process and what it starts, made of namespaces. The machine itself is never touched.
//
// Inside, /usr/sbin (also known as /sbin) and /etc are the sandbox's own and hold only what is
// placed there; the rest of the machine's programs and libraries are visible but read-only. The
// root is a writable tmpfs, /perm a tmpfs of its own. Works for root, and for an ordinary user
// where user namespaces are allowed: the caller is root inside either way.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace Sandbox {

// A file of the machine that stands, read-only, at a path of the sandbox; what is already visible
// at that path is covered.
struct Placement {
    std::string file;
    std::string path;
};

struct Options {
    std::uint64_t permBytes = std::uint64_t{2} << 30;
    std::vector<std::string> readOnly;  // folders of the machine, visible at the same path
    std::vector<std::string> writable;
    std::vector<Placement> placed;
};

// Returns inside a fresh sandbox, in a new process; the calling one waits for it and exits with its
// exit status (128 + the number of the signal that killed it), passing SIGTERM, SIGINT, SIGHUP and
// SIGQUIT on. Inside, these have their default actions, and no signal is blocked. Everything
// started inside ends with that process. Where the sandbox cannot be made, prints why in one line
// and exits with status 1. Call it before any thread starts.
void Enter(const Options& options);

}  // namespace Sandbox
