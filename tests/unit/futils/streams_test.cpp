// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Futils::Open and Futils::CloseFile.
#include <cerrno>
#include <cstring>
#include <tuple>

#include "tests/support/mounts.h"
#include "tests/support/ordinary_rights.h"
#include "tests/unit/futils/fixture.h"

namespace fs = std::filesystem;

namespace {

class StreamTest : public FutilsTest {
protected:
    void ExpectOpenFails(const std::string& pfn, const std::string& mode, int error) {
        SCOPED_TRACE(pfn + ' ' + mode);
        EXPECT_EQ(Futils::Open(pfn, mode), nullptr);
        ExpectError("Unable to open " + pfn + " (mode " + mode + "): " + strerror(error));
    }

    static void Write(const std::string& pfn, const std::string& mode, const std::string& text) {
        std::FILE* stream = Futils::Open(pfn, mode);
        ASSERT_NE(stream, nullptr);
        EXPECT_GE(std::fputs(text.c_str(), stream), 0);
        EXPECT_SUCCESS(Futils::CloseFile(stream));
    }
};

TEST_F(StreamTest, TheModeIsTheCLibrarys) {
    Write(folder / "a", "wb", "old");
    Write(folder / "a", "w", "1");
    Write(folder / "a", "ab", "2");
    std::FILE* stream = Futils::Open(folder / "a", "rb");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(std::fgetc(stream), '1');
    EXPECT_EQ(std::fputc('x', stream), EOF);
    (void)Futils::CloseFile(stream);  // It may report the refused character.
    log.Take();
    EXPECT_DIR(folder, {{"a", "12"}});
}

TEST_F(StreamTest, WhatCannotBeOpenedIsLogged) {
    MakeDir(folder, {{"file", "1"}, {"dir/", ""}, {"dangling@", "nowhere"}, {"loop@", "loop"}});
    const std::tuple<const char*, const char*, int> cases[] = {
        {"missing", "rb", ENOENT}, {"missing", "r+", ENOENT},   {"missing/new", "wb", ENOENT},
        {"%s%n", "rb", ENOENT},    {"a b\nc\xff", "r", ENOENT}, {"dangling", "rb", ENOENT},
        {"loop", "rb", ELOOP},     {"loop", "wb", ELOOP},       {"file/", "rb", ENOTDIR},
        {"file/x", "wb", ENOTDIR}, {"dir", "wb", EISDIR},       {"dir", "ab", EISDIR},
        {"file", "wbx", EEXIST},   {"file", "", EINVAL},        {"file", "z", EINVAL},
    };
    for (const auto& [name, mode, error] : cases) ExpectOpenFails(folder / name, mode, error);
    ExpectOpenFails("", "rb", ENOENT);
    ExpectOpenFails(folder / std::string(256, 'n'), "rb", ENAMETOOLONG);
    EXPECT_DIR(folder, {{"file", "1"}, {"dir/", ""}, {"dangling@", "nowhere"}, {"loop@", "loop"}});
}

TEST_F(StreamTest, AReadOnlyFileSystemRefusesWriting) {
    WriteFile(folder / "file", "1");
    const Mounted readOnly = Mounted::ReadOnly(folder);
    ExpectOpenFails(folder / "file", "wb", EROFS);
    ExpectOpenFails(folder / "new", "ab", EROFS);
}

TEST_F(StreamTest, MissingPermissionAndMissingDescriptorsAreLogged) {
    WriteFile(folder / "file", "1");
    Faults::Fail("fopen", EMFILE, 1);
    ExpectOpenFails(folder / "file", "rb", EMFILE);
    fs::permissions(folder / "file", fs::perms::none);
    const OrdinaryRights ordinary;
    ExpectOpenFails(folder / "file", "rb", EACCES);
}

TEST_F(StreamTest, WhatOnlyClosingWritesAndCannotIsAFailure) {
    fs::create_directory(folder / "small");
    const Mounted small = Mounted::Tmpfs(folder / "small", "64k");
    WriteFile(folder / "small" / "filler", std::string(64 << 10, '.'));
    std::FILE* stream = Futils::Open(folder / "small" / "file", "wb");
    ASSERT_NE(stream, nullptr);
    EXPECT_GE(std::fputs("buffered", stream), 0);
    EXPECT_FAILURE(Futils::CloseFile(stream));
    ExpectError("Could not close a file: No space left on device");
}

TEST_F(StreamTest, AMediumErrorOnClosingIsLogged) {
    WriteFile(folder / "file", "1");
    std::FILE* stream = Futils::Open(folder / "file", "rb");
    Faults::Fail("fclose", EIO, 1);
    EXPECT_FAILURE(Futils::CloseFile(stream));
    ExpectError("Could not close a file: Input/output error");
}

}  // namespace
