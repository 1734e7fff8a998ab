// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Names of files: which are refused, and that all others are taken as they are.
#include "tests/unit/futils/fixture.h"

namespace fs = std::filesystem;

namespace {

using PathNamesTest = FutilsTest;

TEST_F(PathNamesTest, From1To255CharactersAreFine) {
    for (const std::size_t length : {1U, 2U, 254U, 255U}) {
        EXPECT_FALSE(Futils::PfnHasErrors("Here", std::string(length, 'n'))) << length;
    }
    EXPECT_FALSE(Futils::PfnHasErrors("Here", " "));
}

TEST_F(PathNamesTest, OthersAreRefusedWithTheNameOfWhereTheyWereGiven) {
    for (const std::string where : {"Here", "There"}) {
        EXPECT_TRUE(Futils::PfnHasErrors(where.c_str(), ""));
        ExpectError("Path/File cannot be empty in " + where);
        for (const std::size_t length : {256U, 257U, 4096U, 100000U}) {
            SCOPED_TRACE(length);
            EXPECT_TRUE(Futils::PfnHasErrors(where.c_str(), std::string(length, 'n')));
            ExpectError("Path + File Name is too long in " + where);
        }
    }
}

TEST_F(PathNamesTest, AreTakenAsTheyAre) {
    const std::string names[] = {
        "a b",      " leading",   "trailing ",
        "it's",     "\"quoted\"", "new\nline",
        "tab\t",    "\xff\xfe",   "\x80",
        "\x01",     "$HOME",      "*",
        "[a-z]",    "a;b",        "a&b",
        "a|b",      "`a`",        "back\\slash",
        "-rf",      "--",         "~",
        "\xc3\xa4", "%s%n",       "...",
        "#",        "!",          "messages.007.x",
        "{a,b}",    "(",          std::string(200, 'n'),
    };
    const fs::path other = folder / "other";
    for (const std::string& name : names) {
        SCOPED_TRACE(name);
        fs::remove_all(folder);
        WriteFile(folder / name, "12");
        EXPECT_SUCCESS(Futils::CreateDir(other));
        EXPECT_TRUE(Futils::FileExists(folder / name));
        EXPECT_SUCCESS(Futils::CopyFile(folder / name, other / "copy"));
        EXPECT_SUCCESS(Futils::Rename(other / "copy", other / name));
        EXPECT_DIR(other, {{name, "12"}});

        std::set<std::string> found;
        EXPECT_SUCCESS(Futils::GetFilesInDir(found, other));
        EXPECT_EQ(found, std::set<std::string>{name});
        unsigned long size = 0;
        EXPECT_SUCCESS(Futils::GetFileSize(size, other / name));
        EXPECT_EQ(size, 2U);
        std::string text;
        EXPECT_SUCCESS(Futils::ReadTextFile(text, other / name));
        EXPECT_EQ(text, "12");
        EXPECT_SUCCESS(Futils::Sync(other / name));
        EXPECT_SUCCESS(Futils::Remove(folder / name));
        EXPECT_DIR(folder, {{"other/", ""}});
    }
}

}  // namespace
