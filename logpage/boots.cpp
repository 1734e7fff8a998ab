// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The boots that have a log: the parameter "boot", and the address /boots.
#include "reader/boots.h"

#include <string>

#include "logpage/limits.h"
#include "logpage/requests.h"

namespace Page {

std::optional<Reader::BootChoice> TakeBoots(Parameters& parameters) {
    const std::optional<std::string> text = parameters.Text("boot");
    if (!text) return std::nullopt;
    Reader::BootChoice choice;
    std::string error;
    if (Reader::ParseBoots(*text, choice, error)) throw Error{400, "boot: " + error};
    return choice;
}

std::optional<Reader::BootRange> ResolveBoots(const std::optional<Reader::BootChoice>& choice,
                                              const Reader::Log& log) {
    if (!choice) return std::nullopt;
    Reader::BootRange range;
    std::string error;
    if (Reader::ResolveBoots(log, *choice, range, error)) throw Error{400, "boot: " + error};
    return range;
}

void ServeBoots(Parameters& parameters, Answer& answer) {
    parameters.RefuseOthers();
    TakeTurn();
    const std::unique_ptr<Reader::Log> log = OpenLog();
    std::string text = "[";
    for (const Reader::BootFiles& files : log->Boots()) {
        if (TimeIsUp) throw Error{500, "this takes too long for the device"};
        Reader::BootRow row;
        (void)Reader::ReadBootRow(*log, files, row);  // What cannot be read has no time.
        if (text.size() > 1) text += ',';
        Reader::AppendJson(text, row);
    }
    answer.Write(text + "]\n");
    answer.Flush();
}

}  // namespace Page
