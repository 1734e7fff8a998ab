# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Makes logs of every kind: whole, cut by a power failure, with lines of other forms."""
from __future__ import annotations

import datetime
import lzma
import os
import random
from pathlib import Path

from tests.command.reference import MONTHS, FACILITIES, SEVERITIES
from tests.harness.paths import archive_name

TAGS = ("pump", "app", "sshd", "kernel", "a-b_c.d", "x" * 40)
WORDS = ("pressure", "valve", "Error", "error", "x.y", "timeout", "a+b", "überdruck", "100%", "\\",
         "\"quoted\"", "[1]", "end.")


class RandomLog:
    """Text of lines whose time goes on, over a new year if it comes to that."""

    def __init__(self, seed: int) -> None:
        self.random = random.Random(seed)
        self.time = (datetime.datetime(self.random.choice((2023, 2024, 2026)), 1, 1)
                     + datetime.timedelta(seconds=self.random.randrange(365 * 86400)))

    def line(self) -> bytes:
        pick = self.random.random()
        self.time += datetime.timedelta(seconds=self.random.choice((0, 0, 1, 7, 600, 40000)))
        if pick < 0.02:
            return b""
        if pick < 0.05:
            return self._noise()
        stamp = f"{MONTHS[self.time.month - 1]} {self.time.day:2} {self.time:%H:%M:%S}"
        host = self.random.choice(("device ", "device ", "device ", "10.0.0.1 ", ""))
        source = f"{self.random.choice(FACILITIES)}.{self.random.choice(SEVERITIES)}"
        if pick < 0.08:
            source = f"<{self.random.randrange(192)}>"
        return f"{stamp} {host}{source} {self._message()}".encode()

    def _noise(self) -> bytes:
        return self.random.choice((
            b"no line of syslogd", b"\xff\xfe\x80 bytes \xe2\x82", b"\x1b[31mred\x07\x00zero",
            b"Nov 31 25:00:00 device user.err app: no such day",
            b"Feb 29 12:00:00 device user.err app: in leap years",
            b"Nov 21 17:48:08", b"Nov 21 17:48:08 device", b"Nov 21 17:48:08 device user.loud app: x",
            b" " * 50, b"x" * 5000))

    def _message(self) -> str:
        pick = self.random.random()
        message = " ".join(self.random.choice(WORDS) for _ in range(self.random.randrange(8)))
        if pick < 0.05:
            return "-- MARK --"
        if pick < 0.1:
            return "syslogd started: BusyBox v1.36.1"
        if pick < 0.15:
            return message
        pid = f"[{self.random.randrange(1, 99999)}]" if self.random.random() < 0.6 else ""
        return f"{self.random.choice(TAGS)}{pid}: {message}"

    def text(self) -> bytes:
        count = self.random.choice((0, 1, 2, 10, 60))
        content = b"".join(self.line() + b"\n" for _ in range(count))
        if count and self.random.random() < 0.1:
            content = content[:-self.random.randrange(1, 20)]  # a power cut
        return content

    def write(self, path: Path, content: bytes) -> None:
        path.write_bytes(content)
        # What was logged last, or a later moment.
        later = self.random.choice((0, 0, 1, 3600))
        stamp = (self.time + datetime.timedelta(seconds=later)).timestamp()
        os.utime(path, (stamp, stamp))


def compress(content: bytes) -> bytes:
    return lzma.compress(content, filters=[{"id": lzma.FILTER_LZMA2, "preset": 6,
                                            "dict_size": 2 << 20}])


def make(folder: Path, seed: int) -> None:
    """Fills `folder`, laid out like /perm/logs/syslog."""
    log = RandomLog(seed)
    choose = log.random
    archive = folder / "archive"
    archive.mkdir(parents=True)
    boot = choose.choice((1, 1, 7, 998))
    for _ in range(choose.randrange(5)):
        for minute in range(choose.randrange(1, 5)):
            name = archive_name(boot, 60 * minute + choose.randrange(60))
            log.write(archive / name, compress(log.text()))
        boot += choose.choice((1, 1, 1, 3))
    if choose.random() < 0.2:
        log.write(folder / "messages.txt.tmp", log.text())
    for number in sorted(choose.sample(range(12), choose.choice((0, 0, 1, 4))), reverse=True):
        log.write(folder / f"messages.txt.{number}", log.text())
    if choose.random() < 0.9:
        log.write(folder / "messages.txt", log.text())
