# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""What the daemon costs while nothing happens, beside three programs that keep logs, too: svlogd,
s6-log and BusyBox syslogd. Each has done a piece of its work before it is looked at."""
from __future__ import annotations

import os
import re
import signal
import subprocess
import time
from pathlib import Path

from benchmarks.measure import Row, Titled, run_tool
from tests.harness import services
from tests.harness.paths import ARCHIVE, DAEMON, LIVE_LOG, SYSLOG
from tests.harness.waiting import wait_until

CYCLE_SECONDS = 10
TRACED_CYCLES = 50
FAST_SLEEP = "/usr/sbin/libfast_sleep.so"  # shortens the sleep of a daemon that it is preloaded to


class Idler:
    """A process that waits, and its figures from /proc."""

    def __init__(self, name: str, pid: int) -> None:
        self.name = name
        self._process = Path(f"/proc/{pid}")

    def _field(self, file: str, field: str) -> int:
        found = re.search(rf"^{field}:\s+(\d+)", (self._process / file).read_text(), re.M)
        if not found:
            raise RuntimeError(f"{self._process / file} has no {field}")
        return int(found.group(1))

    def state(self) -> dict[str, float]:
        return {"resident_kib": self._field("smaps_rollup", "Rss"),
                "anonymous_kib": self._field("smaps_rollup", "Anonymous"),
                "descriptors": len(os.listdir(self._process / "fd"))}

    def clocks(self) -> dict[str, float]:
        run_ns = int((self._process / "schedstat").read_text().split()[0])
        return {"wake_ups": self._field("status", "voluntary_ctxt_switches"),
                "processor_us": run_ns / 1000}

    def page_faults(self) -> int:
        """How many pages it has touched for the first time."""
        return int((self._process / "stat").read_text().rpartition(")")[2].split()[7])


class LogKeeper:
    """svlogd or s6-log, fed through a pipe."""

    def __init__(self, name: str, *command: str) -> None:
        Path(command[-1]).mkdir()
        self._process = subprocess.Popen(command, stdin=subprocess.PIPE)
        assert self._process.stdin
        self._process.stdin.write(b"a line\n")
        self._process.stdin.flush()
        self.idler = Idler(name, self._process.pid)

    def end(self) -> None:
        self._process.communicate()


def watch(own_name: str, with_peers: bool, window: int) -> tuple[dict[str, dict], int]:
    """What each idler is and spends in `window` seconds, ours first, and the pages that ours
    touched until it was up."""
    progress = Titled(f"idle, {own_name}")
    keepers = [LogKeeper("svlogd", "svlogd", "/tmp/svlogd"),
               LogKeeper("s6-log", "s6-log", "t", "/tmp/s6-log")] if with_peers else []
    LIVE_LOG.with_suffix(".txt.0").write_text("a line\n" * 1000)
    daemon = subprocess.Popen([DAEMON])
    ours = Idler(own_name, daemon.pid)
    progress.say("start-up and one file to archive")
    time.sleep(2)
    page_faults = ours.page_faults()
    if not wait_until(lambda: any(ARCHIVE.glob("*.xz")), 60):
        raise RuntimeError("the daemon archives nothing")
    time.sleep(2)

    idlers = [ours]
    if with_peers:
        pid = services.syslogd.pid
        assert pid
        idlers += [*(keeper.idler for keeper in keepers), Idler("BusyBox syslogd", pid)]
    before = {idler.name: idler.clocks() for idler in idlers}
    progress.say(f"{window} s of nothing")
    time.sleep(window)
    figures = {}
    for idler in idlers:
        spent = {name: value - before[idler.name][name] for name, value in idler.clocks().items()}
        figures[idler.name] = {**idler.state(), **spent}
    progress.clear()

    daemon.terminate()
    daemon.wait()
    for keeper in keepers:
        keeper.end()
    return figures, page_faults


def shortened_cycles(own_name: str) -> Row:
    """The processor time of 1,000 cycles, each with its wake-up, of the daemon with sleeps of a
    millisecond."""
    progress = Titled(f"idle, {own_name}, shortened sleeps")
    daemon = subprocess.Popen([DAEMON], env={**os.environ, "LD_PRELOAD": FAST_SLEEP,
                                             "SLEEP_US": "1000"})
    ours = Idler(own_name, daemon.pid)
    time.sleep(1)
    samples = []
    for number in range(5):
        progress.say(f"round {number + 1} of 5")
        before = ours.clocks()
        time.sleep(1)
        after = ours.clocks()
        cycles = after["wake_ups"] - before["wake_ups"]
        if cycles < 100:
            raise RuntimeError(f"{FAST_SLEEP} shortens no sleep")
        samples.append((after["processor_us"] - before["processor_us"]) / cycles * 1000 / 1e6)
    daemon.terminate()
    daemon.wait()
    progress.clear()
    return Row("idle", f"{own_name}: processor time of 1,000 cycles", "s", samples)


def trace_cycles() -> list[list[str]]:
    """The names of the system calls of check cycles, by cycle, of the daemon as it is installed:
    strace lets its sleeps return at once."""
    trace = Path("/tmp/trace")
    tracer = subprocess.Popen(
        ["strace", "-qq", "-o", trace, "-e",
         f"inject=clock_nanosleep:retval=0:when=1..{TRACED_CYCLES + 1}", DAEMON])

    def names() -> list[str]:
        return re.findall(r"^(\w+)\(", trace.read_text() if trace.exists() else "", re.M)

    if not wait_until(lambda: names().count("clock_nanosleep") > TRACED_CYCLES + 1, 60):
        raise RuntimeError("the daemon does not cycle under strace")
    children = Path(f"/proc/{tracer.pid}/task/{tracer.pid}/children").read_text()
    os.kill(int(children), signal.SIGTERM)
    tracer.wait()

    calls = names()
    sleeps = [place for place, name in enumerate(calls) if name == "clock_nanosleep"]
    # Behind the first cycle, which builds what all others use.
    sleeps = sleeps[1:TRACED_CYCLES + 1]
    return [calls[begin:end] for begin, end in zip(sleeps, sleeps[1:])]


def count_cycle() -> tuple[list[Row], list[str]]:
    """Counts, and the system calls of a cycle."""
    progress = Titled("idle, the check cycle")
    progress.say("system calls")
    cycles = trace_cycles()
    progress.say("processor time and allocations")
    count = 10_000
    costs = [run_tool("engine", "cycles", str(count)) for _ in range(5)]
    progress.clear()
    for_memory = [sum(name in ("brk", "mmap", "munmap", "mremap") for name in cycle)
                  for cycle in cycles]
    rows = [
        Row("idle", "system calls a cycle", "", [len(cycle) for cycle in cycles], goal=9),
        Row("idle", "of these, for memory", "", for_memory, goal=0),
        Row("idle", "allocations a cycle", "", [
            cost.allocations / count for cost in costs]),
        Row("idle", "processor time of 1,000 cycles without the sleep", "s", [
            cost.processor_seconds * 1000 / count for cost in costs]),
    ]
    return rows, cycles[-1]


def measure(quick: bool, own_name: str, with_peers: bool, with_cycle: bool) -> dict:
    """`with_cycle`: the cost of a single cycle, too: its calls where peers are beside it, else its
    time with a shortened sleep."""
    SYSLOG.mkdir(parents=True)
    services.syslogd.start()
    window = CYCLE_SECONDS * (1 if quick else 3)
    figures, page_faults = watch(own_name, with_peers, window)
    result: dict = {"idlers": figures, "window": window}
    rows = [Row("start-up", f"{own_name}: pages touched", "", [page_faults])]
    if with_peers:
        own, *peers = figures.values()
        names = [name for name in figures if name != own_name]
        rows += [Row("idle", f"{own_name}: resident", "KiB", [own["resident_kib"]], name,
                     [peer["resident_kib"]], "ratio", 1.0) for name, peer in zip(names, peers)]
        rows.append(Row("idle", f"{own_name}: anonymous", "KiB", [own["anonymous_kib"]], goal=120))
    if with_cycle and with_peers:
        counts, result["cycle"] = count_cycle()
        rows += counts
    elif with_cycle:
        rows.append(shortened_cycles(own_name))
    services.syslogd.stop()
    return {**result, "rows": rows}
