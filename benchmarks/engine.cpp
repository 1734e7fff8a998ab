// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// engine: one operation of the library on the archive as it stands, measured. See Usage.
#include <charconv>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>
#include <string_view>

#include "benchmarks/stopwatch.h"
#include "rotate/rotate.h"

namespace {

constexpr const char* Usage =
    "Usage: engine OPERATION [COUNT]\n"
    "\n"
    "Runs an operation of the library once, inside a sandbox, and prints what it cost.\n"
    "\n"
    "  start           start-up, as the daemon does it\n"
    "  cycles COUNT    that many check cycles after a first one, without the sleep between them\n"
    "  renumber        of all archive files, to boot number 1 for the oldest\n"
    "  prune COUNT     deletion of that many of the oldest boots\n"
    "  limit           the archive's measurement, and deletion if it has 1 GiB\n"
    "  stats           the statistics of a fresh catalogue\n"
    "  download COUNT  packing of at most that many files, the newest first\n"
    "  --help          print this\n";

unsigned long allocations = 0;

[[noreturn]] void Refuse(const std::string& reason) {
    (void)std::fprintf(stderr, "engine: %s (see --help)\n", reason.c_str());
    std::exit(EXIT_FAILURE);
}

unsigned short ParseCount(std::string_view text) {
    unsigned short count = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    if (error != std::errc() || end != text.data() + text.size()) {
        Refuse("'" + std::string(text) + "' is not a number up to 65535");
    }
    return count;
}

// Returns true on failure.
bool Run(Rotate& rotate, std::string_view operation, unsigned short count) {
    if (operation == "start") return rotate.Init();
    if (operation == "cycles") {
        for (; count > 0; --count) {
            if (rotate.CheckLogs()) return true;
        }
        return false;
    }
    if (operation == "renumber") return rotate.RenumberArchivedFiles();
    if (operation == "prune") return rotate.DeleteArchiveFiles(true, 65535, count);
    if (operation == "limit") return rotate.ResetArchDirSize() || rotate.CheckArchSize();
    if (operation == "stats") {
        ArchiveStats_s stats{};
        return rotate.GetArchiveStats(stats, true);
    }
    if (operation == "download") return rotate.FillArchiveDownload(false, false, count, 65535) < 0;
    Refuse("unknown operation " + std::string(operation));
}

}  // namespace

// The linker sends every call of malloc here, the C++ library's included where that is static.
extern "C" {
void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size) {
    ++allocations;
    return __real_malloc(size);
}
}

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        (void)std::fputs(Usage, stdout);
        return EXIT_SUCCESS;
    }
    if (argc < 2 || argc > 3) Refuse("one operation, and at most one count");
    const std::string_view operation = argv[1];
    const unsigned short count = argc > 2 ? ParseCount(argv[2]) : 0;
    try {
        Rotate rotate;
        if (operation == "cycles" && rotate.CheckLogs()) Refuse("the first cycle failed");
        const unsigned long allocationsBefore = allocations;
        const Stopwatch stopwatch;
        if (Run(rotate, operation, count)) Refuse("failed: see the system log");
        stopwatch.Print(allocations - allocationsBefore);
    } catch (const std::exception& error) {
        Refuse(error.what());
    }
    return EXIT_SUCCESS;
}
