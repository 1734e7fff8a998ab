// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// What the tests of downloads share: a /tmp of their own, and a look into the tar file.
#pragma once

#include <array>
#include <cstdio>
#include <sstream>

#include "tests/support/mounts.h"
#include "tests/unit/logfileutils/fixture.h"

class DownloadTest : public CatalogueTest {
protected:
    static constexpr unsigned long MaxDownloadSize = 15728640;
    static constexpr unsigned long TarOverhead = 10240;
    static constexpr unsigned short Max = 65535;

    DownloadTest() {
        std::filesystem::remove_all("/stand-in");
        // The line of a failed command does not depend on what was called before it.
        Faults::OnCall("waitpid", [] { errno = EDOM; });
    }

    // Packing logs a lot, which most tests leave unread.
    void TearDown() override {}

    static LogLine CommandFailure(const std::string& command, int result) {
        return {LOG_ERR, "Unable to '" + command + "'.  Result: " + std::to_string(result) +
                             ", Error: 'Numerical argument out of domain'"};
    }
    static LogLine CopyFailure(const std::filesystem::path& from, const std::filesystem::path& to) {
        return {LOG_ERR, "Unable to copy " + from.filename().string() +
                             ", reason: " + Reason([&] { std::filesystem::copy(from, to); })};
    }
    static LogLine SizeFailure(const std::filesystem::path& pfn) {
        return {LOG_ERR, "GetFileSize(" + pfn.string() + ") exception: " + Reason([&] {
                             (void)std::filesystem::file_size(pfn);
                         })};
    }

    // What the machine's own programs print, whatever stands before them on PATH.
    static std::string Output(const std::string& command) {
        std::string output;
        std::FILE* pipe = popen(("PATH=/usr/bin:/bin; " + command).c_str(), "r");
        std::array<char, 65536> piece;
        while (const std::size_t length = std::fread(piece.data(), 1, piece.size(), pipe)) {
            output.append(piece.data(), length);
        }
        EXPECT_EQ(pclose(pipe), 0) << command;
        return output;
    }

    // The names in the tar file, in its order, and the content of one of them.
    static Names Packed() {
        std::istringstream list(Output("tar --list --file /tmp/syslog.tar"));
        Names names;
        for (std::string name; std::getline(list, name);) names.push_back(name);
        return names;
    }
    static std::string PackedContent(const std::string& name) {
        return Output("tar --extract --to-stdout --file /tmp/syslog.tar " + name);
    }

    // The names in /tmp; EXPECT_DIR is for contents.
    static Names TmpNames() {
        Names names;
        for (const auto& entry : ReadDir("/tmp")) names.push_back(entry.first);
        return names;
    }

    static std::string Create(const std::string& name) {
        return "cd /tmp; tar --create --file syslog.tar " + name;
    }
    static std::string Append(const std::string& name) {
        return "cd /tmp; tar --append --file syslog.tar " + name;
    }

    const std::string a = ArchName(1);
    const std::string b = ArchName(2);
    const std::string c = ArchName(3);
    const std::filesystem::path tmp = "/tmp";
    const std::filesystem::path tarFile = "/tmp/syslog.tar";

private:
    const Mounted ownTmp = Mounted::Tmpfs("/tmp", "1g");
};
