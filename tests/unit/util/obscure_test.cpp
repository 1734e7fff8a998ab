// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// EncryptFile and DecryptFile.
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <filesystem>
#include <string>

#include "tests/support/faults.h"
#include "tests/support/files.h"
#include "tests/support/memory.h"
#include "util/util.h"

namespace fs = std::filesystem;

namespace {

// Each byte value, once.
std::string AllBytes() {
    std::string bytes;
    for (int value = 0; value <= UCHAR_MAX; ++value) bytes += static_cast<char>(value);
    return bytes;
}

std::string HexOf(const std::string& bytes) {
    std::string hex;
    for (const char byte : bytes) hex += Util::Format("%02x", static_cast<unsigned char>(byte));
    return hex;
}

class ObscureTest : public testing::Test {
protected:
    ObscureTest() {
        fs::remove_all(folder);
        fs::create_directories(folder);
    }

    std::string Obscured(const std::string& bytes) const {
        WriteFile(plain, bytes);
        EXPECT_EQ(Util::EncryptFile(plain, obscured), 0);
        return ReadFile(obscured);
    }

    const fs::path folder = "/tmp/obscure";
    const fs::path plain = folder / "plain";
    const fs::path obscured = folder / "obscured";
    const fs::path restored = folder / "restored";
};

using Function = int (*)(const std::string&, const std::string&);
constexpr Function Functions[] = {Util::EncryptFile, Util::DecryptFile};

TEST_F(ObscureTest, EachFunctionRestoresWhatTheOtherWrote) {
    const std::string contents[] = {"", "a", AllBytes(), AllBytes() + AllBytes() + "end",
                                    Noise(300000)};
    for (const std::string& bytes : contents) {
        SCOPED_TRACE(bytes.size());
        WriteFile(plain, bytes);
        for (const Function function : Functions) {
            const bool encrypts = function == Util::EncryptFile;
            const Function inverse = encrypts ? Util::DecryptFile : Util::EncryptFile;
            EXPECT_EQ(function(plain, obscured), 0);
            EXPECT_EQ(inverse(obscured, restored), 0);
            EXPECT_TRUE(ReadFile(restored) == bytes);
            EXPECT_TRUE(ReadFile(plain) == bytes);
        }
    }
}

// A file that a device wrote years ago must be restored by the program of today.
TEST_F(ObscureTest, TheTableNeverChanges) {
    const std::string once = Obscured(AllBytes());
    EXPECT_EQ(HexOf(once),
              "9273314d2ac209e0802d5f15a28fea78fef74b6751dcb18c4558043b3c27eb4e"
              "d028a7ee2f8a8d4f071bcab2e6821f0330ba136a52a542c9aeef4100de5d06f2"
              "0e467a0c53fc84f1e4dd70fd44a9d222e9f8751c1ab47f8bbeac72355accbfcd"
              "d10de84a6620a0086885c17bbdbca143198364179fed4c77912e39950a96335c"
              "60e53e373ab52b7456fa9bc8b9d448cff56eec213d9a713488d39d2340e1b816"
              "aff3bbffe76dcbe33236f0637e7cd80f794905daceb6558edb65b0d94789a338"
              "5e3fc3619e906218dff42925adaba85b50f66cb31099d5971ea4542c86c611f9"
              "b71493fb9457e2a6241d126bc57d0259760b87aa8101c098c7d76fd6269cc469");
    EXPECT_EQ(Obscured(AllBytes() + AllBytes()), once + once);
    EXPECT_EQ(Obscured("az"), std::string() + once['a'] + once['z']);
}

TEST_F(ObscureTest, TheOutputIsEmptiedFirst) {
    WriteFile(plain);
    for (const Function function : Functions) {
        WriteFile(obscured, "of before");
        EXPECT_EQ(function(plain, obscured), 0);
        EXPECT_DIR(folder, {{"plain", ""}, {"obscured", ""}});
    }
    WriteFile(obscured, std::string(1000, 'x'));
    EXPECT_EQ(Obscured("ab").size(), 2U);
}

TEST_F(ObscureTest, AFileMayBeItsOwnOutput) {
    WriteFile(plain, AllBytes());
    EXPECT_EQ(Util::EncryptFile(plain, plain), 0);
    EXPECT_NE(ReadFile(plain), AllBytes());
    EXPECT_EQ(Util::DecryptFile(plain, plain), 0);
    EXPECT_EQ(ReadFile(plain), AllBytes());
}

TEST_F(ObscureTest, AnInputThatCannotBeReadFailsWithoutAnOutput) {
    for (const Function function : Functions) {
        for (const fs::path& unreadable : {folder / "missing", folder}) {
            EXPECT_EQ(function(unreadable, obscured), -1) << unreadable;
            EXPECT_DIR(folder, {});
        }
    }
}

TEST_F(ObscureTest, AnOutputThatCannotBeOpenedFails) {
    WriteFile(plain, "text");
    for (const Function function : Functions) {
        for (const fs::path& unwritable : {folder, folder / "missing" / "file", fs::path()}) {
            EXPECT_EQ(function(plain, unwritable), -1) << unwritable;
            EXPECT_DIR(folder, {{"plain", "text"}});
        }
    }
}

TEST_F(ObscureTest, AFileThatDoesNotFitIntoMemoryFailsWithoutAnOutput) {
    WriteSparseFile(plain, 1UL << 40);
    const std::string in = plain;
    const std::string out = obscured;
    for (const Function function : Functions) {
        int result = 0;
        {
            const ScarceMemory scarce(1 << 20);
            result = function(in, out);
        }
        EXPECT_EQ(result, -1);
        EXPECT_FALSE(fs::exists(obscured));
    }
}

// The file is cut short between its being measured and read.
TEST_F(ObscureTest, AFileThatShrinksIsAFailureOfEncryptFileAndDecryptedAsItIs) {
    const std::string content = Noise(2 << 20);
    const std::string half = content.substr(0, content.size() / 2);
    Faults::OnCall("fread", [&] { fs::resize_file(plain, half.size()); });
    WriteFile(plain, content);
    EXPECT_EQ(Util::EncryptFile(plain, obscured), -1);
    EXPECT_FALSE(fs::exists(obscured));

    WriteFile(plain, content);
    EXPECT_EQ(Util::DecryptFile(plain, obscured), 0);
    Faults::Clear();
    EXPECT_EQ(Util::EncryptFile(obscured, restored), 0);
    EXPECT_TRUE(ReadFile(restored) == half);
}

TEST_F(ObscureTest, WhetherTheOutputCouldBeWrittenIsNotTold) {
    WriteFile(plain, Noise(100000));
    for (const Function function : Functions) EXPECT_EQ(function(plain, "/dev/full"), 0);
    Faults::Fail("fclose", EIO);
    for (const Function function : Functions) EXPECT_EQ(function(plain, obscured), 0);
}

}  // namespace
