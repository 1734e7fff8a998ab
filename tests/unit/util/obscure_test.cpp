// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// EncryptFile and DecryptFile.
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <filesystem>
#include <set>
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
    ObscureTest() { fs::create_directories(folder); }
    ~ObscureTest() override {
        Faults::Clear();
        fs::remove_all(folder);
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

TEST_F(ObscureTest, DecryptFileRestoresWhatEncryptFileWrote) {
    const std::string contents[] = {"", "a", AllBytes(), AllBytes() + AllBytes() + "end",
                                    Noise(300000)};
    for (const std::string& bytes : contents) {
        WriteFile(plain, bytes);
        EXPECT_EQ(Util::EncryptFile(plain, obscured), 0);
        EXPECT_EQ(Util::DecryptFile(obscured, restored), 0);
        EXPECT_TRUE(ReadFile(restored) == bytes) << bytes.size() << " bytes";
        EXPECT_TRUE(ReadFile(plain) == bytes) << bytes.size() << " bytes";
    }
}

TEST_F(ObscureTest, EncryptFileRestoresWhatDecryptFileWrote) {
    WriteFile(plain, AllBytes());
    EXPECT_EQ(Util::DecryptFile(plain, obscured), 0);
    EXPECT_EQ(Util::EncryptFile(obscured, restored), 0);
    EXPECT_EQ(ReadFile(restored), AllBytes());
}

TEST_F(ObscureTest, EachByteValueBecomesAnotherWhereverItStands) {
    const std::string once = Obscured(AllBytes());
    ASSERT_EQ(once.size(), AllBytes().size());
    EXPECT_EQ(std::set<char>(once.begin(), once.end()).size(), once.size());
    EXPECT_EQ(Obscured(AllBytes() + AllBytes()), once + once);
    EXPECT_EQ(Obscured("az"), std::string() + once['a'] + once['z']);
}

// A file that a device wrote years ago must be restored by the program of today.
TEST_F(ObscureTest, TheTableNeverChanges) {
    EXPECT_EQ(HexOf(Obscured(AllBytes())),
              "9273314d2ac209e0802d5f15a28fea78fef74b6751dcb18c4558043b3c27eb4e"
              "d028a7ee2f8a8d4f071bcab2e6821f0330ba136a52a542c9aeef4100de5d06f2"
              "0e467a0c53fc84f1e4dd70fd44a9d222e9f8751c1ab47f8bbeac72355accbfcd"
              "d10de84a6620a0086885c17bbdbca143198364179fed4c77912e39950a96335c"
              "60e53e373ab52b7456fa9bc8b9d448cff56eec213d9a713488d39d2340e1b816"
              "aff3bbffe76dcbe33236f0637e7cd80f794905daceb6558edb65b0d94789a338"
              "5e3fc3619e906218dff42925adaba85b50f66cb31099d5971ea4542c86c611f9"
              "b71493fb9457e2a6241d126bc57d0259760b87aa8101c098c7d76fd6269cc469");
}

TEST_F(ObscureTest, AnEmptyFileBecomesAnEmptyFile) {
    WriteFile(plain);
    for (const Function function : Functions) {
        WriteFile(obscured, "of before");
        EXPECT_EQ(function(plain, obscured), 0);
        EXPECT_DIR(folder, {{"plain", ""}, {"obscured", ""}});
    }
}

TEST_F(ObscureTest, TheOutputIsEmptiedFirst) {
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

TEST_F(ObscureTest, AMissingInputFailsWithoutAnOutput) {
    for (const Function function : Functions) {
        EXPECT_EQ(function(plain, obscured), -1);
        EXPECT_DIR(folder, {});
    }
}

TEST_F(ObscureTest, AFolderIsNoInput) {
    for (const Function function : Functions) {
        EXPECT_EQ(function(folder, obscured), -1);
        EXPECT_DIR(folder, {});
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
class ShrinkingFileTest : public ObscureTest {
protected:
    ShrinkingFileTest() {
        WriteFile(plain, content);
        Faults::OnCall("fread", [this] { fs::resize_file(plain, content.size() / 2); });
    }

    const std::string content = Noise(2 << 20);
};

TEST_F(ShrinkingFileTest, IsAFailureOfEncryptFile) {
    EXPECT_EQ(Util::EncryptFile(plain, obscured), -1);
    EXPECT_FALSE(fs::exists(obscured));
}

TEST_F(ShrinkingFileTest, IsTakenAsItIsByDecryptFile) {
    EXPECT_EQ(Util::DecryptFile(plain, obscured), 0);
    Faults::Clear();
    EXPECT_EQ(Util::EncryptFile(obscured, restored), 0);
    EXPECT_TRUE(ReadFile(restored) == content.substr(0, content.size() / 2));
}

TEST_F(ObscureTest, WhetherTheOutputCouldBeWrittenIsNotTold) {
    WriteFile(plain, Noise(100000));
    for (const Function function : Functions) EXPECT_EQ(function(plain, "/dev/full"), 0);
    Faults::Fail("fclose", EIO);
    for (const Function function : Functions) EXPECT_EQ(function(plain, obscured), 0);
}

}  // namespace
