# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""A daemon that archives nothing while rotations wait is started again; one that only has nothing to
do is left alone."""
from __future__ import annotations

import os
import signal
from pathlib import Path

from tests.harness import case
from tests.harness.case import log_lines, write
from tests.harness.init_case import (NAPS, InitCase, SupervisorCase, kill, numbers, programs_of,
                                     supervisors_of)
from tests.harness.paths import ARCHIVE
from tests.harness.services import daemon

STALLED = ("Rotations wait, and none was archived in 3 seconds.  vandis-moraine is killed and started "
           "again.")

STALLED_NAPS = Path("/scratch/stalled")


class Progress(InitCase):

    def setUp(self) -> None:
        super().setUp()
        self.set(daemon, "PROGRESS_SECONDS=3")

    def test_daemon_hangs(self) -> None:
        self.start_both()
        pid = programs_of(daemon)[0]
        kill(pid, signal.SIGSTOP)
        write("messages.txt.0", "text\n")
        self.wait_for_another(daemon, pid)
        self.wait_for_line(r"^Archived '.*messages\.txt\.0'")
        self.assertEqual(log_lines().count(STALLED), 1)

    def test_xz_hangs(self) -> None:
        """With a time limit of its own that is too long."""
        self.stand_in("xz", "[ -e /scratch/hung ] && exec /usr/bin/xz \"$@\"\n"
                            "echo $$ >/scratch/hung; exec sleep 1000")
        self.start_both()
        pid = programs_of(daemon)[0]
        write("messages.txt.0", "text\n")
        self.wait_for_another(daemon, pid)
        self.wait_for_line(r"^Archived '.*messages\.txt\.0'")
        self.assertIn(STALLED, log_lines())
        hung = Path("/scratch/hung").read_text().strip()
        self.wait_until(lambda: not Path(f"/proc/{hung}").exists(), "the xz that hung is gone")

    def test_nothing_waits(self) -> None:
        """A daemon that is stopped, while there is nothing to archive, for several times as long."""
        self.start_both()
        pid = programs_of(daemon)[0]
        kill(pid, signal.SIGSTOP)
        self.pass_time(10)
        self.assertEqual(programs_of(daemon), [pid])

    def test_progress(self) -> None:
        """A backlog that takes longer than that, one file after the other."""
        self.fast_sleep = 9
        self.start_both()
        pid = programs_of(daemon)[0]
        for number in range(8):
            write(f"messages.txt.{number}", f"{number}\n")
        self.wait_until(lambda: len(list(ARCHIVE.iterdir())) == 8, "the backlog is archived")
        self.assertEqual(programs_of(daemon), [pid])
        self.assertNotIn(STALLED, log_lines())

    def test_rotations_of_yesterday(self) -> None:
        """The device was off: only the time of the daemon that runs counts."""
        for number in range(3):
            path = write(f"messages.txt.{number}", f"{number}\n")
            os.utime(path, (1, 1))
        ARCHIVE.mkdir()
        os.utime(ARCHIVE, (1, 1))
        self.start_both()
        pid = programs_of(daemon)[0]
        self.wait_until(lambda: len(list(ARCHIVE.iterdir())) == 3, "they are archived")
        self.assertEqual(programs_of(daemon), [pid])
        self.assertNotIn(STALLED, log_lines())

    def pass_time(self, seconds: int) -> None:
        """Of the supervisor: it looks at the archive once a second."""
        supervisor = self.supervisor_wake_ups()
        self.wait_until(lambda: self.supervisor_wake_ups() >= supervisor + seconds, "time passes")

    def supervisor_wake_ups(self) -> int:
        status = Path(f"/proc/{supervisors_of(daemon)[0]}/status").read_text()
        return int(status.split("voluntary_ctxt_switches:\t")[1].split()[0])


class Looks(SupervisorCase):
    """How often the supervisor looks."""

    def check(self, progress_seconds: int, idle: int, waiting: int) -> None:
        os.mkfifo("/scratch/endless")
        self.supervise('case "$1" in\n'
                       '    run) exec cat /scratch/endless;;\n'
                       f'    stalled) cp {NAPS} /scratch/naps.new; mv /scratch/naps.new {STALLED_NAPS};;\n'
                       'esac', PROGRESS_SECONDS=str(progress_seconds))
        self.wait_until(lambda: len(numbers(NAPS)) >= 5, "it looks")
        self.assertEqual(set(numbers(NAPS)), {idle})
        write("messages.txt.0", "text\n")
        self.wait_until(STALLED_NAPS.exists, "the program is to be killed")
        naps = numbers(STALLED_NAPS)
        self.assertEqual(set(naps), {idle, waiting})
        # The file was found within the first of these.
        self.assertIn(naps.count(waiting) * waiting,
                      range(progress_seconds - idle, progress_seconds + 2 * waiting))

    def test_20_seconds(self) -> None:
        """No more than one look in ten seconds while there is nothing to archive."""
        self.check(20, idle=10, waiting=2)

    def test_100_seconds(self) -> None:
        self.check(100, idle=30, waiting=10)


if __name__ == "__main__":
    case.main()
