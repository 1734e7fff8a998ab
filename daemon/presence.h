// SPDX-FileCopyrightText: 2026 The vandis-moraine authors
// SPDX-License-Identifier: MIT

// What a running daemon leaves in /var/run: a lock, so that there is one daemon at a time, and its
// boot number, for programs that read the log. The daemon works without either where it cannot
// create them.
#pragma once

namespace Daemon {

class Presence {
public:
    // Takes the lock for the life of the object. Only root can open the lock's file, so nobody else
    // can hold it. The kernel releases it when the process ends, however that happens.
    Presence();
    Presence(const Presence&) = delete;
    Presence& operator=(const Presence&) = delete;
    // Removes the boot number.
    ~Presence();

    // True if another daemon has the lock. It and its files must be left alone then.
    [[nodiscard]] bool IsTaken() const { return isTaken; }

    // Writes the boot number, as decimal digits and a line feed, readable by everybody. Logs
    // nothing.
    void PublishBootNum(unsigned int bootNum) const;

private:
    int fd;
    bool isTaken;
};

}  // namespace Daemon
