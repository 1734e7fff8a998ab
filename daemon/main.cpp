// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The daemon: start-up, then a check cycle every 10 seconds until a stop signal or a failed cycle.
// It takes no arguments and reads no configuration.
#include <exception>

#include "daemon/moraine.h"
#include "daemon/presence.h"
#include "daemon/sleep.h"
#include "daemon/stop_signals.h"
#include "logging/logging.h"
#include "rotate/rotate.h"

namespace {

// Runs a step of the engine. Returns true if it fails or throws.
bool StepFails(Rotate& rotate, bool (Rotate::*step)(), const char* name) {
    try {
        return (rotate.*step)();
    } catch (const std::exception& e) {  // guard: exceptions
        Log::Error("Exception in %s: %s", name, e.what());
        return true;
    }
}

}  // namespace

int main() {
    Logging::SetLogToStdout(false);
    Logging::SetLogLevel(Logging::SeverityInfo);
    Log::Info("%s initializing.", Moraine::Name.c_str());
    InstallStopSignals();

    const Daemon::Presence presence;
    if (presence.IsTaken()) {
        Log::Error("%s is running already: another process has locked %s.", Moraine::Name.c_str(),
                   Moraine::LockPfe.c_str());
        LogCaughtSignals();
        return 1;
    }

    Rotate rotate;
    if (StepFails(rotate, &Rotate::Init, "start-up")) {
        Log::Error("%s could not initialize logging rotation subsystem and will now exit.",
                   Moraine::Name.c_str());
        LogCaughtSignals();
        return 1;
    }

    presence.PublishBootNum(rotate.GetBootNum());

    // A stop signal until here was logged, but does not stop the daemon: init sends another.
    Log::Info("%s running.", Moraine::Name.c_str());
    MainRunning = true;
    while (MainRunning) {
        SleepBetweenCycles();
        LogCaughtSignals();
        // The cycle also runs after a stop signal: what waits is archived before the device goes
        // down.
        if (StepFails(rotate, &Rotate::CheckLogs, "check cycle")) {
            BlockStopSignals();
            ExitCode = 1;
            MainRunning = false;
        }
    }

    BlockStopSignals();
    const int exitCode = ExitCode;
    Log::Info("%s exiting with code: %d", Moraine::Name.c_str(), exitCode);
    return exitCode;
}
