# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""What `moraine log` and `moraine boots` must print, written down as plainly as possible and without
regard to speed: every file is read whole, every line becomes an object, and a filter is a list
comprehension. The command is compared with this on random logs.
"""
from __future__ import annotations

import dataclasses
import datetime
import lzma
import os
import re
from pathlib import Path
from typing import Any, Callable, Iterable, Sequence

SEVERITIES = ("emerg", "alert", "crit", "err", "warning", "notice", "info", "debug")
OTHER_SEVERITIES = {"error": 3, "panic": 0, "warn": 4}  # a cut "warning" is one, too
MONTHS = ("Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec")
FACILITIES = ("kern", "user", "mail", "daemon", "auth", "syslog", "lpr", "news", "uucp", "cron",
              "authpriv", "ftp", "local0", "local1", "local2", "local3", "local4", "local5",
              "local6", "local7")
MAX_LINE = 1 << 20
ONE_DAY = datetime.timedelta(days=1)

LINE = re.compile(
    rb"(?P<month>" + "|".join(MONTHS).encode() + rb") (?P<day>[ \d]\d) "
    rb"(?P<hour>\d\d):(?P<minute>\d\d):(?P<second>\d\d) "
    rb"(?:(?P<host>[^ ]+) )??"
    rb"(?:(?P<facility>" + "|".join(FACILITIES).encode() + rb")"
    rb"\.(?P<severity>" + "|".join([*SEVERITIES, *OTHER_SEVERITIES]).encode() + rb")|<(?P<number>\d{1,3})>)"
    rb"(?: (?P<text>.*))?", re.DOTALL)  # a power cut may have ended it there
TAG = re.compile(rb"(?P<tag>[^ \[\]:]+)(?:\[(?P<pid>\d+)\])?: (?P<message>.*)", re.DOTALL)


@dataclasses.dataclass
class Line:
    boot: int
    file: str
    number: int
    raw: bytes
    mtime: float
    time: datetime.datetime | None = None
    host: bytes | None = None
    severity: int | None = None
    facility: str | None = None
    tag: bytes | None = None
    pid: int | None = None
    message: bytes = b""

    def __post_init__(self) -> None:
        self.message = self.raw
        match = LINE.fullmatch(self.raw)
        time = match and inferred_time(match, self.mtime)
        if not match or not time:
            return
        self.time = time
        self.host = match["host"]
        if match["number"]:
            self.severity = int(match["number"]) % 8
        else:
            name = match["severity"].decode()
            self.severity = OTHER_SEVERITIES.get(name)
            if self.severity is None:
                self.severity = SEVERITIES.index(name)
            self.facility = match["facility"].decode()
        self.message = match["text"] or b""
        tagged = TAG.fullmatch(self.message)
        if tagged:
            self.tag, self.message = tagged["tag"], tagged["message"]
            self.pid = int(tagged["pid"]) if tagged["pid"] else None

    def object(self) -> dict[str, Any]:
        """As `-o json` gives it. The facility of a number is not compared."""
        fields = {
            "boot": self.boot, "file": self.file, "line": self.number,
            "time": self.time and self.time.isoformat(), "host": text(self.host),
            "facility": self.facility,
            "severity": None if self.severity is None else SEVERITIES[self.severity],
            "tag": text(self.tag), "pid": self.pid, "message": text(self.message),
        }
        return {key: value for key, value in fields.items() if value is not None}


def text(raw: bytes | None) -> str | None:
    """Each invalid byte becomes U+FFFD. (Python's "replace" makes one of several bytes.)"""
    if raw is None:
        return None
    decoded = raw.decode(errors="surrogateescape")
    return re.sub("[\udc80-\udcff]", "\N{REPLACEMENT CHARACTER}", decoded)


def inferred_time(match: re.Match[bytes], mtime: float) -> datetime.datetime | None:
    """The latest year for which the line is at most one day later than the file's mtime."""
    latest = datetime.datetime.fromtimestamp(mtime) + ONE_DAY
    for year in range(latest.year, latest.year - 9, -1):
        try:
            time = datetime.datetime(
                year, MONTHS.index(match["month"].decode()) + 1, int(match["day"]),
                int(match["hour"]), int(match["minute"]), int(match["second"]))
        except ValueError:  # February 29, or no time at all
            continue
        if time <= latest:
            return time
    return None


@dataclasses.dataclass
class File:
    path: Path
    boot: int
    is_archived: bool

    def text(self) -> bytes:
        raw = self.path.read_bytes()
        return decompressed(raw) if self.path.name.endswith(".xz") else raw

    def lines(self) -> list[Line]:
        mtime = int(self.path.stat().st_mtime)
        return [Line(self.boot, self.path.name, number, raw, mtime)
                for number, raw in enumerate(split(self.text()), 1)]


def decompressed(raw: bytes) -> bytes:
    """All that comes out of it, however it ends."""
    found = b""
    while raw.strip(b"\0"):
        decoder = lzma.LZMADecompressor(lzma.FORMAT_XZ)
        try:
            for start in range(0, len(raw), 1):  # byte by byte: nothing of a damaged file is lost
                found += decoder.decompress(raw[start:start + 1])
                if decoder.eof:
                    break
        except lzma.LZMAError:
            break
        if not decoder.eof:
            break
        raw = raw[start + 1:]
    return found


def split(content: bytes) -> list[bytes]:
    lines = content.split(b"\n")
    if lines[-1] == b"":
        lines.pop()
    return [line[start:start + MAX_LINE] for line in lines
            for start in range(0, max(len(line), 1), MAX_LINE)]


def archive_boot(name: str) -> int | None:
    match = re.fullmatch(r"messages\.(\d+)(?:\..*)?\.xz", name, re.DOTALL)
    return int(match[1]) if match and int(match[1]) <= 65535 else None


def files(syslog: Path, archive: Path) -> list[File]:
    """Every file of the log, in the order of the text."""
    archived = []
    for path in archive.iterdir() if archive.exists() else ():
        boot = archive_boot(path.name)
        if boot is not None and path.is_file() and not path.is_symlink():
            archived.append((boot, os.fsencode(path.name).split(b".", 2)[2], path))
    archived.sort(key=lambda entry: entry[:2])
    current = archived[-1][0] + 1 if archived else 1

    waiting = []
    for path in syslog.iterdir() if syslog.exists() else ():
        match = re.fullmatch(r"messages\.txt(?:\.([^.]+))?", path.name)
        if not match or not path.is_file() or path.is_symlink():
            continue
        suffix = match[1]
        if suffix == "tmp":
            key: tuple = (0,)
        elif suffix is None:
            key = (3,)
        elif suffix.isdecimal():
            key = (2, -int(suffix))
        else:
            key = (1, tuple(-byte for byte in os.fsencode(path.name)) + (1,))
        waiting.append((key, path))
    waiting.sort(key=lambda entry: entry[0])
    return ([File(path, boot, True) for boot, _, path in archived] +
            [File(path, current, False) for _, path in waiting])


def lines(found: Iterable[File]) -> list[Line]:
    return [line for file in found for line in file.lines()]


@dataclasses.dataclass
class Filter:
    """The options of `moraine log`, by their long names."""

    boot: tuple[int, int] | None = None
    grep: Sequence[str] = ()
    fixed_strings: bool = False
    ignore_case: bool = False
    invert_match: bool = False
    priority: int | None = None
    tag: str | None = None
    since: datetime.datetime | None = None
    until: datetime.datetime | None = None
    context: int | None = None
    lines: int | None = None
    reverse: bool = False

    def arguments(self) -> list[str]:
        """What the command is called with."""
        found: list[str] = []
        if self.boot:
            found.append(f"--boot={self.boot[0]}..{self.boot[1]}")
        for expression in self.grep:
            found += ["-g", expression]
        for name in ("fixed_strings", "ignore_case", "invert_match", "reverse"):
            if getattr(self, name):
                found.append("--" + name.replace("_", "-"))
        if self.priority is not None:
            found += ["-p", SEVERITIES[self.priority]]
        if self.tag is not None:
            found.append(f"--tag={self.tag}")
        for name in ("since", "until"):
            if getattr(self, name):
                found.append(f"--{name}={getattr(self, name):%Y-%m-%d %H:%M:%S}")
        if self.context is not None:
            found.append(f"-C{self.context}")
        if self.lines is not None:
            found.append(f"-n{self.lines}")
        return found

    def _is_left(self, line: Line) -> bool:
        """By all filters but `grep`."""
        if self.boot and not self.boot[0] <= line.boot <= self.boot[1]:
            return False
        if self.priority is not None and (line.severity is None or line.severity > self.priority):
            return False
        if self.tag is not None and line.tag != os.fsencode(self.tag):
            return False
        if self.since and (line.time is None or line.time < self.since):
            return False
        if self.until and (line.time is None or line.time > self.until):
            return False
        return True

    def _matcher(self) -> Callable[[Line], bool]:
        if not self.grep:
            return lambda line: True
        flags = re.DOTALL | (re.IGNORECASE if self.ignore_case else 0)
        patterns = [re.compile(re.escape(os.fsencode(expression)) if self.fixed_strings
                               else os.fsencode(expression), flags) for expression in self.grep]
        return lambda line: any(p.search(line.raw) for p in patterns) != self.invert_match

    def blocks(self, log: Iterable[Line]) -> list[list[Line]]:
        """The lines that are printed, in blocks between which `--` stands if there is context."""
        left = [line for line in log if self._is_left(line)]
        if self.reverse:
            left.reverse()
        matches = self._matcher()
        hits = [index for index, line in enumerate(left) if matches(line)]
        if self.lines is not None:
            newest = slice(None, self.lines) if self.reverse else slice(-self.lines or len(hits), None)
            hits = hits[newest]
        around = self.context if self.grep and self.context else 0
        shown = sorted({index for hit in hits
                        for index in range(max(0, hit - around),
                                           min(len(left), hit + around + 1))})
        found: list[list[Line]] = []
        for position, index in enumerate(shown):
            if position == 0 or (self.grep and self.context is not None and index != shown[position - 1] + 1):
                found.append([])
            found[-1].append(left[index])
        self.count = len(hits)
        return found

    def text(self, log: Iterable[Line]) -> bytes:
        return b"--\n".join(b"".join(line.raw + b"\n" for line in block)
                            for block in self.blocks(log))


def boots(found: Sequence[File]) -> list[dict[str, Any]]:
    """As `moraine boots --json` gives them."""
    newest_archived = max((file.boot for file in found if file.is_archived), default=0)
    current = next((file.boot for file in found if not file.is_archived), newest_archived + 1)
    numbers = sorted({file.boot for file in found})
    rows = []
    for number in numbers:
        own = [file for file in found if file.boot == number]
        times = [line.time.isoformat() for line in lines(own) if line.time]
        offset = -sum(number < other < current for other in numbers) - (number != current)
        rows.append({
            "offset": offset, "boot": number, "files": len(own),
            "bytes": sum(file.path.stat().st_size for file in own),
            "first": times[0] if times else None, "last": times[-1] if times else None,
            "current": number == current})
    return rows
