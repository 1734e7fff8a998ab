// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Faults made with mounts, which last as long as the object.
#pragma once

#include <gtest/gtest.h>
#include <sys/mount.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

class Mounted {
public:
    // An empty file system over `target`, with room for `size` ("64k") and no more.
    static Mounted Tmpfs(const std::filesystem::path& target, const std::string& size) {
        return Mounted("tmpfs", target, "tmpfs", 0, "mode=1777,size=" + size);
    }

    // `source` over `target`: what lies under it cannot be removed or replaced (EBUSY).
    static Mounted Over(const std::filesystem::path& source, const std::filesystem::path& target) {
        return Mounted(source, target, "", MS_BIND, "");
    }

    // `folder` as it is, but read-only (EROFS).
    static Mounted ReadOnly(const std::filesystem::path& folder) {
        return Mounted(folder, folder, "", MS_BIND, "", MS_BIND | MS_REMOUNT | MS_RDONLY);
    }

    ~Mounted() { (void)umount2(target.c_str(), MNT_DETACH); }
    Mounted(const Mounted&) = delete;
    Mounted& operator=(const Mounted&) = delete;

private:
    Mounted(const std::filesystem::path& source, const std::filesystem::path& target,
            const std::string& type, unsigned long flags, const std::string& data,
            unsigned long remountFlags = 0)
        : target(target) {
        Mount(source, type, flags, data);
        if (remountFlags != 0) Mount(source, type, remountFlags, data);
    }

    void Mount(const std::filesystem::path& source, const std::string& type, unsigned long flags,
               const std::string& data) {
        if (mount(source.c_str(), target.c_str(), type.c_str(), flags, data.c_str()) != 0) {
            ADD_FAILURE() << "cannot mount " << target << ": " << strerror(errno);
        }
    }

    std::filesystem::path target;
};
