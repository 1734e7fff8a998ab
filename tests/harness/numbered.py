"""Numbered lines: a writer that floods the log with them, and the judge that finds what became of
each of them."""
from __future__ import annotations

import array
import dataclasses
import lzma
import re
import socket
import threading
import time
from pathlib import Path
from typing import Iterable

from tests.harness.paths import ARCHIVE, LIVE_LOG, LOG_SOCKET, SYSLOG

PLACES = ("archive", "rotations", "live log", "leftovers")

# The number stands at both ends: half a line is no line.
LINE = "<14>flood: line {0} pump {1} pressure {2} kPa flow {3} l/h valve {4} end {0}"
LINE_PATTERN = re.compile(rb" flood: line (\d+) .* end \1\n")


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
        number = self.written + 1
        noise = number * 2654435761 % 2**32  # varied, but the same in each run
        text = LINE.format(number, number % 8, 90 + noise % 40, noise >> 20, noise % 97)
        try:
            if self._log is None:
                self._log = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
                self._log.settimeout(1)  # or a syslogd that hangs would keep `stop` waiting
                self._log.connect(str(LOG_SOCKET))
            self._log.send(text.encode())
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
    """A file of the log, compressed or not. `read` fills in all that follows the path."""

    path: Path
    size: int = 0
    text_size: int = 0
    numbers: array.array = dataclasses.field(default_factory=lambda: array.array("L"))
    damaged: bool = False

    @property
    def place(self) -> str:
        if self.path == LIVE_LOG:
            return "live log"
        if self.path.parent == ARCHIVE and self.path.suffix == ".xz":
            return "archive"
        is_rotation = self.path.stem == LIVE_LOG.name and self.path.suffix[1:].isdigit()
        return "rotations" if is_rotation else "leftovers"

    def read(self) -> LogFile:
        self.size = self.path.stat().st_size
        try:
            with (lzma.open if self.path.suffix == ".xz" else open)(self.path, "rb") as file:
                for line in file:
                    self.text_size += len(line)
                    match = LINE_PATTERN.search(line)
                    if match:
                        self.numbers.append(int(match.group(1)))
        except (EOFError, lzma.LZMAError):
            self.damaged = True
        return self


def log_files() -> list[LogFile]:
    """Every file below the log's folder, unread; of each place the oldest first."""
    files = [LogFile(path) for path in sorted(SYSLOG.rglob("*")) if path.is_file()]
    rotations = [file for file in files if file.place == "rotations"]
    others = [file for file in files if file.place != "rotations"]
    ordered = others + sorted(rotations, key=lambda file: -int(file.path.suffix[1:]))
    return sorted(ordered, key=lambda file: PLACES.index(file.place))


@dataclasses.dataclass
class Verdict:
    """What became of the lines 1 to `written`."""

    written: int
    found: dict[str, int]  # lines by place, those that are there twice included
    lost: list[tuple[int, int]]  # ranges of numbers, both ends included
    duplicated: int  # lines found a second time

    @property
    def lost_lines(self) -> int:
        return sum(last - first + 1 for first, last in self.lost)

    def __str__(self) -> str:
        places = ", ".join(f"{place} {count}" for place, count in self.found.items())
        return (f"{self.written} lines written, {self.written - self.lost_lines} found ({places}), "
                f"{self.lost_lines} lost, {self.duplicated} duplicated")


def judge(written: int, files: Iterable[LogFile]) -> Verdict:
    """`files`: read while nothing worked on them."""
    seen = bytearray(written + 1)
    found = dict.fromkeys(PLACES, 0)
    duplicated = 0
    for file in files:
        found[file.place] += len(file.numbers)
        for number in file.numbers:
            duplicated += seen[number]
            seen[number] = 1
    gaps = re.finditer(rb"\0+", memoryview(seen)[1:])
    return Verdict(written, found, [(gap.start() + 1, gap.end()) for gap in gaps], duplicated)


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
