# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""What takes many runs, or a long one: storms of signals, ten thousand cycles, a chain of boots."""
from __future__ import annotations

import dataclasses
import os
import random
import signal
import subprocess
import time
from pathlib import Path
from typing import Callable

from tests.faults import judge, program, scenes
from tests.faults.inject import Fault, Laboratory, Result
from tests.faults.program import STOP_SIGNALS, End
from tests.harness import log_socket, numbered, services
from tests.harness.paths import ARCHIVE, DAEMON, LIVE_LOG, SIZE_LIMIT, SYSLOG
from tests.harness.waiting import wait_until

STORMS = 150
STAND_INS = Path(__file__).resolve().parent / "stand-ins"


# -- Storms.

def storm(laboratory: Laboratory, fault: Fault) -> Result:
    """Stop signals, or one SIGKILL, at random moments while there is a lot to archive."""
    chance = random.Random(fault.place)
    scenes.clean_device(laboratory.syslogd)
    sources = backlog()
    process = laboratory.runner.start(DAEMON, cycles=0, settings={"SLEEP_US": 300})
    # A start-up and nine archivings take some 100 ms.
    time.sleep(chance.uniform(0, 0.12))
    sent = 0
    while process.poll() is None and sent < 10000:
        kind = fault.kind if fault.kind == "SIGKILL" else chance.choice(STOP_SIGNALS)
        os.kill(process.pid, signal.Signals[kind])
        sent += 1
        time.sleep(chance.expovariate(1 / 0.0005))
    end = laboratory.runner.finish(process)

    if fault.kind == "SIGKILL":
        problems = judge.judge_form(end)
    elif end.status < 0:
        problems = judge.judge_early_death(end)
    else:
        problems = judge.judge_end(end) + judge_number(judge.caught_signals(end), sent)
    problems += judge.judge_lines(sources) + heal(laboratory, sources)
    return Result(fault, problems, end=end)


@scenes.with_log_folders
def backlog(on: scenes.Contents) -> scenes.Sources:
    on.archived(boot=1)
    for number in range(8, -1, -1):
        on.log(f"messages.txt.{number}")
    on.log("messages.txt")
    return on.sources()


def judge_number(caught: list[int], sent: int) -> list[str]:
    # Signals of a kind merge while one of them waits.
    return [] if 0 < len(caught) <= sent else [f"{sent} signals sent, {len(caught)} logged"]


def heal(laboratory: Laboratory, sources: scenes.Sources) -> list[str]:
    problems = []
    for start in ("next", "second"):
        end = laboratory.runner.run(DAEMON)
        laboratory.runner.wait_for_orphans()
        problems += [f"{start} start: {problem}" for problem
                     in judge.judge_clean_end(end) + judge.judge_lines(sources)]
    return problems + judge.judge_healed() + judge.judge_once()


# -- Ten thousand cycles.

CYCLES = 10000
WARM_UP = 100

# What stand-ins/xz makes of a file, and how many of them are just below the size limit.
FILE_SIZE = 48 * scenes.MIB
SIZE_LIMIT_FILES = SIZE_LIMIT // FILE_SIZE


class RotatingLog:
    """A log that rotates as syslogd rotates it, as fast as the daemon takes the rotations away."""

    def __init__(self, is_over: Callable[[], bool]) -> None:
        self._is_over = is_over
        self.written = 0

    def rotate(self, times: int) -> None:
        for _ in range(times):
            if self._is_over():  # the daemon has ended
                return
            self._write()
            services.rotate()
        self._wait_until_taken()

    def grow(self) -> None:
        """A live log that is not rotated."""
        if not self._is_over():
            self._write(hole=10 * scenes.MIB)
            self._wait_until_taken()

    def _write(self, hole: int = 0) -> None:
        """The next lines, all at once: the live log is never seen half written."""
        first, self.written = self.written + 1, self.written + scenes.LINES_PER_FILE
        beside = SYSLOG / "next"
        with beside.open("wb") as file:
            file.write(numbered.logged(first, self.written))
            if hole:
                file.seek(hole)
                file.write(b"\n")
        beside.rename(LIVE_LOG)

    def _wait_until_taken(self) -> None:
        def is_taken() -> bool:
            waits = (log.place in ("rotations", "leftovers") and log.path.suffix != ".xz"
                     for log in numbered.log_files())
            is_long = LIVE_LOG.exists() and LIVE_LOG.stat().st_size > 10 * scenes.MIB
            return self._is_over() or not (is_long or any(waits))
        if not wait_until(is_taken, program.HANG_SECONDS):
            raise TimeoutError("the daemon does not archive")


@dataclasses.dataclass(frozen=True)
class Holdings:
    """What a process holds on to."""

    resident_kib: int
    anonymous_kib: int
    descriptors: int

    @classmethod
    def of(cls, pid: int) -> Holdings:
        fields = dict(line.split(":", 1) for line
                      in Path(f"/proc/{pid}/smaps_rollup").read_text().splitlines()[1:])
        return cls(int(fields["Rss"].split()[0]), int(fields["Anonymous"].split()[0]),
                   len(os.listdir(f"/proc/{pid}/fd")))

    def __str__(self) -> str:
        return (f"{self.resident_kib} KiB resident, {self.anonymous_kib} KiB of them its own, "
                f"{self.descriptors} descriptors")


def long_life(laboratory: Laboratory, fault: Fault) -> Result:
    """Traffic of each kind, and an archive that is always full, through ten thousand cycles."""
    scenes.clean_device(laboratory.syslogd)
    ARCHIVE.mkdir(parents=True)
    for minute in range(SIZE_LIMIT_FILES):
        scenes.filler(1, FILE_SIZE, minute)
    process = laboratory.runner.start(
        DAEMON, cycles=CYCLES + 1, path=f"{STAND_INS}:{os.environ['PATH']}",
        settings={"SLEEP_US": 5000, "SLEEP_FIRST_STOP": WARM_UP,
                  "SLEEP_SECOND_STOP": CYCLES})
    pauses = Pauses(process)
    log = RotatingLog(pauses.is_over)
    while not pauses.is_over():
        log.rotate(1)
        log.rotate(3)
        log.grow()
        log.rotate(10)
        if pauses.holdings:  # all happens before the first look
            time.sleep(0.3)  # cycles with nothing to do
    end = laboratory.runner.finish(process)

    problems = judge.judge_end(end) + judge_log_of_long_life(end)
    if len(pauses.holdings) != 2:
        return Result(fault, problems + ["it ended early"], end=end)
    first, last = pauses.holdings
    if first.anonymous_kib != last.anonymous_kib or first.descriptors != last.descriptors:
        problems.append("it grew")
    problems += judge_tail(log.written)
    notes = [f"after cycle {WARM_UP}: {first}", f"after cycle {CYCLES}: {last}",
             f"{log.written} lines, {count_lines(end, 'Archived ')} files archived, "
             f"{count_lines(end, 'Log archive size ')} deletions at the size limit"]
    return Result(fault, problems, end=end, notes=notes)


class Pauses:
    """The daemon stops itself twice, to be looked at."""

    def __init__(self, process: subprocess.Popen[bytes]) -> None:
        self._process = process
        self.holdings: list[Holdings] = []

    def is_over(self) -> bool:
        if self._process.poll() is not None:
            return True
        if self._is_stopped():
            self.holdings.append(Holdings.of(self._process.pid))
            os.kill(self._process.pid, signal.SIGCONT)
            wait_until(lambda: not self._is_stopped(), program.HANG_SECONDS)
        return False

    def _is_stopped(self) -> bool:
        stat = Path(f"/proc/{self._process.pid}/stat").read_text()
        return stat.rsplit(")", 1)[1].split()[0] == "T"


def count_lines(end: End, beginning: str) -> int:
    return sum(line.text.startswith(beginning) for line in end.lines)


# A name has no file for a moment while the rotations move up.
XZ_CAME_UPON_A_GAP = "Unable to 'xz -fk "


def judge_log_of_long_life(end: End) -> list[str]:
    unexpected = [line.text for line in end.lines if line.severity <= log_socket.WARNING
                  and not line.text.startswith((judge.SYSLOGD_STOPPED, judge.NO_LIVE_LOG,
                                                 XZ_CAME_UPON_A_GAP))]
    return [f"it logged '{text}'" for text in unexpected[:10]]


def judge_tail(written: int) -> list[str]:
    """The size limit takes the oldest lines; all behind them are there."""
    files = [file.read() for file in numbered.log_files()]
    problems = judge.judge_by_xz([file.path for file in files if file.place == "archive"])
    lost = numbered.judge(written, files).lost
    if lost != list(range(1, len(lost) + 1)):
        problems.append(f"lines {', '.join(numbered.ranges(lost))} are lost")
    return problems


# -- A chain of boots.

BOOTS_BEFORE, STARTS = 990, 30


def boot_chain(laboratory: Laboratory, fault: Fault) -> Result:
    """Start after start archives one file, until boot numbers have passed 999."""
    scenes.clean_device(laboratory.syslogd)
    ARCHIVE.mkdir(parents=True)
    on = scenes.Contents()
    for boot in range(1, BOOTS_BEFORE + 1):
        on.archived(boot, lines=1)
    problems = []
    boots = []
    for _ in range(STARTS):
        on.log("messages.txt.0")
        before = {path.name for path in ARCHIVE.iterdir()}
        end = laboratory.runner.run(DAEMON)
        made = {path.name for path in ARCHIVE.iterdir()} - before
        newest = max(made)
        boots.append(int(newest.split(".")[1]))
        problems += judge.judge_clean_end(end)
        problems += judge.judge_lines(on.sources(may_go=range(1, 101)))
    # At 999 the oldest 100 go, and the rest moves down.
    expected = [*range(BOOTS_BEFORE + 1, 1000), *range(900, 900 + STARTS - 9)]
    if boots != expected:
        problems.append(f"boot numbers {boots}, not {expected}")
    return Result(fault, problems, notes=[f"boot numbers {boots[0]} to {max(boots)}, then "
                                          f"{min(boots)} to {boots[-1]}"], end=end)


@dataclasses.dataclass(frozen=True)
class Endurance:
    name: str
    about: str
    faults: list[Fault]
    make: Callable[[Laboratory, Fault], Result]
    is_long: bool = False


ENDURANCE = {each.name: each for each in (
    Endurance("storm", "stop signals, or one SIGKILL, at random moments",
              [Fault("storm", f"seed#{seed}", kind) for seed in range(1, STORMS + 1)
               for kind in ("signals", "SIGKILL")], storm),
    Endurance("boot-chain", f"{STARTS} starts, past boot number 999",
              [Fault("boot-chain", f"boot#{BOOTS_BEFORE}", "none")], boot_chain),
    Endurance("long-life", f"{CYCLES} cycles in one life",
              [Fault("long-life", f"cycle#{CYCLES}", "none")], long_life, is_long=True),
)}


def is_long(scene: str) -> bool:
    return scene in ENDURANCE and ENDURANCE[scene].is_long
