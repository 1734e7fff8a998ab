// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Reading whole files: Futils::ReadBytes, ReadBinFile and ReadTextFile.
#include <cerrno>
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
    // Expects each function that takes a name to read `content`.
    static void ExpectRead(const std::string& content, const std::string& pfn) {
        Bytes data = Old;
        EXPECT_SUCCESS(Futils::ReadBinFile(data, pfn));
        EXPECT_TRUE(data == AsBytes(content));
        std::string text = "old";
        EXPECT_SUCCESS(Futils::ReadTextFile(text, pfn));
        EXPECT_TRUE(text == content);
    }

    // Expects each function that takes a name to fail with these lines, ReadBinFile with `left`.
    void ExpectFailure(const std::string& pfn, const Bytes& left, const LogLines& lines) {
        SCOPED_TRACE(pfn);
        Bytes data = Old;
        EXPECT_FAILURE(Futils::ReadBinFile(data, pfn));
        EXPECT_EQ(data, left);
        EXPECT_EQ(log.Take(), lines);
        std::string text = "old";
        EXPECT_FAILURE(Futils::ReadTextFile(text, pfn));
        EXPECT_EQ(text, "");
        EXPECT_EQ(log.Take(), lines);
    }

    // The same before the file is read: what the caller of ReadBinFile had stays.
    void ExpectRefusal(const std::string& pfn, const std::string& line) {
        ExpectFailure(pfn, Old, {{LOG_ERR, line}});
    }

    // The name of a file in the folder, of this length.
    std::string NameOfLength(std::size_t length) const {
        return folder / std::string(length - folder.native().size() - 1, 'n');
    }

    const std::string file = folder / "file";
};

TEST_F(ReadingTest, GivesEveryByteAsItIs) {
    for (const std::string& content : Contents()) {
        SCOPED_TRACE(content.size());
        WriteFile(file, content);
        ExpectRead(content, file);
        const Stream stream(std::fopen(file.c_str(), "rb"));
        Bytes data = Old;
        EXPECT_SUCCESS(Futils::ReadBytes(data, stream.get()));
        EXPECT_TRUE(data == AsBytes(content));
    }
}

class ReadBytesTest : public ReadingTest {
protected:
    void ExpectFailure(std::FILE* stream, const std::string& line) {
        Bytes data = Old;
        EXPECT_FAILURE(Futils::ReadBytes(data, stream));
        EXPECT_EQ(data, Bytes());
        ExpectError(line);
    }
};

TEST_F(ReadBytesTest, ReadsByOneCall) {
    WriteFile(file, Noise(1 << 20));
    Stream stream(std::fopen(file.c_str(), "rb"));
    int calls = 0;
    Faults::OnCall("fread", [&] { ++calls; });
    Bytes data;
    EXPECT_SUCCESS(Futils::ReadBytes(data, stream.get()));
    EXPECT_EQ(calls, 1);
}

TEST_F(ReadBytesTest, AStreamThatCannotBeReadIsAFailure) {
    ExpectFailure(nullptr, "File not open in ReadBytes.");

    char memory[16] = {};
    Stream stream(fmemopen(memory, sizeof memory, "r"));
    ExpectFailure(stream.get(), "Stream is invalid in GetFileSize: Bad file descriptor");

    WriteFile(file, "123");
    stream.reset(std::fopen(file.c_str(), "ab"));
    ExpectFailure(stream.get(), "Could not read a file: Bad file descriptor");

    stream.reset(std::fopen(folder.c_str(), "rb"));
    ExpectFailure(stream.get(), "Could not read a file: Is a directory");

    stream.reset(std::fopen(file.c_str(), "rb"));
    Faults::Fail("fstat", EIO, 1);
    ExpectFailure(stream.get(), "Could not get a file size: Input/output error");
    Faults::Fail("fread", EIO, 1);
    ExpectFailure(stream.get(), "Could not read a file: Input/output error");
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

TEST_F(ReadingTest, ANameMayHave255CharactersAndLeadOverALink) {
    WriteFile(NameOfLength(255), "1");
    ExpectRead("1", NameOfLength(255));
    fs::create_symlink(NameOfLength(255), folder / "link");
    ExpectRead("1", folder / "link");
}

// A name of 256 characters would be logged at Debug if the file system were asked.
TEST_F(ReadingTest, AnEmptyNameAndOneOf256CharactersAreRefusedUnseen) {
    ExpectRefusal("", "Path/File cannot be empty in ReadBinFile");
    ExpectRefusal(std::string(256, 'n'), "Path + File Name is too long in ReadBinFile");
    WriteFile(NameOfLength(256), "1");
    ExpectRefusal(NameOfLength(256), "Path + File Name is too long in ReadBinFile");
}

TEST_F(ReadingTest, WhatIsNoRegularFileDoesNotExist) {
    MakeDir(folder,
            {{"dir/", ""}, {"link to dir@", "dir"}, {"dangling@", "nowhere"}, {"fifo?", ""}});
    for (const char* name : {"missing", "%s%n", "dir", "link to dir", "dangling", "fifo"}) {
        const std::string pfn = folder / name;
        ExpectFailure(pfn, Old,
                      {{LOG_WARNING, "Attempt to read file " + pfn + ", which does not exist."}});
    }
}

TEST_F(ReadingTest, WhatCannotBeTestedDoesNotExist) {
    fs::create_symlink("loop", folder / "loop");
    const std::string loop = folder / "loop";
    const std::string reason = Reason([&] { (void)fs::status(loop); });
    ExpectFailure(loop, Old,
                  {{LOG_DEBUG, "FileExists(" + loop + ") exception: " + reason},
                   {LOG_WARNING, "Attempt to read file " + loop + ", which does not exist."}});
}

TEST_F(ReadingTest, AFileThatCannotBeOpenedIsAFailure) {
    WriteFile(file, "1");
    Faults::Fail("fopen", EMFILE);
    ExpectRefusal(file, "Unable to open " + file + " (mode rb): Too many open files");
    Faults::Clear();

    fs::permissions(file, fs::perms::none);
    const OrdinaryRights ordinary;
    ExpectRefusal(file, "Unable to open " + file + " (mode rb): Permission denied");
}

TEST_F(ReadingTest, AFileThatVanishesBeforeItIsOpenedIsAFailure) {
    WriteFile(file, "1");
    Faults::OnCall("fopen", [this] { fs::remove(file); });
    Bytes data = Old;
    EXPECT_FAILURE(Futils::ReadBinFile(data, file));
    EXPECT_EQ(data, Old);
    ExpectError("Unable to open " + file + " (mode rb): No such file or directory");
}

TEST_F(ReadingTest, AFailedReadClosesTheFileAndLeavesNothing) {
    WriteFile(file, "1");
    Faults::Fail("fread", EIO);
    ExpectFailure(file, {}, {{LOG_ERR, "Could not read a file: Input/output error"}});
    ExpectNothingOpen();
    Faults::Fail("fclose", ENOSPC);
    ExpectFailure(file, {},
                  {{LOG_ERR, "Could not read a file: Input/output error"},
                   {LOG_ERR, "Could not close a file: No space left on device"}});
}

TEST_F(ReadingTest, AFailedCloseIsAFailureThoughAllWasRead) {
    WriteFile(file, "1");
    Faults::Fail("fclose", EIO);
    Bytes data;
    EXPECT_FAILURE(Futils::ReadBinFile(data, file));
    std::string text = "old";
    EXPECT_FAILURE(Futils::ReadTextFile(text, file));
    EXPECT_EQ(text, "");
    EXPECT_LOG(Error("Could not close a file: Input/output error"),
               Error("Could not close a file: Input/output error"));
}

// As with /proc: the size is the file status's word.
TEST_F(ReadingTest, AFileThatSaysItIsEmptyIsEmpty) {
    ExpectRead("", "/proc/self/status");
}

TEST_F(ReadingTest, LackOfMemoryClosesTheFile) {
    WriteSparseFile(file, 1 << 20);
    Bytes data;
    {
        const ScarceMemory memory(1 << 16);
        EXPECT_THROW((void)Futils::ReadBinFile(data, file), std::bad_alloc);
    }
    for (const int granted : {0, 1}) {
        SCOPED_TRACE(granted == 0 ? "for the bytes" : "for the text");
        const ScarceMemory memory(1 << 16, granted);
        std::string text = "old";
        EXPECT_FAILURE(Futils::ReadTextFile(text, file));
        EXPECT_EQ(text, "");
        ExpectError("Assigning string in ReadTextFile: std::bad_alloc");
    }
}

TEST_F(ReadingTest, WhatIsNoStandardExceptionPassesAndTheFileIsClosed) {
    WriteFile(file, "1");
    Faults::OnCall("fread", [] { throw 42; });
    std::string text;
    EXPECT_THROW((void)Futils::ReadTextFile(text, file), int);
}

}  // namespace
