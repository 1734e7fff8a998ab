// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Files of a test, and whole folders compared at once.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>

// "True means failure" reads as what it means.
#define EXPECT_SUCCESS(call) EXPECT_FALSE(call) << "reported a failure"
#define EXPECT_FAILURE(call) EXPECT_TRUE(call) << "reported success"
#define ASSERT_SUCCESS(call) ASSERT_FALSE(call) << "reported a failure"

// Writes a file, making its folders.
void WriteFile(const std::filesystem::path& pfn, const std::string& content = "");

// Writes behind what a file holds.
void AppendToFile(const std::filesystem::path& pfn, const std::string& text);

// Makes a file that has a size and no blocks.
void WriteSparseFile(const std::filesystem::path& pfn, unsigned long size);

std::string ReadFile(const std::filesystem::path& pfn);

// The content of an xz file; fails the test if it is not a whole one.
std::string ReadXzFile(const std::filesystem::path& pfn);

// A text that does not shrink: `bytes` bytes of numbered lines of random digits.
std::string Noise(unsigned long bytes, unsigned seed = 1);

// Bare name to content of every regular file; a folder is "NAME/" with an empty content, a link
// "NAME@" with its target.
using Dir = std::map<std::string, std::string>;
Dir ReadDir(const std::filesystem::path& dir);

// Makes what ReadDir reads, and a FIFO of "NAME?"; names may lead into folders below.
void MakeDir(const std::filesystem::path& dir, const Dir& content);

#define EXPECT_DIR(path, ...) EXPECT_EQ(ReadDir(path), (Dir __VA_ARGS__))

// Writes an executable shell script.
void WriteScript(const std::filesystem::path& pfn, const std::string& script);

// Puts an executable shell script called `name` before the machine's programs on PATH, for this
// process and those it starts.
void StandIn(const std::string& name, const std::string& script);
