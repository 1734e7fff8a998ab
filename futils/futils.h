// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// File operations, checked: each failure is logged once, where it is detected, and returned.
//
// Unless a declaration says otherwise, true means failure. Paths are used as they are given:
// nothing is normalised, quoted or resolved. Nothing keeps state. Exceptions of the standard
// library end here; their text goes into the log line.
#pragma once

#include <cstdio>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

namespace Futils {

// Renames; an existing file `to` is replaced. Returns true on failure. Logs an Error line then.
[[nodiscard]] bool Rename(const std::filesystem::path& from, const std::filesystem::path& to);

// Removes a file or an empty directory. A path that does not exist is a success. Returns true on
// failure. Logs an Error line then.
[[nodiscard]] bool Remove(const std::filesystem::path& pfn);

// Makes what was written to a file or directory survive a loss of power. A path that does not exist
// has nothing to lose and is a success; so is one whose file system cannot sync it. Returns true on
// failure. Logs an Error line then.
[[nodiscard]] bool Sync(const std::filesystem::path& pfn);

// Predicates: true if the path is a directory or a regular file; links are followed. A path that
// cannot be tested counts as not existing; the reason is logged at Debug.
[[nodiscard]] bool PathExists(const std::string& path);
[[nodiscard]] bool FileExists(const std::string& pfn);

// Creates one directory level; an existing directory is a success. Returns true on failure, also
// when someone else created it in between. Logs an Error line then.
[[nodiscard]] bool CreateDir(const std::string& dir);

// Creates a directory and its parents with `mkdir -p` through the shell; an existing directory is a
// success. Returns true on failure. Logs two Error lines then.
[[nodiscard]] bool CreatePath(const std::string& dir);

// Copies a file. Never overwrites: an existing `to` is a failure. Returns true on failure, with
// what was copied until then left behind. Logs an Error line then, with the source's bare name.
[[nodiscard]] bool CopyFile(const std::string& from, const std::string& to);

// fopen. Returns null on failure and logs an Error line then. The caller closes with CloseFile.
[[nodiscard]] std::FILE* Open(const std::string& pfn, const std::string& mode);

// fclose. Returns true on failure. Logs an Error line then. The stream is gone in either case.
[[nodiscard]] bool CloseFile(std::FILE* stream);

// The size of a file in bytes; links are followed. Returns true on failure, with `size` 0. Logs an
// Error line then.
[[nodiscard]] bool GetFileSize(unsigned long& size, const std::string& pfn);

// The size of the whole file behind a stream, wherever the stream stands. Returns true on failure,
// with `size` 0, and logs an Error line; but a null stream leaves `size` alone and logs nothing.
[[nodiscard]] bool GetFileSize(unsigned long& size, std::FILE* stream);

// "%.3f %s" with the largest of bytes, kiB, MiB, GiB, TiB and PiB that leaves more than 1.0, in
// single precision: 1024 gives "1024.000 bytes", 1025 gives "1.001 kiB".
[[nodiscard]] std::string FormatFileSize(unsigned long bytes);

// Returns true, and logs an Error line that names `where`, if a path is empty or longer than 255
// characters.
[[nodiscard]] bool PfnHasErrors(const char* where, const std::string& pfn);

// Runs a command line through the shell and waits for it. The command starts with no signal blocked
// and with default dispositions, whatever the caller's are. Returns true unless it exits with 0.
// Logs an Error line then, with the raw wait status (256 for exit status 1).
[[nodiscard]] bool System(const std::string& command);

// The size in bytes of all regular files in a directory, links to such included, not recursively.
// Returns true on failure, with `size` 0. Logs an Error line then.
[[nodiscard]] bool GetDirSize(const std::filesystem::path& dir, unsigned long& size);

// The bare names of all regular files in a directory, links to such included, not recursively.
// Returns true on failure, with the names found until then. Logs an Error line then.
[[nodiscard]] bool GetFilesInDir(std::set<std::string>& files, const std::string& dir);

// Reads the whole file behind a stream that stands at its start. Returns true on failure, with
// `data` empty. Logs an Error line then.
[[nodiscard]] bool ReadBytes(std::vector<unsigned char>& data, std::FILE* stream);

// Reads a whole file. Returns true on failure: `data` is as it was if the file could not be opened,
// empty if it could not be read, and whole if only closing failed. Logs an Error line then, or a
// Warning if there is no such file.
[[nodiscard]] bool ReadBinFile(std::vector<unsigned char>& data, const std::string& pfn);

// Reads a whole file, byte for byte. Returns true on failure, with `text` empty. Logs as
// ReadBinFile does.
[[nodiscard]] bool ReadTextFile(std::string& text, const std::string& pfn);

}  // namespace Futils
