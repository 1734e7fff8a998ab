"""Numbered log lines, and what a disk holds of them."""
from __future__ import annotations

import collections
import dataclasses
import lzma
import random
import re
from pathlib import Path

# The number stands at both ends: half a line is no line.
PATTERN = re.compile(rb"line (\d{8}) .*end \1\n")
DAEMON_PATTERN = re.compile(rb" vandis-moraine: (.*)\n")
PADDING = bytes(1 << 20)


def messages(first: int, count: int, noise: random.Random) -> bytes:
    """`count` numbered lines, to be logged. They compress about as a log does."""
    return b"".join(
        b"line %08d pressure %d kPa flow %d l/h valve %s end %08d\n" % (
            number, noise.randrange(90, 130), noise.randrange(1000),
            noise.choice((b"open", b"shut")), number)
        for number in range(first, first + count))


def logged(first: int, count: int, noise: random.Random) -> bytes:
    """The same, as syslogd writes them."""
    return b"".join(b"Jan  1 00:00:00 device daemon.info pump: " + line
                    for line in messages(first, count, noise).splitlines(keepends=True))


def numbers(text: bytes) -> list[int]:
    return [int(number) for number in PATTERN.findall(text)]


@dataclasses.dataclass
class Found:
    """What the log's folder holds."""

    lines: collections.Counter[int] = dataclasses.field(default_factory=collections.Counter)
    archive: dict[str, list[int]] = dataclasses.field(default_factory=dict)  # the lines of each file
    daemon_lines: list[str] = dataclasses.field(default_factory=list)
    empty: list[str] = dataclasses.field(default_factory=list)  # archive files
    corrupt: list[str] = dataclasses.field(default_factory=list)  # archive files
    leftovers: list[str] = dataclasses.field(default_factory=list)

    @property
    def duplicated(self) -> int:
        return sum(count - 1 for count in self.lines.values())

    def add(self, text: bytes) -> list[int]:
        found = numbers(text)
        self.lines.update(found)
        self.daemon_lines += [line.decode() for line in DAEMON_PATTERN.findall(text)]
        return found


def find(log: Path) -> Found:
    found = Found()
    for path in sorted(path for path in log.rglob("*") if path.is_file()):
        if path.parent.name == "archive":
            _add_archive_file(found, path)
            continue
        if path.suffix in (".xz", ".tmp"):
            found.leftovers.append(path.name)
        if path.suffix != ".xz":  # a compressed leftover has its source beside it
            found.add(path.read_bytes())
    return found


def _add_archive_file(found: Found, path: Path) -> None:
    found.archive[path.name] = []
    if path.stat().st_size == 0:
        found.empty.append(path.name)
        return
    try:
        found.archive[path.name] = found.add(_decompress(path))
    except lzma.LZMAError:
        found.corrupt.append(path.name)


def _decompress(path: Path) -> bytes:
    """As strict as `xz --test`, but without a process for each of many small files. Raises
    LZMAError."""
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


def ranges(numbers: set[int]) -> str:
    """For people: "3, 7-12"."""
    parts: list[list[int]] = []
    for number in sorted(numbers):
        if parts and parts[-1][1] == number - 1:
            parts[-1][1] = number
        else:
            parts.append([number, number])
    shown = [str(first) if first == last else f"{first}-{last}" for first, last in parts]
    return ", ".join(shown) or "none"
