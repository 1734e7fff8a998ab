// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The command `moraine`: picks the verb.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <exception>
#include <string>
#include <string_view>
#include <vector>

#include "tool/help.h"
#include "tool/options.h"
#include "tool/output.h"
#include "tool/verbs.h"

namespace {

struct Verb {
    std::string_view name;
    int (*run)(Tool::Arguments arguments);
    bool readsCopies = false;  // -D
};

constexpr Verb Verbs[]{{"log", Tool::RunLog, true}, {"boots", Tool::RunBoots, true},
                       {"status", Tool::RunStatus}, {"verify", Tool::RunVerify, true},
                       {"pack", Tool::RunPack},     {"delete", Tool::RunDelete}};

// What people write instead of a verb or an option.
struct Guess {
    std::string_view written;
    const char* instead;
};

constexpr Guess Guesses[]{{"list-boots", "moraine boots"},
                          {"stat", "moraine status"},
                          {"show", "moraine log"},
                          {"tail", "-n N for the last N lines, -f to follow"}};

constexpr int FailureStatus = 2;

const Verb* FindVerb(std::string_view name) {
    const auto* const found = std::find_if(std::begin(Verbs), std::end(Verbs),
                                           [&](const Verb& verb) { return verb.name == name; });
    return found == std::end(Verbs) ? nullptr : found;
}

[[noreturn]] void ThrowUnknownVerb(std::string_view name, const std::string& hint = "") {
    throw Tool::UsageError("unknown verb '" + std::string(name) + "'" + hint);
}

std::string HintForCopy(const std::string& word) {
    return access(word.c_str(), F_OK) == 0 ? ": use -D " + word : "";
}

std::string HintForVerb(const std::string& word) {
    for (const Guess& guess : Guesses) {
        if (guess.written == word) return std::string(": use ") + guess.instead;
    }
    const std::string hint = HintForCopy(word);
    return hint.empty() ? ": use -g RE to search the log" : hint;
}

std::string HintForArgument(const std::string& word, const Verb& verb) {
    if (FindVerb(word) != nullptr) return ": the verb comes first";
    return verb.readsCopies ? HintForCopy(word) : "";
}

int Print(std::string_view text) {
    Tool::Output output;
    output.Write(text);
    output.Finish();
    return 0;
}

int PrintHelp(Tool::Arguments arguments) {
    if (arguments.empty()) return Print(Tool::Help({}));
    const std::string_view verb = arguments.front();
    if (verb != "help" && FindVerb(verb) == nullptr) ThrowUnknownVerb(verb);
    return Print(Tool::Help(verb));
}

// A file of the log that was opened as standard output would be written to.
void KeepStandardDescriptors() {
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(fd, F_GETFD) < 0) (void)open("/dev/null", O_RDONLY);  // It takes the lowest.
    }
}

// The number of arguments that name the folder to read: they may stand before the verb, too.
std::size_t CountDirectory(Tool::Arguments arguments) {
    if (arguments.empty()) return 0;
    const std::string_view first = arguments.front();
    if (first == "-D" || first == "--directory") return std::min<std::size_t>(2, arguments.size());
    const bool isAttached = first.starts_with("--directory=") || first.starts_with("-D");
    return isAttached ? 1 : 0;
}

int RunVerb(const Verb& verb, Tool::Arguments arguments) {
    try {
        return verb.run(arguments);
    } catch (const Tool::HelpRequest&) {
        return Print(Tool::Help(verb.name));
    } catch (const Tool::UnexpectedArgument& e) {
        throw Tool::UsageError(e.what() + HintForArgument(e.word, verb));
    }
}

int Run(Tool::Arguments arguments) {
    const std::size_t place = CountDirectory(arguments);
    const Verb* const later = place < arguments.size() ? FindVerb(arguments[place]) : nullptr;
    if (place != 0 && later != nullptr) {
        std::vector<char*> others(arguments.begin(), arguments.end());
        others.erase(others.begin() + static_cast<long>(place));
        return RunVerb(*later, others);
    }
    const std::string_view first = arguments.empty() ? "" : arguments.front();
    if (first == "--help" || first == "-h") return Print(Tool::Help({}));
    if (first == "--version") return Print("moraine " MORAINE_VERSION "\n");
    if (first == "help") {
        return PrintHelp(arguments.subspan(1));
    }
    const bool isVerb = !first.empty() && !first.starts_with('-');
    const Verb* verb = isVerb ? FindVerb(first) : &Verbs[0];
    if (verb == nullptr) ThrowUnknownVerb(first, HintForVerb(std::string(first)));
    return RunVerb(*verb, arguments.subspan(isVerb ? 1 : 0));
}

}  // namespace

int main(int argc, char** argv) {
    (void)std::signal(SIGPIPE, SIG_DFL);  // Whoever started it may have ignored it.
    KeepStandardDescriptors();
    try {
        return Run(Tool::Arguments(argv, static_cast<std::size_t>(argc)).subspan(argc > 0 ? 1 : 0));
    } catch (const Tool::UsageError& e) {
        Tool::PrintMessage("", std::string(e.what()) + " (see moraine --help)");
    } catch (const Tool::OutputError& e) {
        Tool::PrintMessage("standard output", strerror(e.number));
    } catch (const std::exception& e) {
        Tool::PrintMessage("", e.what());
    }
    return FailureStatus;
}
