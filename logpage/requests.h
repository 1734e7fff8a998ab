// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The addresses of the program. Each function reads its parameters, before it reads anything else,
// and writes the answer; what is wrong is thrown as Page::Error.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "logpage/answer.h"
#include "logpage/parameters.h"
#include "reader/boots.h"
#include "reader/log.h"

namespace Page {

void ServeStatus(Parameters& parameters, Answer& answer);
void ServeBoots(Parameters& parameters, Answer& answer);
void ServeLog(Parameters& parameters, Answer& answer);
void ServeFollow(Parameters& parameters, Answer& answer);
void ServeDownload(Parameters& parameters, Answer& answer);

// The device's log. Throws if it cannot be read at all. What cannot be read later goes to `report`.
std::unique_ptr<Reader::Log> OpenLog(const Reader::Report& report = {});

// The parameter "boot", and what it means in the log.
std::optional<Reader::BootChoice> TakeBoots(Parameters& parameters);
std::optional<Reader::BootRange> ResolveBoots(const std::optional<Reader::BootChoice>& choice,
                                              const Reader::Log& log);

// Takes one of the slots; throws if the device is busy.
void TakeTurn();

}  // namespace Page
