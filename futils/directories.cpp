// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Creating, measuring and listing directories.
#include <exception>

#include "futils/directory_walk.h"
#include "futils/futils.h"
#include "logging/logging.h"

namespace fs = std::filesystem;

bool Futils::CreateDir(const std::string& dir) {
    if (PathExists(dir)) return false;
    try {
        if (fs::create_directory(dir)) return false;
        // Strict: who made it may not have meant it for this program.
        Log::Error("Exception in CreateDir(%s): %s", dir.c_str(), "nothing was created");
        return true;
    } catch (const std::exception& e) {
        Log::Error("Exception in CreateDir(%s): %s", dir.c_str(), e.what());
        return true;
    }
}

bool Futils::CreatePath(const std::string& dir) {
    if (PathExists(dir)) return false;
    const std::string command = "mkdir -p " + dir;
    if (System(command)) {
        Log::Error("Unable to '%s'.", command.c_str());
        return true;
    }
    return false;
}

bool Futils::GetDirSize(const fs::path& dir, unsigned long& size) {
    size = 0;
    try {
        DirectoryWalk walk(dir);
        while (walk.Next()) size += walk.RegularFileSize().value_or(0);
    } catch (const std::exception& e) {
        size = 0;
        Log::Error("GetDirSize failure on %s: %s", dir.c_str(), e.what());
        return true;
    }
    return false;
}

bool Futils::GetFilesInDir(std::set<std::string>& files, const std::string& dir) {
    files.clear();
    try {
        DirectoryWalk walk(dir);
        while (walk.Next()) {
            if (walk.IsRegularFile()) files.insert(walk.Name());
        }
    } catch (const std::exception& e) {
        Log::Error("Exception in GetFilesInDir(%s): %s", dir.c_str(), e.what());
        return true;
    }
    return false;
}
