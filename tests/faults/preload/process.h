// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// What the parts of the preloaded library know of the process that they are in. Settings are
// environment variables; they, and LD_PRELOAD, are taken away before main runs, so that the
// children are left alone.
#pragma once

namespace FaultsPreload {

// The number that an environment variable held, or 0.
unsigned long Setting(const char* name);

// Appends "event number" to the file that FAULTS_REPORT names, if it names one. Allocates nothing.
void Report(const char* event, unsigned long number);

// Allocations so far, the one in progress included.
unsigned long Allocations();

}  // namespace FaultsPreload
