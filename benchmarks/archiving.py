# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Archiving one rotation: the daemon, from the stop signal that begins its last cycle to its line
that the file is archived; bare `xz -fk`, with the same syncs on a disk; and logrotate with xz."""
from __future__ import annotations

import os
import shutil
import signal
import time
from pathlib import Path

from benchmarks.measure import (Cost, Row, Titled, in_turns, processor_seconds, run_process,
                                run_tool)
from benchmarks.scenery import use_disk, write_log_text
from tests.harness.log_socket import LogSocket
from tests.harness.paths import ARCHIVE, DAEMON, LIVE_LOG, SYSLOG

ROTATION = LIVE_LOG.with_suffix(".txt.0")
KIB, MIB = 1 << 10, 1 << 20
SETTLE_SECONDS = 0.05  # before each work, so that all begin on an idle processor

# The same job: the live log goes, compressed, into the archive.
LOGROTATE_SETTINGS = f"""{LIVE_LOG} {{
    rotate 1000
    olddir {ARCHIVE}
    compress
    compresscmd /usr/bin/xz
    compressext .xz
    nocreate
}}
"""


def arrival(log: LogSocket, text: str) -> float:
    """Waits for a line with `text`. Returns the time of its arrival."""
    ends = ("exiting with code", "will now exit")
    entry = log.wait_for_entry(lambda entry: entry.line is not None and any(
        wanted in entry.line.text for wanted in (text, *ends)), timeout=600)
    if entry is None or entry.line is None or text not in entry.line.text:
        raise RuntimeError(f"no line '{text}', but {entry}")
    return entry.time


class Place:
    """The folders of the log, with one text to be archived in them again and again."""

    def __init__(self, text: Path, floor: str) -> None:
        self._text = text
        self._floor = floor
        self._logrotate_settings = Path("/tmp/logrotate.conf")
        self._logrotate_settings.write_text(LOGROTATE_SETTINGS)

    def _put(self, path: Path) -> None:
        shutil.rmtree(SYSLOG, ignore_errors=True)
        ARCHIVE.mkdir(parents=True)
        shutil.copyfile(self._text, path)
        os.sync()  # or the first to sync would pay for the writing of the copy
        time.sleep(SETTLE_SECONDS)

    def by_xz(self) -> Cost:
        self._put(ROTATION)
        return run_tool("floor", self._floor, str(ROTATION))

    def by_logrotate(self) -> Cost:
        self._put(LIVE_LOG)
        cost = run_process("/usr/sbin/logrotate", "--force", "--state", "/tmp/logrotate.state",
                           str(self._logrotate_settings))
        self._check()
        return cost

    def by_daemon(self) -> Cost:
        self._put(ROTATION)
        log = LogSocket()
        pid = os.posix_spawn(DAEMON, ["vandis-moraine"], os.environ)
        try:
            arrival(log, "running.")
            time.sleep(SETTLE_SECONDS)  # it sleeps now
            start = time.perf_counter()
            os.kill(pid, signal.SIGTERM)
            seconds = arrival(log, "Archived") - start
        finally:
            _, _, usage = os.wait4(pid, 0)
            log.close()
        self._check()
        return Cost(seconds, processor_seconds(usage))

    @staticmethod
    def _check() -> None:
        if not any(ARCHIVE.glob("*.xz")):
            raise RuntimeError("nothing was archived")


def label(size: int) -> str:
    return f"{size // MIB} MiB" if size >= MIB else f"{size // KIB} KiB"


def measure_size(size: int, rounds: int, where: str, floor: str) -> list[Row]:
    progress = Titled(f"archiving {label(size)}, {where}")
    progress.say("writing log text")
    text = Path("/tmp/text")
    write_log_text(text, size)
    place = Place(text, floor)
    works = {"daemon": place.by_daemon, "xz": place.by_xz, "logrotate": place.by_logrotate}
    costs = in_turns(rounds, works, progress.say)
    progress.clear()

    seconds = {name: [cost.seconds for cost in costs[name]] for name in works}
    processor = {name: [cost.processor_seconds for cost in costs[name]] for name in works}
    peer = "xz -fk" if floor == "compress" else "xz -fk, fsync"
    name = f"{label(size)}, {where}"
    comparison, goal = ("difference", 0.003) if size < MIB else ("ratio", 1.02)
    # Nothing waits on a tmpfs: the processor's time is all that there is, and no neighbour disturbs
    # it. A disk is waited for.
    waits = floor == "keep"
    # Of a large file all but a thousandth is xz in either case: noise would decide.
    logrotate_goal = 1.0 if size < MIB else None
    return [
        Row("archiving", f"{name}: elapsed", "s", seconds["daemon"], peer, seconds["xz"],
            comparison, goal if waits else None),
        Row("archiving", f"{name}: processor", "s", processor["daemon"], peer, processor["xz"],
            comparison, None if waits else goal),
        Row("archiving", f"{name}: processor", "s", processor["daemon"], "logrotate",
            processor["logrotate"], "ratio", logrotate_goal),
    ]


def measure(quick: bool, disk: Path | None) -> dict:
    where, floor = "tmpfs", "compress"
    rounds = {KIB: 30, 200 * KIB: 40, 10 * MIB: 9, 64 * MIB: 3}
    if quick:
        rounds = {KIB: 7, 200 * KIB: 7, 10 * MIB: 1}
    if disk:
        where, floor = use_disk(disk), "keep"
        rounds = {200 * KIB: 40, 10 * MIB: 5, 64 * MIB: 3}
    rows = [row for size, count in rounds.items()
            for row in measure_size(size, count, where, floor)]
    return {"rows": rows}
