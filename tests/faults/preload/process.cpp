// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// The process's entry and end: settings are read, main is announced in the trace,
// and the numbers of allocations are reported.
#include "tests/faults/preload/process.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

using Main = int (*)(int, char**, char**);
using StartMain = int (*)(Main, int, char**, void (*)(), void (*)(), void (*)(), void*);

char reportFile[256];
Main programMain = nullptr;

constexpr const char* Variables[] = {"LD_PRELOAD",       "SLEEP_US",          "SLEEP_LAST",
                                     "SLEEP_FIRST_STOP", "SLEEP_SECOND_STOP", "FAULTS_ALLOCATION",
                                     "FAULTS_REPORT"};

void KeepReportFile() {
    const char* file = std::getenv("FAULTS_REPORT");
    if (file != nullptr) (void)std::snprintf(reportFile, sizeof reportFile, "%s", file);
}

int AnnounceMain(int argc, char** argv, char** environment) {
    FaultsPreload::Report("main", FaultsPreload::Allocations());
    for (const char* variable : Variables) (void)unsetenv(variable);
    (void)getppid();  // A mark in a trace: the product does not ask for it.
    const int status = programMain(argc, argv, environment);
    (void)getppid();
    FaultsPreload::Report("end", FaultsPreload::Allocations());
    return status;
}

}  // namespace

unsigned long FaultsPreload::Setting(const char* name) {
    const char* text = std::getenv(name);
    return text == nullptr ? 0 : std::strtoul(text, nullptr, 10);
}

void FaultsPreload::Report(const char* event, unsigned long number) {
    if (reportFile[0] == '\0') KeepReportFile();
    if (reportFile[0] == '\0') return;
    char line[64];
    const int length = std::snprintf(line, sizeof line, "%s %lu\n", event, number);
    const int file = open(reportFile, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    const bool written = write(file, line, static_cast<std::size_t>(length)) == length;
    (void)close(file);
    if (!written) std::abort();
}

extern "C" int __libc_start_main(Main main, int argc, char** argv, void (*init)(), void (*fini)(),
                                 void (*loaderFini)(), void* stackEnd) {
    programMain = main;
    void* const real = dlsym(RTLD_NEXT, "__libc_start_main");
    StartMain start = nullptr;
    std::memcpy(&start, &real, sizeof start);
    return start(AnnounceMain, argc, argv, init, fini, loaderFini, stackEnd);
}
