// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Files through one thread and through several: the same lines in the same order.
#include "reader/pipeline.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <string>
#include <vector>

#include "tests/support/files.h"

namespace {

int threadsLeft = INT_MAX;

}  // namespace

// The C library's, up to a limit on processes.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*start)(void*), void* argument) noexcept {
    static auto* const real =
        reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    if (threadsLeft == 0) return EAGAIN;
    --threadsLeft;
    return real(thread, attributes, start, argument);
}

namespace {

constexpr int NumFiles = 40;
constexpr int LinesPerFile = 3000;

class Pipeline : public testing::TestWithParam<unsigned> {
protected:
    void SetUp() override {
        for (int file = 0; file < NumFiles; ++file) {
            std::string text;
            for (int line = 0; line < LinesPerFile; ++line) {
                text += std::to_string(file) + "." + std::to_string(line) + "\n";
            }
            AddFile("messages.txt." + std::to_string(NumFiles - file), text);
        }
        options.filter = &filter;
        options.jobs = GetParam();
    }

    void AddFile(const std::string& name, const std::string& text) {
        WriteFile("/tmp/" + name, text);
        catalogue.held.emplace_back(open(("/tmp/" + name).c_str(), O_RDONLY));
        Reader::Placed placed;
        placed.place.fd = catalogue.held.back().Get();
        catalogue.AddPlaced(name, Reader::ParseName(name), placed);
        jobs.push_back({catalogue.entries.size() - 1, {}});
    }

    void Run() {
        Reader::RunPipeline(catalogue, jobs, options,
                            {[&](const Reader::SharedInfo&, const Reader::Run& run) {
                                 text += run.text;
                                 lines += run.lines;
                                 return lines < stopAt;
                             },
                             [&](const Reader::Job& job, const Reader::FileResult& result) {
                                 done.push_back(job.index);
                                 matches += result.matches;
                                 return true;
                             },
                             [](std::size_t) { return true; }});
    }

    static std::string AllText() {
        std::string all;
        for (int file = 0; file < NumFiles; ++file) {
            all += ReadFile("/tmp/messages.txt." + std::to_string(NumFiles - file));
        }
        return all;
    }

    Reader::Catalogue catalogue;
    std::vector<Reader::Job> jobs;
    Reader::Filter filter;
    Reader::PipelineOptions options;

    std::string text;
    std::uint64_t lines = 0;
    std::uint64_t stopAt = UINT64_MAX;
    std::uint64_t matches = 0;
    std::vector<std::size_t> done;
};

TEST_P(Pipeline, GivesAllLinesInTheOrderOfTheFiles) {
    Run();
    EXPECT_TRUE(text == AllText());
    EXPECT_EQ(matches, std::uint64_t{NumFiles} * LinesPerFile);
    ASSERT_EQ(done.size(), jobs.size());
    EXPECT_TRUE(std::is_sorted(done.begin(), done.end()));
}

TEST_P(Pipeline, StopsWhereItIsTold) {
    stopAt = std::uint64_t{LinesPerFile} * 2 + 1;
    Run();
    EXPECT_TRUE(AllText().starts_with(text));
    EXPECT_LT(lines, std::uint64_t{LinesPerFile} * 4);
    EXPECT_LE(done.size(), 3U);
}

TEST_P(Pipeline, StopsWhenItIsCancelled) {
    const std::atomic<bool> cancel = true;
    options.cancel = &cancel;
    Run();
    EXPECT_LE(done.size(), 1U);
}

TEST_P(Pipeline, CountsWithoutGivingLines) {
    std::string error;
    Reader::Expression expression;
    expression.patterns = {"\\.0$"};
    ASSERT_SUCCESS(filter.pattern.Compile(expression, error));
    options.wantsLines = false;
    Run();
    EXPECT_EQ(text, "");
    EXPECT_EQ(matches, std::uint64_t{NumFiles});
}

TEST_P(Pipeline, GoesOnBehindAFileThatIsGone) {
    catalogue.folder = Reader::Descriptor(open("/tmp", O_RDONLY | O_DIRECTORY));
    const std::string gone = "messages.001.1970-01-01.00:00:01.txt.xz";
    catalogue.Add(gone, Reader::ParseName(gone), 1);
    jobs.insert(jobs.begin() + 1, {catalogue.entries.size() - 1, {}});
    Run();
    EXPECT_TRUE(text == AllText());
    EXPECT_EQ(done.size(), jobs.size());
}

TEST_P(Pipeline, GoesOnWithTheThreadsThatCouldBeStarted) {
    for (const int count : {0, 1}) {
        text.clear();
        threadsLeft = count;
        Run();
        EXPECT_TRUE(text == AllText()) << count;
    }
    threadsLeft = INT_MAX;
}

INSTANTIATE_TEST_SUITE_P(Jobs, Pipeline, testing::Values(1, 2, 8));

}  // namespace
