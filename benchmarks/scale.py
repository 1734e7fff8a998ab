# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Work on archives of many files, beside the least that it can cost: one pass of `find -printf` to
learn the names and sizes, and a bare loop of rename(2) or unlink(2) where files move or go."""
from __future__ import annotations

import re
import subprocess
from pathlib import Path
from typing import Callable, Mapping

from benchmarks.measure import Cost, Row, Titled, in_turns, run_tool
from benchmarks.scenery import Archive, use_disk
from tests.harness.paths import ARCHIVE, SIZE_LIMIT

FIND = ("floor", "run", "find", str(ARCHIVE), "-type", "f", "-fprintf", "/dev/null",
        "%f %s\n")
PRUNED_BOOTS = 100
PACKED_FILES = 10
LINEAR = 1.2  # at most as many times as long takes a file of an archive of five or ten times as many


def sum_of(*costs: Cost) -> Cost:
    return Cost(sum(cost.seconds for cost in costs),
                sum(cost.processor_seconds for cost in costs))


class Scene:
    """An archive, the operations on it and their floors. Each leaves the archive as it was."""

    def __init__(self, count: int) -> None:
        self._archive = Archive(count)
        self._pruned = [name for name in self._archive.names
                        if int(name.split(".")[1]) <= PRUNED_BOOTS]

    def works(self) -> dict[str, tuple[Callable[[], Cost], Callable[[], Cost]]]:
        return {
            "start-up": (lambda: run_tool("engine", "start"), self.find),
            "statistics": (lambda: run_tool("engine", "stats"), self.find),
            "renumbering": (self.renumber, self.rename),
            "pruning 100 boots": (self.prune, self.unlink_pruned),
            "size limit": (self.limit, self.unlink_tenth),
            "download of 10 files": (self.download, self.pack),
        }

    @staticmethod
    def find() -> Cost:
        return run_tool(*FIND)

    def renumber(self) -> Cost:
        self.raise_boots()
        return run_tool("engine", "renumber")

    def rename(self) -> Cost:
        cost = sum_of(self.find(), self.raise_boots())
        run_tool("engine", "renumber")
        return cost

    @staticmethod
    def raise_boots() -> Cost:
        return run_tool("floor", "rename", str(ARCHIVE))

    def prune(self) -> Cost:
        cost = run_tool("engine", "prune", str(PRUNED_BOOTS))
        self._archive.refill(self._pruned)
        return cost

    def unlink_pruned(self) -> Cost:
        return self._unlink(len(self._pruned))

    def limit(self) -> Cost:
        name = "messages.999.last.txt.xz"
        self._archive.make(name, SIZE_LIMIT - self._archive.size * len(self._archive.names))
        cost = run_tool("engine", "limit")
        (ARCHIVE / name).unlink()
        self._archive.refill()
        return cost

    def unlink_tenth(self) -> Cost:
        # One more than a tenth, to get below the mark.
        return self._unlink(len(self._archive.names) // 10 + 1)

    def _unlink(self, count: int) -> Cost:
        cost = sum_of(self.find(), run_tool("floor", "unlink", str(ARCHIVE), str(count)))
        self._archive.refill()
        return cost

    @staticmethod
    def download() -> Cost:
        cost = run_tool("engine", "download", str(PACKED_FILES))
        Path("/tmp/syslog.tar").unlink()
        return cost

    def pack(self) -> Cost:
        """The same files by the same commands, in one shell."""
        script = ["cd /tmp"]
        for name in reversed(self._archive.names[-PACKED_FILES:]):
            how = "--create" if len(script) == 1 else "--append"
            script += [f"cp {ARCHIVE}/{name} .", f"tar {how} --file syslog.tar {name}",
                       f"rm {name}"]
        cost = sum_of(self.find(), run_tool("floor", "run", "sh", "-ec", "\n".join(script)))
        Path("/tmp/syslog.tar").unlink()
        return cost


def count_calls(operation: str) -> int:
    summary = Path("/tmp/calls")
    subprocess.run(["strace", "-f", "-c", "-o", summary, "engine", operation], check=True,
                   stdout=subprocess.DEVNULL)
    total = re.search(r"^100\.00 +\S+ +\S+ +(\d+).*total$", summary.read_text(), re.M)
    if not total:
        raise RuntimeError("strace gives no total")
    return int(total.group(1))


def calls_per_file(progress: Titled) -> list[Row]:
    """From the difference between two archives, so that the calls of any start do not count. The
    goals: a file's size costs a call, its new name another, and the listing hardly any."""
    few, many = 1_000, 10_000
    goals = {"start": 1.1, "stats": 1.1, "renumber": 2.1}
    calls: dict[str, list[int]] = {}
    for count in (few, many):
        scene = Scene(count)
        for operation in goals:
            progress.say(f"system calls of {operation}, {count} files")
            if operation == "renumber":
                scene.raise_boots()
            calls.setdefault(operation, []).append(count_calls(operation))
    return [Row("scale", f"{operation}: calls a file", "calls", [(after - before) / (many - few)],
                goal=goals[operation])
            for operation, (before, after) in calls.items()]


def growth(times: Mapping[str, Mapping[int, list[float]]]) -> list[Row]:
    """What a file costs in the largest archive, beside what it costs in the next smaller one."""
    rows = []
    for name, by_count in times.items():
        fewer, more = sorted(by_count)[-2:]
        per_file = {count: [seconds / count for seconds in by_count[count]]
                    for count in (fewer, more)}
        rows.append(Row("scale", f"{name}, a file of {more}", "s", per_file[more], f"of {fewer}",
                        per_file[fewer], "ratio", LINEAR))
    return rows


def measure(quick: bool, disk: Path | None) -> dict:
    where = use_disk(disk) if disk else "tmpfs"
    progress = Titled(f"scale, {where}")
    rounds = {1_000: 9, 10_000: 5, 50_000: 3}
    if quick:
        rounds = {1_000: 3, 10_000: 1}
    if disk:
        rounds = {10_000: 3}
    rows = []
    times: dict[str, dict[int, list[float]]] = {}
    for count, number in rounds.items():
        progress.say(f"making {count} files")
        for name, (ours, floor) in Scene(count).works().items():
            costs = in_turns(number, {"ours": ours, "floor": floor},
                             lambda text: progress.say(f"{name}, {count} files, {text}"))
            # A tmpfs never waits: its time is the processor's, which no neighbour disturbs.
            ours_times, floor_times = ([
                cost.seconds if disk else cost.processor_seconds for cost in costs[who]
            ] for who in ("ours", "floor"))
            rows.append(Row("scale", f"{name}, {count} files, {where}", "s", ours_times, "floor",
                            floor_times, "ratio", 1.5))
            times.setdefault(name, {})[count] = ours_times
    if not disk:
        rows += growth(times) + calls_per_file(progress)
    progress.clear()
    return {"rows": rows}
