// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Reading whole files: Futils::ReadBytes, ReadBinFile and ReadTextFile.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <vector>

#include "tests/support/memory.h"
#include "tests/support/ordinary_rights.h"
#include "tests/unit/futils/fixture.h"

namespace fs = std::filesystem;

namespace {

using Bytes = std::vector<unsigned char>;

const Bytes Old = {'o', 'l', 'd'};

std::string EveryByte() {
    std::string text;
    for (int byte = 0; byte < 256; ++byte) text += static_cast<char>(byte);
    return text;
}

// Texts at the edges of what a reader buffers or interprets.
std::vector<std::string> Contents() {
    return {"",
            "1",
            "\n",
            std::string(1, '\0'),
            std::string("a\0b", 3),
            "a\r\nb\x1a\r\n",
            EveryByte(),
            Noise(4095),
            Noise(4096),
            Noise(4097),
            Noise(1 << 20)};
}

Bytes AsBytes(const std::string& text) {
    return {text.begin(), text.end()};
}

class ReadingTest : public FutilsTest {
protected:
    const std::string file = folder / "file";
};

class ReadBytesTest : public ReadingTest {
protected:
    void ExpectFailure(std::FILE* stream, const std::string& line) {
        Bytes data = Old;
        EXPECT_FAILURE(Futils::ReadBytes(data, stream));
        EXPECT_EQ(data, Bytes());
        ExpectError(line);
    }
};

TEST_F(ReadBytesTest, ReadsAllThereIs) {
    for (const std::string& content : Contents()) {
        SCOPED_TRACE(content.size());
        WriteFile(file, content);
        Stream stream(std::fopen(file.c_str(), "rb"));
        Bytes data = Old;
        EXPECT_SUCCESS(Futils::ReadBytes(data, stream.get()));
        EXPECT_TRUE(data == AsBytes(content));
    }
}

TEST_F(ReadBytesTest, ReadsByOneCall) {
    WriteFile(file, Noise(1 << 20));
    Stream stream(std::fopen(file.c_str(), "rb"));
    int calls = 0;
    Faults::OnCall("fread", [&] { ++calls; });
    Bytes data;
    EXPECT_SUCCESS(Futils::ReadBytes(data, stream.get()));
    EXPECT_EQ(calls, 1);
}

TEST_F(ReadBytesTest, OfANullStreamIsAFailure) {
    ExpectFailure(nullptr, "File not open in ReadBytes.");
}

TEST_F(ReadBytesTest, OfAStreamWithoutAFileIsAFailure) {
    char memory[16] = {};
    Stream stream(fmemopen(memory, sizeof memory, "r"));
    ExpectFailure(stream.get(), "Stream is invalid in GetFileSize: Bad file descriptor");
}

TEST_F(ReadBytesTest, OfAFileWhoseStatusCannotBeReadIsAFailure) {
    WriteFile(file, "1");
    Stream stream(std::fopen(file.c_str(), "rb"));
    Faults::Fail("fstat", EIO, 1);
    ExpectFailure(stream.get(), "Could not get a file size: Input/output error");
}

TEST_F(ReadBytesTest, OfAStreamThatCannotBeReadIsAFailure) {
    WriteFile(file, "123");
    Stream stream(std::fopen(file.c_str(), "ab"));
    ExpectFailure(stream.get(), "Could not read a file: Bad file descriptor");

    stream.reset(std::fopen(file.c_str(), "rb"));
    Faults::Fail("fread", EIO, 1);
    ExpectFailure(stream.get(), "Could not read a file: Input/output error");

    stream.reset(std::fopen(folder.c_str(), "rb"));
    ExpectFailure(stream.get(), "Could not read a file: Is a directory");
}

TEST_F(ReadBytesTest, OfAStreamThatIsNotAtItsStartIsAFailure) {
    WriteFile(file, "123");
    Stream stream(std::fopen(file.c_str(), "rb"));
    EXPECT_EQ(std::fgetc(stream.get()), '1');
    Faults::OnCall("fread", [] { errno = EDOM; });
    ExpectFailure(stream.get(), "Could not read a file: Numerical argument out of domain");
}

TEST_F(ReadBytesTest, AFileThatGrowsMeanwhileGivesItsFirstPart) {
    WriteFile(file, "123");
    Stream stream(std::fopen(file.c_str(), "rb"));
    Faults::OnCall("fread", [this] { WriteFile(file, "12345"); });
    Bytes data;
    EXPECT_SUCCESS(Futils::ReadBytes(data, stream.get()));
    EXPECT_EQ(data, AsBytes("123"));
}

TEST_F(ReadBytesTest, AFileThatShrinksMeanwhileIsAFailure) {
    WriteFile(file, "12345");
    Stream stream(std::fopen(file.c_str(), "rb"));
    Faults::OnCall("fread", [this] {
        fs::resize_file(file, 3);
        errno = EDOM;
    });
    ExpectFailure(stream.get(), "Could not read a file: Numerical argument out of domain");
}

class ReadBinFileTest : public ReadingTest {
protected:
    static void ExpectRead(const std::string& content, const fs::path& pfn) {
        Bytes data = Old;
        EXPECT_SUCCESS(Futils::ReadBinFile(data, pfn));
        EXPECT_TRUE(data == AsBytes(content));
    }

    // Expects a failure before the file is read: what the caller had stays.
    void ExpectRefusal(const std::string& pfn, int severity, const std::string& line) {
        SCOPED_TRACE(pfn);
        Bytes data = Old;
        EXPECT_FAILURE(Futils::ReadBinFile(data, pfn));
        EXPECT_EQ(data, Old);
        ExpectLine(severity, line);
    }

    void ExpectMissing(const std::string& pfn) {
        ExpectRefusal(pfn, LOG_WARNING, "Attempt to read file " + pfn + ", which does not exist.");
    }
};

TEST_F(ReadBinFileTest, ReadsAllThereIsAndClosesTheFile) {
    for (const std::string& content : Contents()) {
        SCOPED_TRACE(content.size());
        WriteFile(file, content);
        ExpectRead(content, file);
    }
}

TEST_F(ReadBinFileTest, OpensInBinaryModeAndFollowsLinks) {
    WriteFile(file, "1");
    fs::create_symlink("file", folder / "link");
    ExpectRead("1", folder / "link");
}

TEST_F(ReadBinFileTest, WhatIsNoRegularFileDoesNotExistToIt) {
    MakeDir(folder,
            {{"dir/", ""}, {"link to dir@", "dir"}, {"dangling@", "nowhere"}, {"fifo?", ""}});
    for (const char* name : {"missing", "%s%n", "dir", "link to dir", "dangling", "fifo"}) {
        ExpectMissing(folder / name);
    }
}

TEST_F(ReadBinFileTest, WhatCannotBeTestedDoesNotExistToIt) {
    fs::create_symlink("loop", folder / "loop");
    const std::string loop = folder / "loop";
    const std::string reason = Reason([&] { (void)fs::status(loop); });
    Bytes data = Old;
    EXPECT_FAILURE(Futils::ReadBinFile(data, loop));
    EXPECT_EQ(data, Old);
    EXPECT_EQ(
        log.Take(),
        (LogLines{{LOG_DEBUG, "FileExists(" + loop + ") exception: " + reason},
                  {LOG_WARNING, "Attempt to read file " + loop + ", which does not exist."}}));
}

TEST_F(ReadBinFileTest, AnEmptyNameIsRefused) {
    ExpectRefusal("", LOG_ERR, "Path/File cannot be empty in ReadBinFile");
}

// A name of 256 characters would be logged at Debug if the file system were asked.
TEST_F(ReadBinFileTest, ANameOf256CharactersIsRefusedUnseen) {
    ExpectRefusal(std::string(256, 'n'), LOG_ERR, "Path + File Name is too long in ReadBinFile");

    const std::string existing = folder / std::string(256 - file.size() + 4, 'n');
    ASSERT_EQ(existing.size(), 256U);
    WriteFile(existing, "1");
    ExpectRefusal(existing, LOG_ERR, "Path + File Name is too long in ReadBinFile");
}

TEST_F(ReadBinFileTest, ANameOf255CharactersIsRead) {
    const std::string longest = folder / std::string(255 - file.size() + 4, 'n');
    ASSERT_EQ(longest.size(), 255U);
    WriteFile(longest, "1");
    ExpectRead("1", longest);
}

TEST_F(ReadBinFileTest, AFileThatCannotBeOpenedIsAFailure) {
    WriteFile(file, "1");
    fs::permissions(file, fs::perms::none);
    const OrdinaryRights ordinary;
    ExpectRefusal(file, LOG_ERR, "Unable to open " + file + " (mode rb): Permission denied");
}

TEST_F(ReadBinFileTest, AFileThatVanishesBeforeItIsOpenedIsAFailure) {
    WriteFile(file, "1");
    Faults::OnCall("fopen", [this] { fs::remove(file); });
    ExpectRefusal(file, LOG_ERR,
                  "Unable to open " + file + " (mode rb): No such file or directory");
}

TEST_F(ReadBinFileTest, AFailedReadClosesTheFileAndLeavesNothing) {
    WriteFile(file, "1");
    Faults::Fail("fread", EIO);
    Bytes data = Old;
    EXPECT_FAILURE(Futils::ReadBinFile(data, file));
    EXPECT_EQ(data, Bytes());
    ExpectNothingOpen();
    ExpectError("Could not read a file: Input/output error");
}

TEST_F(ReadBinFileTest, AFailedCloseIsAFailureThoughAllWasRead) {
    WriteFile(file, "1");
    Faults::Fail("fclose", EIO, 1);
    Bytes data;
    EXPECT_FAILURE(Futils::ReadBinFile(data, file));
    ExpectError("Could not close a file: Input/output error");
}

TEST_F(ReadBinFileTest, AFailedReadAndAFailedCloseAreTwoLines) {
    WriteFile(file, "1");
    Faults::Fail("fread", EIO, 1);
    Faults::Fail("fclose", ENOSPC, 1);
    Bytes data = Old;
    EXPECT_FAILURE(Futils::ReadBinFile(data, file));
    EXPECT_EQ(data, Bytes());
    EXPECT_EQ(log.Take(), (LogLines{{LOG_ERR, "Could not read a file: Input/output error"},
                                    {LOG_ERR, "Could not close a file: No space left on device"}}));
}

TEST_F(ReadBinFileTest, LackOfMemoryClosesTheFile) {
    WriteSparseFile(file, 1 << 20);
    Bytes data;
    {
        const ScarceMemory memory(1 << 16);
        EXPECT_THROW((void)Futils::ReadBinFile(data, file), std::bad_alloc);
    }
}

class ReadTextFileTest : public ReadingTest {
protected:
    void ExpectFailure(const std::string& pfn, int severity, const std::string& line) {
        SCOPED_TRACE(pfn);
        std::string text = "old";
        EXPECT_FAILURE(Futils::ReadTextFile(text, pfn));
        EXPECT_EQ(text, "");
        ExpectLine(severity, line);
    }
};

TEST_F(ReadTextFileTest, GivesEveryByteAsItIs) {
    for (const std::string& content : Contents()) {
        SCOPED_TRACE(content.size());
        WriteFile(file, content);
        std::string text = "old";
        EXPECT_SUCCESS(Futils::ReadTextFile(text, file));
        EXPECT_TRUE(text == content);
    }
}

// As with /proc: the size is the file status's word.
TEST_F(ReadTextFileTest, AFileThatSaysItIsEmptyIsEmpty) {
    std::string text = "old";
    EXPECT_SUCCESS(Futils::ReadTextFile(text, "/proc/self/status"));
    EXPECT_EQ(text, "");
}

TEST_F(ReadTextFileTest, EveryFailureLeavesTheTextEmpty) {
    ExpectFailure(folder / "missing", LOG_WARNING,
                  "Attempt to read file /perm/futils/missing, which does not exist.");
    ExpectFailure(folder, LOG_WARNING, "Attempt to read file /perm/futils, which does not exist.");
    ExpectFailure("", LOG_ERR, "Path/File cannot be empty in ReadBinFile");
    ExpectFailure(std::string(256, 'n'), LOG_ERR, "Path + File Name is too long in ReadBinFile");

    WriteFile(file, "1");
    Faults::Fail("fopen", EMFILE, 1);
    ExpectFailure(file, LOG_ERR, "Unable to open /perm/futils/file (mode rb): Too many open files");
    Faults::Fail("fread", EIO, 1);
    ExpectFailure(file, LOG_ERR, "Could not read a file: Input/output error");
    Faults::Fail("fclose", EIO, 1);
    ExpectFailure(file, LOG_ERR, "Could not close a file: Input/output error");
}

TEST_F(ReadTextFileTest, LackOfMemoryIsAFailureWhereverItShows) {
    WriteSparseFile(file, 1 << 20);
    for (const int granted : {0, 1}) {
        SCOPED_TRACE(granted == 0 ? "for the bytes" : "for the text");
        const ScarceMemory memory(1 << 16, granted);
        ExpectFailure(file, LOG_ERR, "Assigning string in ReadTextFile: std::bad_alloc");
    }
}

TEST_F(ReadTextFileTest, WhatIsNoStandardExceptionPassesAndTheFileIsClosed) {
    WriteFile(file, "1");
    Faults::OnCall("fread", [] { throw 42; });
    std::string text;
    EXPECT_THROW((void)Futils::ReadTextFile(text, file), int);
}

}  // namespace
