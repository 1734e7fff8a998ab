// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// C streams: opening, closing, sizing, and reading a whole file.
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <memory>

#include "futils/futils.h"
#include "logging/logging.h"

std::FILE* Futils::Open(const std::string& pfn, const std::string& mode) {
    std::FILE* stream = std::fopen(pfn.c_str(), mode.c_str());
    if (stream == nullptr) {
        Log::Error("Unable to open %s (mode %s): %s", pfn.c_str(), mode.c_str(), strerror(errno));
    }
    return stream;
}

bool Futils::CloseFile(std::FILE* stream) {
    if (std::fclose(stream) == 0) return false;
    Log::Error("Could not close a file: %s", strerror(errno));
    return true;
}

bool Futils::GetFileSize(unsigned long& size, std::FILE* stream) {
    if (stream == nullptr) return true;
    size = 0;
    const int fd = fileno(stream);
    if (fd < 0) {
        Log::Error("Stream is invalid in %s: %s", "GetFileSize", strerror(errno));
        return true;
    }
    struct stat status {};
    if (fstat(fd, &status) != 0) {
        Log::Error("Could not get a file size: %s", strerror(errno));
        return true;
    }
    size = static_cast<unsigned long>(status.st_size);
    return false;
}

bool Futils::ReadBytes(std::vector<unsigned char>& data, std::FILE* stream) {
    data.clear();
    if (stream == nullptr) {
        Log::Error("File not open in %s.", "ReadBytes");
        return true;
    }
    unsigned long size = 0;
    if (GetFileSize(size, stream)) return true;
    data.resize(size);
    if (std::fread(data.data(), 1, size, stream) == size) return false;

    Log::Error("Could not read a file: %s", strerror(errno));
    data.clear();
    return true;
}

bool Futils::ReadBinFile(std::vector<unsigned char>& data, const std::string& pfn) {
    if (PfnHasErrors("ReadBinFile", pfn)) return true;
    if (!FileExists(pfn)) {
        Log::Warn("Attempt to read file %s, which does not exist.", pfn.c_str());
        return true;
    }
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(Open(pfn, "rb"), std::fclose);
    if (!stream) return true;
    const bool readFailed = ReadBytes(data, stream.get());
    const bool closeFailed = CloseFile(stream.release());
    return readFailed || closeFailed;
}

bool Futils::ReadTextFile(std::string& text, const std::string& pfn) {
    text.clear();
    try {
        std::vector<unsigned char> data;
        if (ReadBinFile(data, pfn)) return true;
        text.assign(data.begin(), data.end());
    } catch (const std::exception& e) {
        Log::Error("Assigning string in %s: %s", "ReadTextFile", e.what());
        return true;
    }
    return false;
}
