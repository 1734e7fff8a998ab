# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""The scenes: what lies on the device, which part of a run is looked at, and what has to survive.

The lines of the log are numbered from 1, so that each can be found again.
"""
from __future__ import annotations

import dataclasses
import functools
import lzma
import os
import shutil
import subprocess
import sys
from pathlib import Path
from typing import Callable

from tests.faults import program
from tests.harness import services
from tests.harness.numbered import logged
from tests.harness.paths import ARCHIVE, DAEMON, LIVE_LOG, SIZE_LIMIT, SYSLOG, archive_name

SYSLOG_CALLS = Path("/tmp/syslogd-calls")  # written by the stand-in for syslogd's init script

MIB = 1 << 20
LINES_PER_FILE = 20


@dataclasses.dataclass(frozen=True)
class Sources:
    """The lines 1 to `written` are on the device; those in `may_go` are what a limit takes."""

    written: int
    may_go: range = range(0)


class Contents:
    """Fills the device, with the next lines for each file."""

    def __init__(self) -> None:
        self.written = 0

    def _next_lines(self, count: int) -> bytes:
        self.written += count
        return logged(self.written - count + 1, self.written)

    def log(self, name: str, lines: int = LINES_PER_FILE) -> None:
        """A file in the log's folder."""
        (SYSLOG / name).write_bytes(self._next_lines(lines))

    def long_log(self, name: str, size: int) -> None:
        """The same, with lines at both ends and a hole between them."""
        with (SYSLOG / name).open("wb") as file:
            file.write(self._next_lines(LINES_PER_FILE))
            file.seek(size)
            file.write(b"\n" + self._next_lines(LINES_PER_FILE))

    def archived(self, boot: int, minute: int = 0, lines: int = LINES_PER_FILE) -> Path:
        path = archive_path(boot, minute)
        path.write_bytes(compressed(self.written + 1, self.written + lines))
        self.written += lines
        return path

    def sources(self, may_go: range = range(0)) -> Sources:
        return Sources(self.written, may_go)


@functools.lru_cache(maxsize=None)
def compressed(first: int, last: int) -> bytes:
    return lzma.compress(logged(first, last), preset=0)


def archive_path(boot: int, minute: int) -> Path:
    return ARCHIVE / archive_name(boot, 60 * minute)


def broken_copy(name: str) -> None:
    """What an xz that was killed leaves behind."""
    (SYSLOG / name).write_bytes(compressed(1, LINES_PER_FILE)[:50])


def filler(boot: int, size: int, minute: int = 0) -> None:
    """An archive file without lines that takes no room, and is no compressed file either."""
    archive_path(boot, minute).touch()
    os.truncate(archive_path(boot, minute), size)


def is_filler(path: Path) -> bool:
    status = path.stat()
    return status.st_blocks * 512 < status.st_size


class StandInSyslogd:
    """A process that opens its log anew on SIGHUP and does nothing else."""

    CODE = ("import signal\n"
            "signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGHUP})\n"
            "print('ready', flush=True)\n"
            "while signal.sigwait({signal.SIGHUP}):\n"
            f"    open('{LIVE_LOG}', 'ab').close()\n")

    def __init__(self) -> None:
        self._process = subprocess.Popen([sys.executable, "-c", self.CODE], stdout=subprocess.PIPE)
        assert self._process.stdout is not None
        self._process.stdout.readline()
        self.pid = self._process.pid


def clean_device(syslogd: StandInSyslogd) -> None:
    shutil.rmtree("/perm/logs", ignore_errors=True)
    for name in os.listdir("/tmp"):
        if name.startswith(("messages", "syslog")):
            os.unlink(f"/tmp/{name}")
    services.syslogd.pid_file.write_text(f"{syslogd.pid}\n")
    Path("/perm/logs").mkdir()


def with_log_folders(fill: Callable[[Contents], Sources]) -> Callable[[], Sources]:
    @functools.wraps(fill)
    def prepare() -> Sources:
        ARCHIVE.mkdir(parents=True)
        return fill(Contents())
    return prepare


def empty() -> Sources:
    return Sources(0)


@with_log_folders
def leftovers(on: Contents) -> Sources:
    on.archived(boot=1)
    on.archived(boot=2)
    on.log("messages.txt.tmp")
    on.log("messages.txt.0.tmp")
    on.log("messages.txt.1")
    on.log("messages.txt")
    broken_copy("messages.txt.tmp.xz")
    broken_copy("messages.txt.1.xz")
    broken_copy("messages.txt.5.xz")  # syslogd has moved its source since
    return on.sources()


@with_log_folders
def twin(on: Contents) -> Sources:
    """The power went, or the daemon was killed, before the removal of an archived rotation."""
    archived = on.archived(boot=1)
    rotation = SYSLOG / "messages.txt.0"
    rotation.write_bytes(lzma.decompress(archived.read_bytes()))
    modified = archived.stat().st_mtime_ns
    os.utime(rotation, ns=(modified, modified))
    on.log("messages.txt")
    return on.sources()


@with_log_folders
def renumbering(on: Contents) -> Sources:
    for boot in (5, 6, 7):
        on.archived(boot, minute=1)
        on.archived(boot, minute=2)
    on.log("messages.txt")
    return on.sources()


@with_log_folders
def pruning(on: Contents) -> Sources:
    for boot in range(1, 1000):
        on.archived(boot, lines=1)
    on.log("messages.txt")
    return on.sources(may_go=range(1, 101))


@with_log_folders
def idle(on: Contents) -> Sources:
    on.archived(boot=1)
    on.log("messages.txt")
    return on.sources()


@with_log_folders
def rotation(on: Contents) -> Sources:
    on.archived(boot=1)
    on.log("messages.txt.0")
    on.log("messages.txt")
    return on.sources()


@with_log_folders
def live_log(on: Contents) -> Sources:
    on.archived(boot=1)
    on.long_log("messages.txt", 10 * MIB)
    return on.sources()


@with_log_folders
def last_rotation(on: Contents) -> Sources:
    on.archived(boot=1)
    on.log("messages.txt.9")
    on.log("messages.txt.8")
    on.log("messages.txt")
    return on.sources()


@with_log_folders
def size_limit(on: Contents) -> Sources:
    kept = on.archived(boot=3)
    on.log("messages.txt.0")
    on.log("messages.txt")
    filler(1, 200 * MIB)
    filler(2, 200 * MIB)
    filler(4, SIZE_LIMIT - 1 - 400 * MIB - kept.stat().st_size)
    return on.sources()


@with_log_folders
def download(on: Contents) -> Sources:
    for boot in (1, 2, 3):
        on.archived(boot)
    on.log("messages.txt")
    return on.sources()


# The part of a run that gets faults. LOADING is before main, where only allocations are the
# daemon's own; the first cycle sleep ends START_UP.
LOADING, START_UP, CYCLE, CYCLE_AND_END, WHOLE = range(5)


@dataclasses.dataclass(frozen=True)
class Scene:
    name: str
    about: str
    prepare: Callable[[], Sources]
    part: int
    program: str = DAEMON
    memory: bool = True  # each of its allocations fails once
    signals: bool = False  # stop signals arrive at each of its calls

    @property
    def cycles(self) -> int:
        """SIGTERM comes in this cycle sleep; one more cycle follows."""
        return 1 if self.part == START_UP else 2


SCENES = {scene.name: scene for scene in (
    Scene("loading", "what comes before main", idle, LOADING),
    Scene("empty", "start-up on an empty device", empty, START_UP, signals=True),
    Scene("leftovers", "start-up after an interrupted run", leftovers, START_UP),
    Scene("twin", "start-up with a rotation that was archived before", twin, START_UP),
    Scene("renumbering", "start-up that brings boot numbers down", renumbering, START_UP),
    Scene("pruning", "start-up with boots 1 to 999", pruning, START_UP, memory=False),
    Scene("idle", "a cycle with nothing to do, and the end", idle, CYCLE_AND_END, signals=True),
    Scene("rotation", "a cycle that archives a rotation", rotation, CYCLE, signals=True),
    Scene("live-log", "a cycle that archives the live log", live_log, CYCLE, signals=True),
    Scene("last-rotation", "a cycle that archives rotation .9", last_rotation, CYCLE, signals=True),
    Scene("size-limit", "a cycle that deletes old archive files", size_limit, CYCLE),
    Scene("download", "a download", download, WHOLE, program.DOWNLOAD),
)}
