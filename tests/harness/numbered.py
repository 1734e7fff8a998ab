# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Numbered lines: who writes them, and the judge that finds what became of each of them."""
from __future__ import annotations

import array
import dataclasses
import lzma
import re
import socket
import threading
import time
from pathlib import Path
from typing import Iterable, Sequence

from tests.harness.paths import LIVE_LOG, LOG_SOCKET, SYSLOG

PLACES = ("archive", "rotations", "live log", "leftovers")

# The number stands at both ends: half a line is no line.
PATTERN = re.compile(rb" line (\d+) pump .* end \1\n")
DAEMON_PATTERN = re.compile(rb" vandis-moraine: (.*)\n")
PADDING = bytes(1 << 20)


def message(number: int) -> str:
    noise = number * 2654435761 % 2**32  # varied, but the same in each run
    return (f"line {number} pump {number % 8} pressure {90 + noise % 40} kPa flow {noise >> 20} l/h "
            f"valve {noise % 97} end {number}")


def logged(first: int, last: int) -> bytes:
    """Returns these lines as syslogd writes them."""
    return "".join(f"Jan  1 00:00:00 device user.info flood: {message(number)}\n"
                   for number in range(first, last + 1)).encode()


def numbers_in(text: bytes) -> list[int]:
    return [int(number) for number in PATTERN.findall(text)]


class Flood(threading.Thread):
    """Writes the lines 1, 2, 3 ... to /dev/log, `rate` per second, until `stop` or `limit` lines.
    `written` is the last number that syslogd's socket took. A syslogd that falls behind slows it
    down; one that is away makes it wait."""

    def __init__(self, rate: float, limit: int | None = None) -> None:
        super().__init__(daemon=True)
        self.rate = rate
        self.limit = limit
        self.written = 0
        self._stopping = threading.Event()
        self._log: socket.socket | None = None

    def stop(self) -> None:
        self._stopping.set()
        if self.is_alive():
            self.join()

    def run(self) -> None:
        start = time.monotonic()
        while self.written != self.limit and not self._stopping.wait(0.01):
            due = int((time.monotonic() - start) * self.rate)
            if self.limit is not None:
                due = min(due, self.limit)
            while self.written < due and not self._stopping.is_set() and self._send():
                self.written += 1
        self._disconnect()

    def _send(self) -> bool:
        try:
            if self._log is None:
                self._log = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
                self._log.settimeout(1)  # or a syslogd that hangs would keep `stop` waiting
                self._log.connect(str(LOG_SOCKET))
            self._log.send(f"<14>flood: {message(self.written + 1)}".encode())
        except OSError:  # no syslogd, or no longer the one that this socket is connected to
            self._disconnect()
            return False
        return True

    def _disconnect(self) -> None:
        if self._log is not None:
            self._log.close()
            self._log = None


@dataclasses.dataclass
class LogFile:
    """A file of the log, compressed or not. `read` fills in what follows the path."""

    path: Path
    size: int = 0
    text_size: int = 0
    numbers: Sequence[int] = ()
    daemon_lines: list[str] = dataclasses.field(default_factory=list)
    damaged: bool = False

    @property
    def place(self) -> str:
        if self.path.name == LIVE_LOG.name:
            return "live log"
        if self.path.parent.name == "archive" and self.path.suffix == ".xz":
            return "archive"
        is_rotation = self.path.stem == LIVE_LOG.name and self.path.suffix[1:].isdigit()
        return "rotations" if is_rotation else "leftovers"

    @property
    def is_safe(self) -> bool:
        """Whether a start keeps what is in it. A compressed leftover has its source beside it."""
        return self.place != "leftovers" or self.path.suffix == ".tmp"

    def read(self) -> LogFile:
        self.size = self.path.stat().st_size
        try:
            text = decompressed(self.path) if self.path.suffix == ".xz" else self.path.read_bytes()
        except lzma.LZMAError:
            self.damaged = True
            return self
        self.text_size = len(text)
        self.numbers = array.array("L", numbers_in(text))
        self.daemon_lines = [line.decode(errors="surrogateescape")
                             for line in DAEMON_PATTERN.findall(text)]
        return self


def decompressed(path: Path) -> bytes:
    """Returns the text of an xz file. As strict as `xz --test`, padding included, but without a
    process for each of many small files. Throws LZMAError."""
    stream = lzma.LZMADecompressor(lzma.FORMAT_XZ)
    text = b""
    with path.open("rb") as file:
        while not stream.eof:
            chunk = file.read(len(PADDING))
            if not chunk:
                raise lzma.LZMAError("the file ends too early")
            text += stream.decompress(chunk)
        size = 0
        chunk = stream.unused_data
        while chunk:
            size += len(chunk)
            if chunk != PADDING[:len(chunk)]:
                raise lzma.LZMAError("something follows the compressed text")
            chunk = file.read(len(PADDING))
    if size % 4 != 0:
        raise lzma.LZMAError("the padding is no multiple of four bytes")
    return text


def log_files(folder: Path = SYSLOG) -> list[LogFile]:
    """Returns every file below the log's folder, unread; of each place the oldest first."""
    files = [LogFile(path) for path in sorted(folder.rglob("*")) if path.is_file()]
    rotations = [file for file in files if file.place == "rotations"]
    others = [file for file in files if file.place != "rotations"]
    ordered = others + sorted(rotations, key=lambda file: -int(file.path.suffix[1:]))
    return sorted(ordered, key=lambda file: PLACES.index(file.place))


class Verdict:
    """What became of the lines `wanted`, by `files`, which were read while nothing worked on them.
    """

    def __init__(self, wanted: Iterable[int], files: Iterable[LogFile]) -> None:
        files = [file for file in files if file.is_safe]
        self.found = dict.fromkeys(PLACES, 0)  # lines by place, those that are there twice included
        self.duplicated = 0  # lines found a second time
        wanted = list(wanted)
        seen = bytearray(max((max(file.numbers, default=0) for file in files), default=0) + 1)
        for file in files:
            self.found[file.place] += len(file.numbers)
            for number in file.numbers:
                self.duplicated += seen[number]
                seen[number] = 1
        self.written = len(wanted)
        self.lost = [number for number in wanted if number >= len(seen) or not seen[number]]

    def __str__(self) -> str:
        places = ", ".join(f"{place} {count}" for place, count in self.found.items())
        return (f"{self.written} lines written, {self.written - len(self.lost)} found ({places}), "
                f"{len(self.lost)} lost, {self.duplicated} duplicated")


def judge(written: int, files: Iterable[LogFile]) -> Verdict:
    """Of the lines 1 to `written`."""
    return Verdict(range(1, written + 1), files)


def ranges(numbers: Iterable[int]) -> list[str]:
    """For people: "3", "7-12"."""
    parts: list[list[int]] = []
    for number in sorted(numbers):
        if parts and parts[-1][1] == number - 1:
            parts[-1][1] = number
        else:
            parts.append([number, number])
    return [str(first) if first == last else f"{first}-{last}" for first, last in parts]


def has_logged(number: int) -> bool:
    """Whether syslogd has written this line, one of its last."""
    for path in (LIVE_LOG, LIVE_LOG.with_suffix(".txt.0")):
        try:
            with path.open("rb") as file:
                file.seek(max(0, path.stat().st_size - 65536))
                if f" end {number}\n".encode() in file.read():
                    return True
        except FileNotFoundError:
            pass
    return False
