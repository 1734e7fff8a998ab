# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Downloads of many devices in one folder of journals: journalctl shows each line once, in the order of
its device's log, also after a second download and after imports that are repeated."""
from __future__ import annotations

import json
import subprocess
from pathlib import Path

from tests.command.command import CommandCase
from tests.fleet.clickhouse import FLEET, import_environment
from tests.fleet.devices import Device
from tests.harness import case

DEVICES = 20


class Journal(CommandCase):
    def setUp(self) -> None:
        super().setUp()
        # Without one, systemd-journal-remote makes journals, but does not open them again.
        Path("/etc/machine-id").write_text("0123456789abcdef0123456789abcdef\n")

    def to_journal(self, *downloads: Path, status: int = 0) -> None:
        done = subprocess.run([str(FLEET / "to-journal"), "journals", *map(str, downloads)],
                              cwd=self.folder, env=import_environment(), capture_output=True)
        self.assertEqual(done.returncode, status, done.stderr.decode())

    def shown(self, *matches: str) -> list[dict]:
        done = subprocess.run(["journalctl", "--directory=journals", "--output=json", "--all", *matches],
                              cwd=self.folder, capture_output=True, check=True)
        return [json.loads(row) for row in done.stdout.splitlines()]

    def check_journals(self, devices: list[Device]) -> None:
        for device in devices:
            found = [(item.get("SYSLOG_IDENTIFIER", ""), item["MESSAGE"])
                     for item in self.shown(f"DEVICE={device.name}")]
            self.assertEqual(found, [(line.tag, line.message) for line in device.lines], device.name)
        stuck = [item["DEVICE"] for item in self.shown() if item["MESSAGE"] == "valve 7 is stuck"]
        wanted = [device.name for device in devices for line in device.lines
                  if line.message == "valve 7 is stuck"]
        self.assertGreater(len(wanted), 0)
        self.assertEqual(sorted(stuck), sorted(wanted))

    def test_two_downloads_of_each(self) -> None:
        devices = [Device(number) for number in range(DEVICES)]
        for device in devices:
            device.has_clock = True  # journalctl sorts by time
            device.live_through(2)
        first = [device.download(self.folder) for device in devices]
        self.to_journal(*first)
        self.check_journals(devices)
        self.to_journal(*first)
        self.check_journals(devices)
        for device in devices:
            for _ in range(device.random.randrange(4)):
                device.archive_oldest()
            device.drop_oldest_boots(device.random.randrange(2))
            device.live_through(2)
        second = [device.download(self.folder) for device in devices]
        self.to_journal(*second)
        self.check_journals(devices)
        self.to_journal(*second)
        self.check_journals(devices)

    def test_an_import_that_fails_is_repeated_whole(self) -> None:
        device = Device(1)
        device.live_through(1)
        download = device.download(self.folder)
        journal = self.folder / "journals" / f"{device.name}.journal"
        journal.mkdir(parents=True)
        self.to_journal(download, status=2)
        journal.rmdir()
        self.to_journal(download)
        self.assertEqual(len(self.shown()), len(device.lines))


if __name__ == "__main__":
    case.main()
