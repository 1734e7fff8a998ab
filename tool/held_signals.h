// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#pragma once

#include <csignal>

namespace Tool {

// Holds back the signals that would end the program; the end of the scope lets them in.
class HeldSignals {
public:
    HeldSignals() {
        sigset_t held;
        sigemptyset(&held);
        for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE}) {
            sigaddset(&held, number);
        }
        sigprocmask(SIG_BLOCK, &held, &before);
    }
    ~HeldSignals() { sigprocmask(SIG_SETMASK, &before, nullptr); }
    HeldSignals(const HeldSignals&) = delete;
    HeldSignals& operator=(const HeldSignals&) = delete;

    [[nodiscard]] static bool HasInterrupt() {
        sigset_t pending;
        sigpending(&pending);
        return sigismember(&pending, SIGINT) == 1;
    }

private:
    sigset_t before{};
};

}  // namespace Tool
