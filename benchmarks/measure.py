# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Measuring side by side: what a piece of work costs, and what several of them cost in turns."""
from __future__ import annotations

import dataclasses
import json
import os
import resource
import statistics
import subprocess
import sys
import time
from typing import Callable, Mapping, Sequence

from tests.harness.progress import Progress


@dataclasses.dataclass(frozen=True)
class Cost:
    seconds: float
    processor_seconds: float  # of the processes that it ran, too
    allocations: int = 0


def run_tool(*command: str) -> Cost:
    """What `engine` or `floor` says that its work cost."""
    done = subprocess.run(command, stdout=subprocess.PIPE, text=True)
    if done.returncode != 0:
        raise RuntimeError(f"{' '.join(command)} failed")
    return Cost(**json.loads(done.stdout.splitlines()[-1]))


def run_process(*command: str) -> Cost:
    start = time.perf_counter()
    pid = os.posix_spawn(command[0], command, os.environ)
    _, status, usage = os.wait4(pid, 0)
    if status != 0:
        raise RuntimeError(f"{' '.join(command)} failed")
    return Cost(time.perf_counter() - start, processor_seconds(usage))


def processor_seconds(usage: resource.struct_rusage) -> float:
    return usage.ru_utime + usage.ru_stime


class Titled(Progress):
    """Says on standard error what is being measured."""

    def __init__(self, title: str) -> None:
        super().__init__(sys.stderr)
        self._title = title

    def say(self, text: str) -> None:
        self.status(f"{self._title}: {text} ({self.seconds:.0f} s)")


def in_turns(rounds: int, works: Mapping[str, Callable[[], Cost]],
             say: Callable[[str], None]) -> dict[str, list[Cost]]:
    """Every work once a round, each round beginning with another: a machine that slows down meets
    all of them alike."""
    costs: dict[str, list[Cost]] = {name: [] for name in works}
    names = list(works)
    for number in range(rounds):
        say(f"round {number + 1} of {rounds}")
        first = number % len(names)
        for name in names[first:] + names[:first]:
            costs[name].append(works[name]())
    return costs


@dataclasses.dataclass
class Row:
    """One line of the table: samples of ours and of a peer, in the order in which they were taken,
    and what the comparison should come to."""

    section: str
    what: str
    unit: str  # "s", "KiB", "B", "calls" ...
    ours: Sequence[float]
    peer_name: str = ""
    peer: Sequence[float] = ()
    comparison: str = "value"  # or "ratio", "difference"
    goal: float | None = None  # at most this

    def figures(self) -> list[float]:
        """The samples of the comparison: round by round where both were measured in turns."""
        if self.comparison == "value":
            return list(self.ours)
        pairs = list(zip(self.ours, self.peer))
        if len(self.ours) != len(self.peer):
            pairs = [(statistics.median(self.ours), statistics.median(self.peer))]
        if self.comparison == "difference":
            return [ours - peer for ours, peer in pairs]
        return [ours / peer for ours, peer in pairs]

    @property
    def figure(self) -> float:
        return statistics.median(self.figures())

    @property
    def is_timed(self) -> bool:
        """Then other work on the machine has a part in it."""
        return self.unit == "s"

    @property
    def is_met(self) -> bool | None:
        return None if self.goal is None else self.figure <= self.goal
