// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// A file that gets its name only once it is complete: until then it is a hidden file beside it,
// which is removed if the program fails or is interrupted. Also standard output, and what is no
// regular file (a device, a pipe), which are written to directly.
#pragma once

#include <sys/stat.h>

#include <string>
#include <string_view>

namespace Tool {

// Operations return true on failure; `Name` and `Error` then say what failed.
class OutputFile {
public:
    OutputFile() = default;
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    // "-" is standard output. An existing file is replaced only if `isForced`.
    [[nodiscard]] bool Open(const std::string& name, bool isForced);
    [[nodiscard]] bool Write(std::string_view bytes);
    // Makes the file safe on the disk and gives it its name.
    [[nodiscard]] bool Commit();

    // All of that at once, for a small file that holds the latest state: it is replaced, with its
    // mode and owner, at the place that symbolic links lead to. Signals wait meanwhile.
    [[nodiscard]] bool Update(const std::string& name, std::string_view text);

    // What could not be written, and why.
    [[nodiscard]] std::string Name() const;
    [[nodiscard]] const std::string& Error() const { return error; }

private:
    [[nodiscard]] bool OpenDirectly();
    [[nodiscard]] bool OpenTemporary();
    [[nodiscard]] bool MakeSuccessor(const struct stat* old);
    void NameTemporary(const std::string& end);
    [[nodiscard]] bool Rename();
    bool Fail(const char* reason);
    void RemoveTemporary();

    std::string name;
    std::string temporary;  // empty if there is none
    std::string error;
    int descriptor = -1;
    bool isForced = false;
};

}  // namespace Tool
