# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""A device's log as it grows, through `examples/fleet/collect` and through a pipe, while the receiver goes
away again and again, and through a reboot that renumbers the boots."""
from __future__ import annotations

import json
import lzma
import os
import random
import signal
import subprocess
from typing import Any

from tests.command.command import environment, program, write_archive
from tests.fleet.clickhouse import FLEET
from tests.harness import case, numbered, services
from tests.harness.case import SandboxCase
from tests.harness.daemon import SCRATCH, start_settings
from tests.harness.paths import ARCHIVE, BOOT_NUMBER


def identity(line: dict[str, Any]) -> str:
    return line["cursor"].partition("-")[2]


class Shipping(SandboxCase):
    def setUp(self) -> None:
        super().setUp()
        ARCHIVE.mkdir()
        # Each start makes numbers from 1 on of them.
        for boot in (2, 3, 4):
            write_archive(boot, f"Nov 20 08:00:0{boot} device user.info app: boot {boot}\n")
        services.set_rotation_size(32)
        services.daemon.settings.write_text(start_settings(fast_sleep=100))
        self.start_services()
        self.addCleanup(self.stop_services)
        self.flood = numbered.Flood(rate=300)
        self.addCleanup(self.flood.stop)
        self.flood.start()
        self.received = SCRATCH / "received.json"
        self.children: list[subprocess.Popen[bytes]] = []
        self.addCleanup(lambda: [self.kill(child) for child in self.children])

    @staticmethod
    def start_services() -> None:
        services.syslogd.start()
        services.daemon.start()

    @staticmethod
    def stop_services() -> None:
        services.daemon.stop()
        services.syslogd.stop()

    def reboot(self) -> None:
        self.stop_services()
        # As after a deletion of the oldest boot: the others are renumbered.
        oldest = min(ARCHIVE.iterdir())
        self.assertIn(b"app: boot", lzma.decompress(oldest.read_bytes()))
        oldest.unlink()
        self.start_services()

    def spawn(self, *command: str, **options: Any) -> subprocess.Popen[bytes]:
        self.children.append(subprocess.Popen(
            command, start_new_session=True,
            env={**environment(), "RETRY_SECONDS": "0.1"}, **options))
        return self.children[-1]

    @staticmethod
    def kill(child: subprocess.Popen[bytes]) -> None:
        """With all that it has started, at once."""
        if child.returncode is None:
            os.killpg(child.pid, signal.SIGKILL)
            child.wait()

    def lines(self) -> list[dict[str, Any]]:
        """Whole lines only."""
        if not self.received.exists():
            return []
        return [json.loads(line) for line in self.received.read_bytes().split(b"\n")[:-1]]

    def wait_for_more(self, count: int) -> None:
        wanted = len(self.lines()) + count
        self.wait_until(lambda: len(self.lines()) >= wanted, f"{count} more lines")

    def wait_for_last(self) -> None:
        self.flood.stop()
        last = f" end {self.flood.written}"
        self.wait_until(lambda: any(line["message"].endswith(last) for line in self.lines()[-300:]),
                        "the last line")

    def check_received(self, lines: list[dict[str, Any]]) -> None:
        """Each line that is kept, once, in order, and under the identity that it has by now."""
        kept = subprocess.run([program(), "log", "-o", "json", "--show-cursor"], check=True,
                              capture_output=True, env=environment()).stdout
        wanted = [json.loads(line) for line in kept.splitlines()]
        by_identity = {identity(line): line["message"] for line in wanted}
        self.assertEqual(len(by_identity), len(wanted))
        found = [(identity(line), line["message"]) for line in lines if identity(line) in by_identity]
        # The daemon's last lines may have come since.
        self.assertEqual(found, list(by_identity.items())[:len(found)])
        # A few are missing that were still in the socket when syslogd ended.
        numbers = [int(line["message"].split()[1]) for line in lines if line.get("tag") == "flood"]
        self.assertEqual(numbers, sorted(set(numbers)))
        self.assertEqual(numbers[-1], self.flood.written)

    def collect(self) -> subprocess.Popen[bytes]:
        return self.spawn(str(FLEET / "collect"), str(self.received), program())

    def test_a_collector_gets_each_line_once(self) -> None:
        choose = random.Random(1)
        collector = self.collect()
        self.wait_for_more(300)
        for attempt in range(6):
            self.kill(collector)
            # What a power cut leaves of the receiver's file.
            size = self.received.stat().st_size
            os.truncate(self.received, size - choose.randrange(0, 700))
            archived = len(list(ARCHIVE.iterdir()))
            self.wait_until(lambda: len(list(ARCHIVE.iterdir())) > archived, "an archive file")
            if attempt == 3:
                before = int(BOOT_NUMBER.read_text())
                self.reboot()
                self.assertLessEqual(int(BOOT_NUMBER.read_text()), before)  # they have been renumbered
            collector = self.collect()
            self.wait_for_more(200)
        # A reboot at which the receiver waits.
        self.reboot()
        self.wait_for_more(200)
        self.wait_for_last()
        self.kill(collector)
        self.check_received(self.lines())

    def test_a_command_that_is_killed_repeats_lines_and_loses_none(self) -> None:
        """The cursor file is written behind the lines: a line comes once or twice."""
        for attempt in range(6):
            if attempt == 3:
                self.reboot()
            with self.received.open("ab") as received:
                follower = self.spawn(program(), "log", "-f", "--lines=all", "-o", "json", "--show-cursor",
                                      "--cursor-file", str(SCRATCH / "cursor"), stdout=received)
                self.wait_for_more(150)
                self.kill(follower)
        with self.received.open("ab") as received:
            follower = self.spawn(program(), "log", "-f", "--lines=all", "-o", "json", "--show-cursor",
                                  "--cursor-file", str(SCRATCH / "cursor"), stdout=received)
            self.wait_for_last()
        self.kill(follower)
        # What a receiver keeps that knows identities.
        once = {}
        for line in self.lines():
            once.setdefault(identity(line), line)
        self.check_received(list(once.values()))


if __name__ == "__main__":
    case.main()
