// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// One measurement, printed as one line of JSON: what a piece of work cost, the processes that it
// ran and waited for included.
#pragma once

#include <sys/resource.h>
#include <sys/time.h>

#include <cstdio>
#include <ctime>

class Stopwatch {
public:
    // Prints what has been spent since the stopwatch was made.
    void Print(unsigned long allocations = 0) const {
        const double seconds = Now() - start;
        const double processor = ProcessorTime() - processorAtStart;
        std::printf("{\"seconds\": %.9f, \"processor_seconds\": %.6f, \"allocations\": %lu}\n",
                    seconds, processor, allocations);
    }

private:
    static double Now() {
        timespec now{};
        (void)clock_gettime(CLOCK_MONOTONIC, &now);
        return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
    }

    static double Seconds(const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    }

    static double ProcessorTime() {
        double sum = 0;
        for (const int whose : {RUSAGE_SELF, RUSAGE_CHILDREN}) {
            rusage usage{};
            (void)getrusage(whose, &usage);
            sum += Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
        }
        return sum;
    }

    double processorAtStart = ProcessorTime();
    double start = Now();
};
