// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

#include "tests/support/files.h"

#include <sys/stat.h>
#include <sys/wait.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>

namespace fs = std::filesystem;

void WriteFile(const fs::path& pfn, const std::string& content) {
    fs::create_directories(pfn.parent_path());
    std::ofstream out(pfn, std::ios::binary);
    out << content;
    ASSERT_TRUE(out.flush()) << pfn;
}

void AppendToFile(const fs::path& pfn, const std::string& text) {
    std::ofstream out(pfn, std::ios::binary | std::ios::app);
    out << text;
    ASSERT_TRUE(out.flush()) << pfn;
}

void WriteSparseFile(const fs::path& pfn, unsigned long size) {
    WriteFile(pfn);
    fs::resize_file(pfn, size);
}

std::string ReadFile(const fs::path& pfn) {
    std::ifstream in(pfn, std::ios::binary);
    EXPECT_TRUE(in) << pfn;
    return {std::istreambuf_iterator<char>(in), {}};
}

std::string ReadXzFile(const fs::path& pfn) {
    const std::string command = "/usr/bin/xz -dc '" + pfn.string() + "'";
    std::string content;
    std::FILE* pipe = popen(command.c_str(), "r");
    std::array<char, 65536> piece;
    while (const std::size_t length = std::fread(piece.data(), 1, piece.size(), pipe)) {
        content.append(piece.data(), length);
    }
    EXPECT_EQ(pclose(pipe), 0) << command;
    return content;
}

std::string Noise(unsigned long bytes, unsigned seed) {
    std::mt19937 random(seed);
    std::string text;
    for (unsigned number = 0; text.size() < bytes; ++number) {
        text += std::to_string(number) + ' ';
        for (int i = 0; i < 8; ++i) text += std::to_string(random());
        text += '\n';
    }
    text.resize(bytes);
    return text;
}

Dir ReadDir(const fs::path& dir) {
    Dir content;
    for (const fs::directory_entry& entry : fs::directory_iterator(dir)) {
        const std::string name = entry.path().filename();
        if (entry.is_symlink()) {
            content[name + "@"] = fs::read_symlink(entry.path());
        } else if (entry.is_directory()) {
            content[name + "/"] = "";
        } else if (entry.is_regular_file()) {
            content[name] = ReadFile(entry.path());
        } else {
            content[name + "?"] = "";
        }
    }
    return content;
}

void MakeDir(const fs::path& dir, const Dir& content) {
    for (const auto& [name, text] : content) {
        const fs::path pfn = dir / name.substr(0, name.size() - 1);
        switch (name.back()) {
            case '/':
                fs::create_directories(pfn);
                break;
            case '@':
                fs::create_symlink(text, pfn);
                break;
            case '?':
                ASSERT_EQ(mkfifo(pfn.c_str(), 0600), 0);
                break;
            default:
                WriteFile(dir / name, text);
        }
    }
}

void WriteScript(const fs::path& pfn, const std::string& script) {
    WriteFile(pfn, "#!/bin/sh\n" + script + "\n");
    fs::permissions(pfn, fs::perms::owner_all);
}

void StandIn(const std::string& name, const std::string& script) {
    const fs::path folder = "/stand-in";
    WriteScript(folder / name, script);
    setenv("PATH", (folder.string() + ":/usr/sbin:/usr/bin:/sbin:/bin").c_str(), 1);
}
