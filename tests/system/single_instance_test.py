# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""One daemon at a time, and what it leaves in /var/run."""
from __future__ import annotations

import signal

from tests.harness import case
from tests.harness.case import BlackBoxCase, archive, content_of, write
from tests.harness.daemon import INITIALIZING, archived, error
from tests.harness.paths import ARCHIVE, BOOT_NUMBER, SYSLOG

IS_RUNNING = error("vandis-moraine is running already: another process has locked "
                   "/var/run/vandis-moraine.lock.")


class SingleInstance(BlackBoxCase):

    def test_second_daemon(self) -> None:
        """Whoever starts a second one, with --help for example, gets an error; it touches nothing."""
        first = self.start_and_wait()
        leftovers = {"messages.txt.0.xz": "half made", "messages.txt.tmp": "half done"}
        for name, text in leftovers.items():
            write(SYSLOG / name, text)
        before = len(self.log.all())

        second = self.start()
        self.assertEqual(self.wait(second), 1)
        self.assertEqual(self.log.all()[before:], [INITIALIZING, IS_RUNNING])
        self.assertEqual(content_of(SYSLOG), {"messages.txt": "", "archive/": "", **leftovers})
        self.assertEqual(BOOT_NUMBER.read_text(), "1\n")
        for name in leftovers:
            (SYSLOG / name).unlink()
        self.assertEqual(self.stop(first), 0)

    def test_killed_daemon(self) -> None:
        """It leaves its number; nothing keeps the next one away."""
        write(ARCHIVE / "messages.041.1970-01-01.00:00:01.txt.xz")
        first = self.start_and_wait()
        self.assertEqual(BOOT_NUMBER.read_text(), "2\n")
        first.signal(signal.SIGKILL)
        self.wait(first)
        self.assertEqual(BOOT_NUMBER.read_text(), "2\n")

        write(SYSLOG / "messages.txt.0", "line")
        self.assertIn(archived("messages.txt.0", 2), self.run_once())
        self.assertEqual(self.status, 0)
        self.assertFalse(BOOT_NUMBER.exists())

    def test_without_var_run(self) -> None:
        """A /var/run that cannot be written to: it archives all the same."""
        self.mount("-t", "tmpfs", "-o", "ro", "tmpfs", "/run")
        write(SYSLOG / "messages.txt.0", "line")
        self.assertIn(archived("messages.txt.0"), self.run_once())
        self.assertEqual(self.status, 0)
        self.assertEqual(archive(), [(1, "line")])


if __name__ == "__main__":
    case.main()
