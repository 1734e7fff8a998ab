// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Where the command's output goes: standard output, or a pager in front of the terminal; and its
// messages on standard error.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Tool {

// Standard output could not be written to.
struct OutputError {
    int number;  // errno
};

// Output with a buffer of its own. Throws OutputError. A reader that closes the pipe ends the
// program by SIGPIPE.
class Output {
public:
    Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    ~Output();

    // On a terminal, sends what follows through $PAGER, or less.
    void StartPager();

    // True if a person reads it, on a terminal or through the pager.
    bool IsTerminal() const { return isTerminal; }

    std::string& Text() { return text; }  // append to it, and call Check
    void Check() {
        if (text.size() >= FlushSize) Flush();
    }
    void Write(std::string_view more) {
        text += more;
        Check();
    }
    void Flush();

    // Flushes, and waits for the pager's end.
    void Finish();

private:
    static constexpr std::size_t FlushSize = 64UL << 10;
    std::string text;
    bool isTerminal = IsStandardOutputTerminal();
    bool hasPager = false;

    static bool IsStandardOutputTerminal();
};

// What printf has buffered. Throws OutputError if it, or what was printed before, is lost.
void FlushStandardOutput();

// One message on standard error, "moraine: WHAT: REASON", behind all that was output so far;
// harmless on a terminal. Throws OutputError.
void PrintMessage(const std::string& what, const std::string& reason);

// A line on standard error, rewritten, on a terminal and after a second only.
class ProgressLine {
public:
    ProgressLine();
    ~ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    bool IsDue() const;
    double Seconds() const;
    void Show(const std::string& line);
    void Clear();

private:
    bool isTerminal;
    bool isShown = false;
    long long start;
};

// SIGINT ends the program at once with status 130; the pager takes leave of the terminal first.
void HandleInterrupt();

}  // namespace Tool
