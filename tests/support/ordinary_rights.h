// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// Root passes over file permissions; while one of these exists, this process does not (EACCES).
#pragma once

#include <gtest/gtest.h>
#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>

class OrdinaryRights {
public:
    OrdinaryRights() : before(Get()) {
        Rights reduced = before;
        reduced[0].effective &= ~(1U << CAP_DAC_OVERRIDE | 1U << CAP_DAC_READ_SEARCH);
        Set(reduced);
    }
    ~OrdinaryRights() { Set(before); }
    OrdinaryRights(const OrdinaryRights&) = delete;
    OrdinaryRights& operator=(const OrdinaryRights&) = delete;

private:
    using Rights = std::array<__user_cap_data_struct, _LINUX_CAPABILITY_U32S_3>;

    static Rights Get() {
        Rights rights{};
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        EXPECT_EQ(syscall(SYS_capget, &header, rights.data()), 0);
        return rights;
    }

    static void Set(const Rights& rights) {
        __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
        EXPECT_EQ(syscall(SYS_capset, &header, rights.data()), 0);
    }

    const Rights before;
};
