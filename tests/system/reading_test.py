# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""`moraine log` while syslogd rotates and the daemon archives: whatever moves during a read, the
numbers of the lines that it prints are consecutive."""
from __future__ import annotations

import json
import lzma
import os
import re
import signal
import subprocess
import threading
import time
from pathlib import Path

from tests.harness import case, numbered, services
from tests.harness.case import SandboxCase
from tests.harness.daemon import start_settings
from tests.harness.paths import ARCHIVE, LIVE_LOG, archive_name

NUMBER = re.compile(rb" flood: line (\d+) ")


def moraine(*options: str) -> list[str]:
    return [os.environ["MORAINE_BUILD"] + "/moraine", "log", *options]


def numbers(output: bytes) -> list[int]:
    return [int(number) for number in NUMBER.findall(output)]


class Flooded(SandboxCase):

    def setUp(self) -> None:
        super().setUp()
        services.set_rotation_size(64)
        services.daemon.settings.write_text(start_settings(fast_sleep=100))
        for service in (services.syslogd, services.daemon):
            service.start()
            self.addCleanup(service.stop)
        self.wait_until(ARCHIVE.exists, "an archive")
        self.flood = numbered.Flood(rate=500)  # less than a busy machine archives
        self.addCleanup(self.flood.stop)
        self.flood.start()

    def archived(self) -> int:
        return len(list(ARCHIVE.glob("*.xz")))

    def assert_consecutive(self, found: list[int], first: int, least: int) -> None:
        expected = list(range(first, first + len(found)))
        if found != expected:
            wrong = next(i for i, pair in enumerate(zip(found, expected)) if pair[0] != pair[1])
            self.fail(f"around line {found[max(wrong - 2, 0):wrong + 3]}")
        self.assertGreaterEqual(found[-1], least)

    def logged(self) -> int:
        """A number whose line syslogd has written."""
        last = 0
        for path in (LIVE_LOG, LIVE_LOG.with_suffix(".txt.0")):
            try:
                last = max([last, *numbers(path.read_bytes())])
            except FileNotFoundError:
                pass
        return last

    def test_every_read_is_consecutive(self) -> None:
        runs = 0
        while self.archived() < 8:
            least = self.logged()
            done = subprocess.run(moraine("-j1" if runs % 2 else "-j2"), stdout=subprocess.PIPE,
                                  check=True)
            if least:
                self.assert_consecutive(numbers(done.stdout), 1, least)
                runs += 1
        self.assertGreater(runs, 0)

    def test_every_reversed_read_is_consecutive(self) -> None:
        runs = 0
        while self.archived() < 4:
            least = self.logged()
            done = subprocess.run(moraine("-r", "-g", "flood"), stdout=subprocess.PIPE)
            found = numbers(done.stdout)[::-1]
            if least:
                self.assert_consecutive(found, 1, least)
                runs += 1
        self.assertGreater(runs, 0)

    def test_follow_prints_each_line_once(self) -> None:
        self.wait_until(lambda: self.logged() > 100, "a hundred lines")
        follower = subprocess.Popen(moraine("-f", "-n", "5"), stdout=subprocess.PIPE)
        self.addCleanup(follower.kill)
        assert follower.stdout is not None
        output: list[bytes] = []
        reader = threading.Thread(target=lambda: output.extend(follower.stdout))
        reader.start()
        before = self.archived()
        self.wait_until(lambda: self.archived() >= before + 5, "five more archive files")
        self.flood.stop()
        self.wait_until(lambda: numbered.has_logged(self.flood.written), "all lines so far")
        services.syslogd.stop()
        services.syslogd.start()
        marker = self.flood.written + 1
        last = numbered.Flood(rate=1000, limit=marker)
        last.written = marker - 1
        last.start()
        self.addCleanup(last.stop)
        self.wait_until(lambda: any(b" line %d " % marker in line for line in output[-50:]),
                        "the last line")
        follower.send_signal(signal.SIGINT)
        self.assertEqual(follower.wait(), 130)
        reader.join()
        follower.stdout.close()
        found = numbers(b"".join(output))
        self.assert_consecutive(found, found[0], marker)

    def test_a_shipper_gets_each_line_once_across_its_restarts(self) -> None:
        """The position in the cursor file outlives rotation and archiving."""
        shipped: list[int] = []
        self.wait_until(lambda: self.logged() > 100, "a hundred lines")
        is_last = False
        while not is_last:
            is_last = self.archived() >= 4
            least = self.logged()
            done = subprocess.run(moraine("-o", "json", "--cursor-file", "/perm/cursor"),
                                  stdout=subprocess.PIPE)
            self.assertIn(done.returncode, (0, 1))
            for line in done.stdout.splitlines():
                message = json.loads(line)["message"]
                if message.startswith("line "):
                    shipped.append(int(message.split()[1]))
        self.assert_consecutive(shipped, 1, least)


class Mover(threading.Thread):
    """Does what syslogd and the daemon do to the files, and nothing else, up to 200 times a second:
    faster than any syslogd, but not faster than a reader that shares its processor looks twice."""

    def __init__(self) -> None:
        super().__init__(daemon=True)
        self.rotations = 0
        self.logged = 0
        self._stopping = threading.Event()
        ARCHIVE.mkdir(parents=True, exist_ok=True)

    def stop(self) -> None:
        self._stopping.set()
        self.join()

    def run(self) -> None:
        while not self._stopping.wait(0.005):
            with LIVE_LOG.open("ab", buffering=0) as live_log:
                for _ in range(5):
                    live_log.write(numbered.logged(self.logged + 1, self.logged + 1))
                    self.logged += 1
            services.rotate()
            self.rotations += 1
            if self.rotation(4).exists():
                self._archive(self.rotation(4))

    @staticmethod
    def rotation(number: int) -> Path:
        return LIVE_LOG.with_name(f"messages.txt.{number}")

    def _archive(self, source: Path) -> None:
        compressed = source.with_name(source.name + ".xz")
        compressed.write_bytes(lzma.compress(source.read_bytes()))
        times = source.stat()
        os.utime(compressed, ns=(times.st_atime_ns, times.st_mtime_ns))
        compressed.rename(ARCHIVE / archive_name(1, self.rotations))
        source.unlink()


class Moved(SandboxCase):

    def read_while_moving(self, *options: str) -> None:
        mover = Mover()
        self.addCleanup(mover.stop)
        mover.start()
        self.wait_until(lambda: mover.rotations > 10, "ten rotations")
        for run in range(150):
            least = mover.logged
            done = subprocess.run(moraine(*options), stdout=subprocess.PIPE, check=True)
            found = numbers(done.stdout)
            found = found[::-1] if "-r" in options else found
            with self.subTest(run=run, rotations=mover.rotations):
                self.assertEqual(found, list(range(found[0], found[-1] + 1)))
                self.assertGreaterEqual(found[-1], least)
                if "-n" not in options:
                    self.assertEqual(found[0], 1)

    def test_forward(self) -> None:
        self.read_while_moving()

    def test_reversed(self) -> None:
        self.read_while_moving("-r")

    def test_last_lines(self) -> None:
        self.read_while_moving("-n", "40")

    def test_a_line_that_is_being_written_is_printed_whole_or_not_at_all(self) -> None:
        """The kernel shows the first half of a line that crosses a page before the second."""
        ARCHIVE.mkdir(parents=True)
        stopping = threading.Event()

        def write() -> None:
            number = 0
            with LIVE_LOG.open("wb", buffering=0) as live_log:
                while not stopping.is_set():
                    number += 1
                    line = numbered.logged(number, number)
                    live_log.write(line[:40])
                    time.sleep(0.001)
                    live_log.write(line[40:])
                    time.sleep(0.005)

        writer = threading.Thread(target=write)
        writer.start()
        self.addCleanup(writer.join)
        self.addCleanup(stopping.set)
        self.wait_until(lambda: LIVE_LOG.exists() and b"\n" in LIVE_LOG.read_bytes(), "a line")
        for _ in range(20):
            done = subprocess.run(moraine(), stdout=subprocess.PIPE, check=True)
            lines = done.stdout.splitlines()
            self.assertEqual(len(numbered.numbers_in(done.stdout)), len(lines), lines[-1])

    def test_a_file_that_is_archived_and_still_waits_is_printed_once(self) -> None:
        ARCHIVE.mkdir(parents=True)
        text = b"Jan  1 00:00:00 device user.info flood: line 1 end 1\n"
        source = Mover.rotation(3)
        source.write_bytes(text)
        archived = ARCHIVE / archive_name(1)
        archived.write_bytes(lzma.compress(text))
        for moved, lines in ((0, 1), (1, 2)):  # the times to the nanosecond, or not
            time = source.stat().st_mtime_ns + moved
            os.utime(archived, ns=(time, time))
            done = subprocess.run(moraine(), stdout=subprocess.PIPE, check=True)
            self.assertEqual(done.stdout, text * lines)


if __name__ == "__main__":
    case.main()
