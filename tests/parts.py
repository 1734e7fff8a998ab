# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Runs the parts of ./test, two at a time, and reports how long each took.

A part that runs the same programs on the same files as when it last passed is left out, and so are the
long ones, unless --all is given. CI starts from a fresh clone.
"""
from __future__ import annotations

import argparse
import dataclasses
import hashlib
import os
import shlex
import signal
import subprocess
import sys
import threading
import time
from pathlib import Path

from tests.harness.paths import ROOT

FOLDER = ROOT / "build/test"  # logs and stamps
SKIPPED = 77  # the exit status of a part that cannot run here
JOBS = os.cpu_count() or 1


@dataclasses.dataclass(frozen=True)
class Part:
    name: str
    about: str
    command: str  # for a shell, in the project's root
    # The folder below tests/ that is this part's own; without one, the part is never left out.
    own: str = ""
    # A part that mostly waits runs beside those that compile.
    waits: bool = False
    # A part that takes minutes and guards the tests rather than the product: runs by name or --all.
    is_long: bool = False


def ctest(preset: str, target: str, *options: str) -> str:
    """Builds a target of a preset and runs its tests, most of which wait."""
    return (f"cmake --preset {preset} >/dev/null && "
            f"cmake --build --preset {preset} --target {target} && "
            f"ctest --preset {preset} --parallel {2 * JOBS} {shlex.join(options)}")


# Each test runs once: under the sanitizers those that bring the C++ code into many states, without
# them those that are about shell scripts, services and other programs.
SANITIZED = ("^(util|logging|futils|logfileutils|rotate|daemon|reader|logpage|"
             "system.(check_cycle|faults|life_cycle|odd_files|start_up)|"
             "command.(formats|input|log|random))")


# To add a part, add a line. They start in this order; the last lines are the ones to wait for.
PARTS = (
    Part("style", "layout, scripts, Python, and what each folder may include", "tests/check-style"),
    Part("device", "the emulated device: boots, limits, power cuts",
         "python3 -m tests.device", own="device", waits=True),
    Part("model", "a search of all states of the model of archiving", "tests/check-model",
         waits=True),
    Part("tests", "the tests of services, scripts and other programs",
         ctest("release-dynamic", "programs", "--exclude-regex", SANITIZED), waits=True),
    Part("sanitizers", "all others, under AddressSanitizer and UndefinedBehaviorSanitizer",
         ctest("asan", "all", "--tests-regex", SANITIZED)),
    Part("faults", "400 faults in the release with shared libraries",
         "python3 -m tests.faults", own="faults", waits=True),
    Part("guards", "breaks one guard of the product at a time; the fault tests have to notice",
         "python3 -m tests.faults.sabotage --short", own="faults", waits=True, is_long=True),
    Part("without-syncs", "power cuts of a daemon without syncs have to lose lines",
         "python3 -m tests.device --without-syncs --cuts 40", own="device", waits=True,
         is_long=True),
    Part("packaging", "man page, installation, Buildroot tree, Debian packages",
         "tests/packaging/run man-page installation buildroot debian", own="packaging"),
    Part("systemd", "the units on a running systemd, where one can be booted",
         "tests/packaging/run systemd", own="packaging"),
    Part("page", "the log page: hostile requests, and a part of the browser's tests",
         "tests/page/run --quick", own="page", waits=True),
    Part("tidy", "clang-tidy on the daemon and its library",
         "cmake --preset tidy >/dev/null && "
         "cmake --build --preset tidy --target vandis-moraine libmoraine.a"),
    Part("tidy-reader", "clang-tidy on the reader, the command and the page, too",
         "cmake --preset tidy >/dev/null && cmake --build --preset tidy", is_long=True),
    Part("bench", "the benchmarks, in their quick form", "./bench --quick", is_long=True),
    Part("fuzz", "each fuzz target for some seconds", "tests/fuzz/run --seconds 3", own="fuzz"),
)


class Inputs:
    """Fingerprints of what a part depends on."""

    def __init__(self) -> None:
        self._files = {}
        for path in sorted(files()):
            content = os.readlink(path).encode() if path.is_symlink() else path.read_bytes()
            self._files[str(path.relative_to(ROOT))] = hashlib.sha256(content).hexdigest()
        # The programs that are run: those of packages, and the kernel.
        packages = subprocess.run(["dpkg-query", "--show"], stdout=subprocess.PIPE).stdout \
            if os.path.exists("/usr/bin/dpkg-query") else b""
        self._machine = hashlib.sha256(packages + " ".join(os.uname()).encode()).hexdigest()

    def fingerprint(self, part: Part) -> str:
        """Of every file but texts and other parts' tests."""
        tests = (f"tests/{part.own}/", "tests/harness/", "tests/CMakeLists.txt")
        lines = [f"{name} {digest}" for name, digest in self._files.items()
                 if not name.endswith(".md")
                 and (not name.startswith("tests/") or name.startswith(tests))]
        return hashlib.sha256("\n".join([part.command, self._machine, *lines]).encode()).hexdigest()


def files() -> list[Path]:
    """Of the project, whether there is Git or not."""
    found = []
    for folder, folders, names in os.walk(ROOT):
        if Path(folder) == ROOT:
            folders[:] = [name for name in folders if name not in ("build", ".git")]
        folders[:] = [name for name in folders if name != "__pycache__"]
        found += [Path(folder, name) for name in names]
    return found


@dataclasses.dataclass
class Result:
    verdict: str
    seconds: float
    processor: float  # seconds, of all its processes that were waited for


class Run:
    def __init__(self, parts: list[Part]) -> None:
        self._parts = parts
        self._printing = threading.Lock()
        self._running: set[subprocess.Popen[bytes]] = set()
        self._is_stopped = False
        self.results: dict[str, Result] = {}

    def run(self) -> bool:
        """Returns whether all passed."""
        lanes = [threading.Thread(target=self._run_all, args=([
            part for part in self._parts if part.waits == waits],)) for waits in (False, True)]
        for lane in lanes:
            lane.start()
        try:
            for lane in lanes:
                lane.join()
        except KeyboardInterrupt:
            self._stop()
            for lane in lanes:
                lane.join()
            raise
        return all(result.verdict != "FAILED" for result in self.results.values())

    def _run_all(self, parts: list[Part]) -> None:
        for part in parts:
            if not self._is_stopped:
                self._run(part)

    def _stop(self) -> None:
        self._is_stopped = True
        for process in list(self._running):
            os.killpg(process.pid, signal.SIGTERM)

    def _run(self, part: Part) -> None:
        stamp(part).unlink(missing_ok=True)
        fingerprint = Inputs().fingerprint(part)
        start = time.monotonic()
        self._say(f"{part.name}: started")
        log = FOLDER / f"{part.name}.log"
        with log.open("wb") as output:
            # In a session of its own: Ctrl-C is for this program, which then ends the parts.
            process = subprocess.Popen(part.command, shell=True, cwd=ROOT, start_new_session=True,
                                       stdin=subprocess.DEVNULL, stdout=output,
                                       stderr=subprocess.STDOUT)
        self._running.add(process)
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        self._running.discard(process)
        verdict = {0: "passed", SKIPPED: "skipped"}.get(process.returncode, "FAILED")
        self.results[part.name] = Result(verdict, time.monotonic() - start,
                                         usage.ru_utime + usage.ru_stime)
        # What changed while it ran has not been tested.
        if verdict == "passed" and part.own and Inputs().fingerprint(part) == fingerprint:
            stamp(part).write_text(fingerprint)
        text = "" if verdict == "passed" else log.read_text(errors="replace")
        self._say(f"{text}{part.name}: {verdict}, {self.results[part.name].seconds:.0f} s")

    def _say(self, text: str) -> None:
        with self._printing:
            print(text, flush=True)


def stamp(part: Part) -> Path:
    return FOLDER / f"{part.name}.passed"


def is_unchanged(part: Part, inputs: Inputs) -> bool:
    return bool(part.own) and stamp(part).exists() \
        and stamp(part).read_text() == inputs.fingerprint(part)


def main() -> int:
    parser = argparse.ArgumentParser(prog="./test", description=__doc__)
    parser.add_argument("--all", action="store_true", help="leave nothing out")
    parser.add_argument("--only", action="append", default=[], metavar="PART",
                        choices=[part.name for part in PARTS], help="run this part (repeatable)")
    parser.add_argument("--list", action="store_true", help="list the parts and run none")
    arguments = parser.parse_args()
    FOLDER.mkdir(parents=True, exist_ok=True)

    inputs = Inputs()
    chosen, left_out = [], []
    for part in PARTS:
        if arguments.only and part.name not in arguments.only:
            continue
        reason = ""
        if not (arguments.all or arguments.only):
            if part.is_long:
                reason = "takes long"
            elif is_unchanged(part, inputs):
                reason = "nothing has changed since it passed"
        if reason:
            left_out.append((part, reason))
        else:
            chosen.append(part)
    for part in chosen:
        print(f"  {part.name:14} {part.about}")
    for part, reason in left_out:
        print(f"  {part.name:14} (left out: {reason}; see --all)")
    if arguments.list:
        return 0

    print(f"Logs: {FOLDER.relative_to(ROOT)}/", flush=True)
    start = time.monotonic()
    run = Run(chosen)
    signal.signal(signal.SIGTERM, signal.default_int_handler)
    try:
        passed = run.run()
    except KeyboardInterrupt:
        return 130
    print(f"\n  {'':14} elapsed  processor")
    for part in chosen:
        result = run.results[part.name]
        print(f"  {part.name:14} {result.seconds:5.0f} s {result.processor:7.0f} s  "
              f"{result.verdict}")
    processor = sum(result.processor for result in run.results.values())
    print(f"  {'all':14} {time.monotonic() - start:5.0f} s {processor:7.0f} s")
    verdicts = [result.verdict for result in run.results.values()]
    print(f"{verdicts.count('passed')} passed, {verdicts.count('FAILED')} failed, "
          f"{verdicts.count('skipped')} skipped")
    return 0 if passed else 1


if __name__ == "__main__":
    sys.exit(main())
