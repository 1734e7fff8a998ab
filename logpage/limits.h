// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// What one request may take of a small device, and how many may run at once.
#pragma once

#include <atomic>

namespace Page {

// Bounds processor time and memory of this process. When the time is nearly used up, TimeIsUp
// becomes true; some seconds later the kernel ends the process.
void LimitResources();
extern std::atomic<bool> TimeIsUp;

// Takes one of the four slots until the process ends. Returns false if all are taken.
[[nodiscard]] bool TakeSlot();

}  // namespace Page
