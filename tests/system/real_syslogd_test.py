# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""The daemon beside BusyBox syslogd, both run by their init scripts: every line that syslogd took
is found again, once."""
from __future__ import annotations

import os
import re
import signal
import sys
from pathlib import Path
from typing import NoReturn

from tests.harness import case, numbered, services
from tests.harness.case import Gate, SandboxCase, archive, log_lines
from tests.harness.daemon import start_settings
from tests.harness.paths import ARCHIVE, LIVE_LOG, SYSLOG

ROTATION_KB = 16
LAST = SYSLOG / "messages.txt.9"
ROTATION = SYSLOG / "messages.txt.0"
MESSAGES_LOST = ("Syslog had to be stopped to deal with its last possible rotation.  "
                 "Messages were lost.")
MOVED = re.compile(r"'/perm/logs/syslog/messages\.txt\.\d' was moved while it was compressed\.  "
                   r"A later cycle will archive it\.")


class SteppedFlood(numbered.Flood):
    """Writes as many lines as asked for, and waits until syslogd has logged them: then none
    is under way when syslogd is stopped or killed."""

    def __init__(self, test: SandboxCase) -> None:
        super().__init__(rate=0)
        self.test = test
        test.addCleanup(self._disconnect)

    def write(self, lines: int) -> None:
        for _ in range(lines):
            self.test.wait_until(self.write_if_possible, "syslogd takes a line")
        self.wait_until_logged()

    def write_if_possible(self) -> bool:
        taken = self._send()
        self.written += taken
        return taken

    def wait_until_logged(self) -> None:
        self.test.wait_until(lambda: numbered.has_logged(self.written), f"line {self.written}")

    def write_until_exists(self, path: Path) -> None:
        while not path.exists():
            self.write(20)


class RealSyslogdCase(SandboxCase):

    def setUp(self) -> None:
        super().setUp()
        services.set_rotation_size(ROTATION_KB)
        # A little more than a second from one cycle to the next: no archive name is taken yet.
        services.daemon.settings.write_text(start_settings(fast_sleep=9))
        self.addCleanup(self.end_services)

    def end_services(self) -> None:
        """At once, whatever they are at."""
        for service in (services.daemon, services.syslogd):
            if service.pid is not None:
                os.killpg(os.getpgid(service.pid), signal.SIGKILL)
                self.wait_until(lambda: service.pid is None, "a killed process has ended")

    def fail(self, msg: object = None) -> NoReturn:
        """Adds what the sandbox looks like."""
        running = [f"syslogd {services.syslogd.pid}", f"daemon {services.daemon.pid}"]
        files = [f"{path.relative_to(SYSLOG)} {path.stat().st_size}"
                 for path in sorted(SYSLOG.rglob("*"))]
        super().fail("\n  ".join([str(msg), *running, *files, *log_lines()[-20:]]))

    def count_archived(self) -> int:
        return len(list(ARCHIVE.iterdir())) if ARCHIVE.exists() else 0

    def wait_until_archived(self, count: int) -> None:
        self.wait_until(lambda: self.count_archived() >= count, f"{count} archive files")

    def rotations(self) -> list[Path]:
        return [file.path for file in numbered.log_files() if file.place == "rotations"]

    def verdict(self, written: int) -> numbered.Verdict:
        """Of a device on which nothing runs any more."""
        files = [file.read() for file in numbered.log_files()]
        self.assertEqual([file.path for file in files if file.damaged], [])
        self.assertEqual([file.path for file in files if file.place == "leftovers"], [])
        return numbered.judge(written, files)

    def assert_nothing_lost(self, written: int) -> None:
        verdict = self.verdict(written)
        print(verdict, end=" ", file=sys.stderr, flush=True)
        self.assertEqual((verdict.lost, verdict.duplicated), ([], 0))


class Flooded(RealSyslogdCase):

    def test_backlog(self) -> None:
        """A flood that has left a backlog goes on while that is archived."""
        services.set_rotation_size(128)
        services.syslogd.start()
        flood = numbered.Flood(rate=700)
        self.addCleanup(flood.stop)
        flood.start()
        self.wait_until(lambda: len(self.rotations()) >= 3, "a backlog of three rotations")

        services.daemon.start()
        self.wait_until_archived(3)
        flood.stop()
        self.wait_until(lambda: numbered.has_logged(flood.written), "the last line")
        self.wait_until(lambda: not self.rotations(), "the backlog is archived")
        services.daemon.stop()
        services.syslogd.stop()

        self.assert_nothing_lost(flood.written)
        self.assertEqual(log_lines()[-1], "vandis-moraine exiting with code: 0")

    def test_live_log_above_10_mib(self) -> None:
        """A live log that syslogd does not rotate is taken while syslogd writes to it."""
        services.set_rotation_size(1 << 20)
        # A hole takes xz so little time that syslogd has not yet opened its new file.
        with LIVE_LOG.open("wb") as live_log:
            live_log.truncate((10 << 20) - 10000)
            live_log.seek(0, os.SEEK_END)
            live_log.write(b"\n")
        services.syslogd.start()
        services.daemon.start()
        flood = numbered.Flood(rate=2000)
        self.addCleanup(flood.stop)
        flood.start()
        self.wait_until_archived(1)
        taken = flood.written
        self.wait_until(lambda: flood.written > taken + 1000, "the flood goes on")
        flood.stop()
        self.wait_until(lambda: numbered.has_logged(flood.written), "the last line")
        services.daemon.stop()
        services.syslogd.stop()

        self.assert_nothing_lost(flood.written)
        self.assertEqual(self.count_archived(), 1)
        self.assertTrue(any(line.startswith("Archived '/perm/logs/syslog/messages.txt' to ")
                            for line in log_lines()))


class LastRotation(RealSyslogdCase):

    def test_stop_and_start(self) -> None:
        """messages.txt.9: syslogd is stopped, the file archived, another syslogd started."""
        services.syslogd.start()
        before = services.syslogd.pid
        flood = SteppedFlood(self)
        flood.write_until_exists(LAST)
        first = LAST.read_text()

        services.daemon.start()
        self.wait_until(lambda: MESSAGES_LOST in log_lines(), "the Error line")
        flood.write(20)
        self.assertNotIn(services.syslogd.pid, (None, before))
        services.daemon.stop()
        services.syslogd.stop()

        self.assertEqual(archive()[0], (1, first))
        self.assertFalse(LAST.exists())
        self.assert_nothing_lost(flood.written)


    def test_fresh_signal_state(self) -> None:
        """The syslogd that the daemon starts obeys every signal, also where /bin/sh is BusyBox's,
        which passes on what it was started with."""
        self.mount("--bind", os.path.realpath("/sbin/syslogd"), os.path.realpath("/bin/sh"))
        services.syslogd.start()
        first = services.syslogd.pid
        LAST.write_text("last rotation\n")
        services.daemon.start()
        self.wait_until(lambda: services.syslogd.pid not in (None, first), "another syslogd runs")
        status = Path(f"/proc/{services.syslogd.pid}/status").read_text()
        blocked = re.search(r"^SigBlk:\t(\w+)$", status, re.MULTILINE)
        self.assertEqual(int(blocked[1], 16), 0)

    def test_lines_come_all_the_time(self) -> None:
        """Lines that come meanwhile may be lost, but only there: what the Error line says."""
        services.syslogd.start()
        flood = SteppedFlood(self)
        flood.write_until_exists(LAST)
        services.daemon.start()

        def is_through() -> bool:
            flood.write_if_possible()
            return MESSAGES_LOST in log_lines()

        self.wait_until(is_through, "the Error line")
        flood.write(20)
        services.daemon.stop()
        services.syslogd.stop()

        verdict = self.verdict(flood.written)
        print(verdict, end=" ", file=sys.stderr, flush=True)
        self.assertEqual(verdict.duplicated, 0)
        lost = numbered.ranges(verdict.lost)
        self.assertLessEqual(len(lost), 1, lost)


class Restarts(RealSyslogdCase):

    def test_boots(self) -> None:
        """The device goes down and comes up three times: the boot numbers rise."""
        flood = SteppedFlood(self)
        for boot in (1, 2, 3):
            services.syslogd.start()
            services.daemon.start()
            flood.write_until_exists(ROTATION)
            self.wait_until(lambda: boot in [number for number, _ in archive()], "an archive file")
            services.daemon.stop()
            services.syslogd.stop()

        self.assertEqual(sorted({number for number, _ in archive()}), [1, 2, 3])
        self.assertEqual(log_lines().count("vandis-moraine exiting with code: 0"), 3)
        self.assert_nothing_lost(flood.written)

    def test_daemon_alone(self) -> None:
        """The daemon is restarted while lines come all the time."""
        services.syslogd.start()
        flood = numbered.Flood(rate=200)
        self.addCleanup(flood.stop)
        flood.start()
        for boot in (1, 2, 3):
            services.daemon.start()
            self.wait_until(lambda: boot in [number for number, _ in archive()], "an archive file")
            services.daemon.stop()
        flood.stop()
        self.wait_until(lambda: numbered.has_logged(flood.written), "the last line")
        services.syslogd.stop()

        self.assert_nothing_lost(flood.written)

    def test_killed_while_xz_runs(self) -> None:
        """The daemon and its xz are killed: the next start makes it good."""
        gate = self.held_xz()
        services.syslogd.start()
        flood = SteppedFlood(self)
        flood.write_until_exists(ROTATION)
        services.daemon.start()
        self.wait_until(lambda: gate.is_reached, "xz has made its file")

        os.killpg(os.getpgid(services.daemon.pid), signal.SIGKILL)
        self.wait_until(lambda: services.daemon.pid is None, "the daemon has gone")
        self.assertTrue((SYSLOG / "messages.txt.0.xz").exists())
        gate.open()
        services.daemon.start()
        self.wait_until_archived(1)
        services.daemon.stop()
        services.syslogd.stop()

        self.assert_nothing_lost(flood.written)


class RotationWhileXzRuns(RealSyslogdCase):

    def check(self, gate: Gate) -> None:
        services.syslogd.start()
        flood = SteppedFlood(self)
        flood.write_until_exists(ROTATION)
        services.daemon.start()
        self.wait_until(lambda: gate.is_reached, "xz runs")

        flood.write_until_exists(SYSLOG / "messages.txt.1")
        gate.open()
        self.wait_until(lambda: not self.rotations(), "the rotations are archived")
        services.daemon.stop()
        services.syslogd.stop()

        self.assert_nothing_lost(flood.written)
        moved = [line for line in log_lines() if MOVED.fullmatch(line)]
        self.assertEqual(len(moved), 1, log_lines())

    def test_before_xz_reads(self) -> None:
        """syslogd rotates before xz has opened the file."""
        self.check(self.slow_xz())

    def test_after_xz_has_read(self) -> None:
        """syslogd rotates after xz has compressed the file."""
        self.check(self.held_xz())


if __name__ == "__main__":
    case.main()
