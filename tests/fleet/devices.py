# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Simulated devices: they write a log as syslogd and the daemon leave it, through clean and unclean
boots, rotations, archivings and the renumbering of boots, and keep a plain list of what they wrote.
"""
from __future__ import annotations

import dataclasses
import datetime
import os
import random
import shutil
import subprocess
from pathlib import Path
from typing import Callable

from tests.command.command import environment, program
from tests.command.random_log import compress
from tests.command.reference import MONTHS
from tests.harness.paths import ARCHIVE, SYSLOG, archive_name

START = datetime.datetime(2026, 10, 1)
UNSET = datetime.datetime(2026, 1, 1)  # a stamp of a clock that is not set; its year is that of the file
PROGRAMS = ("pump", "app", "sshd", "modem", "ui")
VERSIONS = ("2.8.1", "2.9.0", "3.0.0")


@dataclasses.dataclass(frozen=True)
class Line:
    time: datetime.datetime
    tag: str
    message: str
    version: str  # of the firmware that ran


@dataclasses.dataclass
class File:
    text: bytes
    mtime: float


class Device:
    def __init__(self, number: int) -> None:
        self.name = f"pump-{number:03}"
        # Host names of devices are often all the same.
        self.host = self.name if number % 2 else "device"
        self.random = random.Random(number)
        self.has_clock = number % 10 != 0
        self.now = START + datetime.timedelta(seconds=number * 977)
        self.boot = 1
        self.version = ""
        self.lines: list[Line] = []
        self.is_cut_off = False
        self.unclean_boots = 0  # that were followed by another
        self.downloads = 0
        self.archivings = 0
        self.archive: list[tuple[int, int, File, bytes]] = []  # boot, seconds since, content
        self.waiting: list[File] = []  # the newest first
        self.live = File(b"", 0)

    # What happens to it.

    def live_through(self, boots: int) -> None:
        for _ in range(boots):
            self.start()
            for _ in range(self.random.randrange(1, 5)):
                self.work()
                self.rotate()
                for _ in range(self.random.randrange(3)):
                    self.archive_oldest()
            self.work()
            self.is_cut_off = self.random.random() < 0.3
            if not self.is_cut_off:
                self.log("", "syslogd exiting", "syslog.info")
            self.now += datetime.timedelta(seconds=self.random.randrange(20, 4000))

    def start(self) -> None:
        self.boot = max((boot for boot, *_ in self.archive), default=0) + 1
        self.unclean_boots += self.is_cut_off
        clock = self.now
        if not self.has_clock:
            self.now = UNSET + datetime.timedelta(seconds=3)
        self.log("", "syslogd started: BusyBox v1.36.1", "syslog.info")
        if self.version == "" or self.random.random() < 0.3:
            self.version = self.random.choice(VERSIONS)
        self.log("firmware", f"version {self.version}")
        self.log("kernel", "usb 1-1: new device", "kern.info")
        self.now = max(clock, self.now)
        self.log("ntpd", "the clock is set", "daemon.notice")

    def work(self) -> None:
        for _ in range(self.random.randrange(5, 25)):
            self.now += datetime.timedelta(seconds=self.random.choice((0, 0, 0, 1, 5, 60)))
            tag = self.random.choice(PROGRAMS)
            pick = self.random.random()
            if pick < 0.05 and self.version == "3.0.0" or pick < 0.005:
                self.log(tag, "valve 7 is stuck", "user.err")
            elif pick < 0.3:
                self.log(tag, "the same again")
            else:
                self.log(tag, f'pressure {self.random.randrange(90, 130)} kPa "ok" \\ end')

    def log(self, tag: str, message: str, level: str = "user.info") -> None:
        stamp = f"{MONTHS[self.now.month - 1]} {self.now.day:2} {self.now:%H:%M:%S}"
        text = f"{tag}[{self.random.randrange(300, 310)}]: {message}" if tag else message
        self.live.text += f"{stamp} {self.host} {level} {text}\n".encode()
        self.live.mtime = self.now.replace(tzinfo=datetime.timezone.utc).timestamp()
        self.lines.append(Line(self.now, tag, message, self.version))

    def rotate(self) -> None:
        self.waiting.insert(0, self.live)
        self.live = File(b"", 0)

    def archive_oldest(self) -> None:
        if not self.waiting:
            return
        file = self.waiting.pop()
        self.archivings += 1
        self.archive.append((self.boot, self.archivings, file, compress(file.text)))

    def drop_oldest_boots(self, count: int) -> None:
        """Deletes them, and renumbers the others, as a start does when the numbers are used up."""
        boots = sorted({boot for boot, *_ in self.archive})
        kept = boots[count:]
        self.archive = [(boot - kept[0] + 1, *rest) for boot, *rest in self.archive if boot in kept] \
            if kept else []

    # What it leaves behind.

    @property
    def kept(self) -> int:
        """The number of lines that have not been deleted."""
        files = [file for _, _, file, _ in self.archive] + self.waiting + [self.live]
        return sum(file.text.count(b"\n") for file in files)

    def write(self) -> None:
        """Fills /perm/logs/syslog."""
        shutil.rmtree(ARCHIVE, ignore_errors=True)
        for path in SYSLOG.glob("messages.*"):
            path.unlink()
        ARCHIVE.mkdir(parents=True)
        for boot, seconds, file, compressed in self.archive:
            put(ARCHIVE / archive_name(boot, seconds), compressed, file.mtime)
        for number, file in enumerate(self.waiting):
            put(SYSLOG / f"messages.txt.{number}", file.text, file.mtime)
        if self.live.text:
            put(SYSLOG / "messages.txt", self.live.text, self.live.mtime)

    def download(self, folder: Path) -> Path:
        """A tar file made by `moraine pack`."""
        self.write()
        self.downloads += 1
        path = folder / f"{self.name}-logs-{self.downloads}.tar"
        subprocess.run([program(), "pack", "--limit", "none", "-o", str(path)], check=True,
                       capture_output=True, env=environment())
        return path


def put(path: Path, content: bytes, mtime: float) -> None:
    path.write_bytes(content)
    os.utime(path, (mtime, mtime))


# The plain count that the answers of other programs are compared with.

class Fleet:
    def __init__(self, devices: list[Device]) -> None:
        self.devices = devices

    def lines(self, wanted: Callable[[Line], bool] = lambda line: True) -> list[tuple[Device, Line]]:
        return [(device, line) for device in self.devices for line in device.lines if wanted(line)]

    def which_devices(self, text: str) -> list[tuple]:
        rows = []
        for device in self.devices:
            times = [line.time for line in device.lines if text in line.message]
            if times:
                rows.append((device.name, len(times), str(min(times)), str(max(times))))
        return sorted(rows, key=lambda row: (-row[1], row[0]))

    def first_seen(self, text: str) -> list[tuple]:
        found = [(line.time, device.name, line.message)
                 for device, line in self.lines(lambda line: text in line.message)
                 if line.time - UNSET > datetime.timedelta(hours=1)]
        time, name, message = min(found)
        return [(str(time), name, message, len({name for _, name, _ in found}))]

    def by_version(self, text: str) -> list[tuple]:
        found = self.lines(lambda line: text in line.message)
        rows = []
        for version in {line.version for _, line in found}:
            names = [device.name for device, line in found if line.version == version]
            rows.append((version, len(names), len(set(names))))
        return sorted(rows, key=lambda row: (-row[1], row[0]))

    def noisiest_programs(self) -> list[tuple]:
        rows = []
        for tag in {line.tag for _, line in self.lines()}:
            found = self.lines(lambda line: line.tag == tag)
            devices = len({device.name for device, _ in found})
            rows.append((tag, len(found), sum(len(line.message) for _, line in found), devices,
                         round(len(found) / devices, 1)))
        return sorted(rows, key=lambda row: (-row[1], row[0]))

    def unclean_boots(self) -> list[tuple]:
        return [(device.name, device.unclean_boots) for device in self.devices if device.unclean_boots]
