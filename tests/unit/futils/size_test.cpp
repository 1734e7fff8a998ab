// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Sizes of named files and of streams, and sizes as people read them.
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <utility>

#include "tests/support/ordinary_rights.h"
#include "tests/unit/futils/fixture.h"

namespace fs = std::filesystem;

namespace {

constexpr unsigned long Untouched = 4711;

class NamedFileSizeTest : public FutilsTest {
protected:
    void ExpectFailure(const std::string& pfn) {
        SCOPED_TRACE(pfn);
        unsigned long size = Untouched;
        EXPECT_FAILURE(Futils::GetFileSize(size, pfn));
        EXPECT_EQ(size, 0U);
        ExpectError("GetFileSize(" + pfn +
                    ") exception: " + Reason([&] { (void)fs::file_size(pfn); }));
    }
};

TEST_F(NamedFileSizeTest, IsThatOfTheFileOrOfALinksTarget) {
    for (const unsigned long expected : {0UL, 1UL, 4096UL, 15728640UL, 5000000000UL}) {
        SCOPED_TRACE(expected);
        WriteSparseFile(folder / "file", expected);
        if (!fs::exists(folder / "link")) fs::create_symlink("file", folder / "link");
        for (const char* name : {"file", "link"}) {
            unsigned long size = Untouched;
            EXPECT_SUCCESS(Futils::GetFileSize(size, folder / name));
            EXPECT_EQ(size, expected);
        }
    }
}

TEST_F(NamedFileSizeTest, OfWhatIsNoFileIsAFailure) {
    MakeDir(folder, {{"file", "1"},
                     {"dir/", ""},
                     {"link to dir@", "dir"},
                     {"dangling@", "nowhere"},
                     {"loop@", "loop"},
                     {"fifo?", ""}});
    for (const char* name : {"missing", "missing/too", "%s%n", "dir", "dir/", "link to dir",
                             "dangling", "loop", "file/", "file/x", "fifo"}) {
        ExpectFailure(folder / name);
    }
    ExpectFailure("");
    ExpectFailure("/dev/null");
    ExpectFailure(folder / std::string(256, 'n'));

    WriteFile(folder / "closed" / "file", "1");
    fs::permissions(folder / "closed", fs::perms::owner_read);
    const OrdinaryRights ordinary;
    ExpectFailure(folder / "closed" / "file");
}

class StreamSizeTest : public FutilsTest {
protected:
    static void ExpectSize(std::FILE* stream, unsigned long expected) {
        unsigned long size = Untouched;
        EXPECT_SUCCESS(Futils::GetFileSize(size, stream));
        EXPECT_EQ(size, expected);
    }

    void ExpectFailure(std::FILE* stream, const std::string& line) {
        unsigned long size = Untouched;
        EXPECT_FAILURE(Futils::GetFileSize(size, stream));
        EXPECT_EQ(size, 0U);
        ExpectError(line);
    }
};

TEST_F(StreamSizeTest, IsThatOfTheWholeFileWhereverTheStreamStands) {
    for (const unsigned long expected : {0UL, 1UL, 10UL, 5000000000UL}) {
        WriteSparseFile(folder / "file", expected);
        Stream stream(std::fopen((folder / "file").c_str(), "rb"));
        for (const int whence : {SEEK_SET, SEEK_END}) {
            ASSERT_EQ(std::fseek(stream.get(), 0, whence), 0);
            const long position = std::ftell(stream.get());
            ExpectSize(stream.get(), expected);
            EXPECT_EQ(std::ftell(stream.get()), position);
        }
    }
}

TEST_F(StreamSizeTest, DescriptorZeroIsAsGoodAsAny) {
    WriteFile(folder / "file", "123");
    const FreeDescriptorZero zero;
    const Stream stream(std::fopen((folder / "file").c_str(), "rb"));
    ASSERT_EQ(fileno(stream.get()), 0);
    ExpectSize(stream.get(), 3);
}

TEST_F(StreamSizeTest, OfANullStreamIsASilentFailureThatLeavesTheSizeAlone) {
    unsigned long size = Untouched;
    EXPECT_FAILURE(Futils::GetFileSize(size, nullptr));
    EXPECT_EQ(size, Untouched);
}

TEST_F(StreamSizeTest, OfAStreamWithoutAFileOrItsStatusIsAFailure) {
    char memory[16] = {};
    Stream stream(fmemopen(memory, sizeof memory, "r"));
    ExpectFailure(stream.get(), "Stream is invalid in GetFileSize: Bad file descriptor");

    WriteFile(folder / "file", "1");
    stream.reset(std::fopen((folder / "file").c_str(), "rb"));
    Faults::Fail("fileno", EINVAL, 1);
    ExpectFailure(stream.get(), "Stream is invalid in GetFileSize: Invalid argument");
    Faults::Fail("fstat", EIO, 1);
    ExpectFailure(stream.get(), "Could not get a file size: Input/output error");
    (void)close(fileno(stream.get()));
    ExpectFailure(stream.get(), "Could not get a file size: Bad file descriptor");
}

TEST(FormatFileSize, GivesTheLargestUnitThatLeavesMoreThanOne) {
    const std::pair<unsigned long, const char*> cases[] = {
        {0, "0.000 bytes"},          {1, "1.000 bytes"},           {2, "2.000 bytes"},
        {1023, "1023.000 bytes"},    {1024, "1024.000 bytes"},     {1025, "1.001 kiB"},
        {1536, "1.500 kiB"},         {10240, "10.000 kiB"},        {1048575, "1023.999 kiB"},
        {1UL << 20, "1024.000 kiB"}, {1048577, "1.000 MiB"},       {10485760, "10.000 MiB"},
        {15728640, "15.000 MiB"},    {966367641, "921.600 MiB"},   {1UL << 30, "1024.000 MiB"},
        {1288490188, "1.200 GiB"},   {1UL << 40, "1024.000 GiB"},  {3UL << 39, "1.500 TiB"},
        {1UL << 50, "1024.000 TiB"}, {1UL << 51, "2.000 PiB"},     {1UL << 60, "1024.000 PiB"},
        {1UL << 61, "2048.000 PiB"}, {ULONG_MAX, "16384.000 PiB"},
    };
    for (const auto& [bytes, text] : cases) EXPECT_EQ(Futils::FormatFileSize(bytes), text) << bytes;
}

// Above 2^24 bytes a count is rounded to 24 significant bits first, half to even.
TEST(FormatFileSize, CountsInSinglePrecision) {
    constexpr unsigned long GiB = 1UL << 30;
    constexpr unsigned long Step = 128;  // between neighbours just above 1 GiB
    EXPECT_EQ(Futils::FormatFileSize(GiB + 1), "1024.000 MiB");
    EXPECT_EQ(Futils::FormatFileSize(GiB + Step / 2), "1024.000 MiB");
    EXPECT_EQ(Futils::FormatFileSize(GiB + Step / 2 + 1), "1.000 GiB");
    EXPECT_EQ(Futils::FormatFileSize(GiB - 1), "1024.000 MiB");
}

}  // namespace
