# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Runs the daemon, or the download, once in the sandbox, on a clock that only sleeping moves
on, and returns how it ended: exit status, log lines, and if it was traced its system calls.
"""
from __future__ import annotations

import ctypes
import dataclasses
import os
import re
import signal
import subprocess
from pathlib import Path
from typing import Any, Mapping, Sequence

from tests.harness.log_socket import Entry, Line, LogSocket

DOWNLOAD = "/opt/faults/download"
PRELOAD = "/opt/faults/preload.so"

WORK = Path("/run/faults")
TRACE = WORK / "trace"
REPORT = WORK / "report"
OUTPUT = WORK / "output"

# Nothing that is run here takes more than a few seconds, even on a busy machine.
HANG_SECONDS = 60

PR_SET_CHILD_SUBREAPER = 36


@dataclasses.dataclass(frozen=True)
class Call:
    """One system call of a trace. `ordinal` counts those of its name from 1, as strace does."""

    name: str
    ordinal: int
    text: str

    @property
    def key(self) -> str:
        return f"{self.name}#{self.ordinal}"

    @property
    def succeeded(self) -> bool:
        return re.search(r" = (-1 |\?)[^=]*$", self.text) is None


@dataclasses.dataclass
class End:
    """How a run ended."""

    status: int  # the exit status, or the number of the signal that killed it, negative
    lines: list[Line]
    malformed: list[bytes]  # datagrams that are no entry
    output: str
    hung: bool = False
    calls: list[Call] = dataclasses.field(default_factory=list)
    delivered: list[str] = dataclasses.field(default_factory=list)  # signals, by name
    report: list[tuple[str, int]] = dataclasses.field(default_factory=list)

    @property
    def last_line(self) -> str:
        return self.lines[-1].text if self.lines else "no line"


def spawn(program: str, *, cycles: int = 1, strace: Sequence[str] | None = None,
          settings: Mapping[str, object] | None = None,
          path: str = os.environ["PATH"]) -> subprocess.Popen[bytes]:
    """Starts a program; the daemon gets SIGTERM in the cycle sleep number `cycles` (0: in none).
    `strace`: options of strace if it is to be traced; `settings`: of the preloaded library."""
    for file in (TRACE, REPORT):
        file.unlink(missing_ok=True)
    preloaded = {"LD_PRELOAD": PRELOAD, "SLEEP_LAST": cycles, **(settings or {})}
    variables = {name: str(value) for name, value in preloaded.items()}
    # xz -0: how well it compresses does not matter here.
    environment = {"PATH": path, "LC_ALL": "C", "XZ_DEFAULTS": "-0"}
    command = [program]
    if strace is None:
        environment.update(variables)
    else:
        given = [f"-E{name}={value}" for name, value in variables.items()]
        command = ["strace", "-y", "-s", "256", "-o", str(TRACE), *given, *strace, program]
    with OUTPUT.open("wb") as output:
        return subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=output, stderr=output,
                                env=environment)


class Runner:
    """Runs programs one after the other."""

    def __init__(self) -> None:
        WORK.mkdir(parents=True, exist_ok=True)
        self._log = LogSocket()
        self._kept: set[int] = set()  # children that stay
        # What a killed daemon leaves running becomes a child of this process, to be waited for.
        ctypes.CDLL(None).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)

    def keep(self, pid: int) -> None:
        """A child that `wait_for_orphans` does not wait for."""
        self._kept.add(pid)

    def start(self, program: str, **options: Any) -> subprocess.Popen[bytes]:
        """See `spawn`."""
        self._log.take()
        return spawn(program, **options)

    def finish(self, process: subprocess.Popen[bytes]) -> End:
        """Waits for a started program and returns how it ended."""
        hung = False
        try:
            process.wait(HANG_SECONDS)
        except subprocess.TimeoutExpired:
            hung = True
            for pid in (*children(process.pid), process.pid):  # strace would let its child go on
                os.kill(pid, signal.SIGKILL)
            process.wait()
        entries = self._log.take()
        end = End(process.returncode,
                  [entry.line for entry in entries if entry.line and is_well_formed(entry)],
                  [entry.datagram for entry in entries if not is_well_formed(entry)],
                  OUTPUT.read_text(errors="replace"), hung)
        if TRACE.exists():
            read_trace(end)
        if REPORT.exists():
            pairs = (line.split() for line in REPORT.read_text().splitlines())
            end.report = [(event, int(number)) for event, number in pairs]
        return end

    def run(self, program: str, **options: Any) -> End:
        return self.finish(self.start(program, **options))

    def wait_for_orphans(self) -> None:
        """What a killed daemon left running goes on beside the next start; it has to end before
        the files are looked at."""
        for pid in set(children(os.getpid())) - self._kept:
            try:
                os.waitpid(pid, 0)
            except ChildProcessError:
                pass


def is_well_formed(entry: Entry) -> bool:
    return bool(re.fullmatch(r"[\w-]+", entry.tag)) and not re.search(rb"[\n\0]", entry.datagram)


def children(pid: int) -> list[int]:
    found = []
    for tasks in Path(f"/proc/{pid}/task").glob("*/children"):
        found += [int(child) for child in tasks.read_text().split()]
    return found


CALL = re.compile(r"(\w+)\(")
SIGNAL = re.compile(r"--- (SIG\w+) ")
STOP_SIGNALS = ("SIGHUP", "SIGINT", "SIGTERM", "SIGQUIT")


def read_trace(end: End) -> None:
    counts: dict[str, int] = {}
    for text in TRACE.read_text(errors="replace").splitlines():
        call, delivery = CALL.match(text), SIGNAL.match(text)
        if call:
            name = call.group(1)
            counts[name] = counts.get(name, 0) + 1
            end.calls.append(Call(name, counts[name], text))
        elif delivery and delivery.group(1) in STOP_SIGNALS:
            end.delivered.append(delivery.group(1))
