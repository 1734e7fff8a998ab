# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Makes faults from outside in the release, one at a time, and checks that nothing is lost. It is the
release with shared libraries (release-dynamic), since what makes allocations fail is preloaded.

Each system call of each scene fails once with each errno that fits it, and kills the daemon once;
each allocation fails once; each stop signal arrives at each call. After each fault the daemon is
started twice more, and a judge looks at what is left. docs/fault-injection.md lists what it checks.

Without options: a spread of the faults, in under two minutes.
"""
from __future__ import annotations

import argparse
import concurrent.futures
import dataclasses
import json
import os
import queue
import random
import shutil
import signal
import subprocess
import sys
from pathlib import Path
from typing import Any

from tests.faults.endurance import ENDURANCE, is_long
from tests.faults.inject import Fault
from tests.faults.scenes import SCENES
from tests.harness import sandbox
from tests.harness.paths import ROOT
from tests.harness.progress import Progress

ALL_SCENES = {**SCENES, **ENDURANCE}

HERE = Path(__file__).resolve().parent
PRESET = "release-dynamic"
SPREAD = 400
TARGETS = ("vandis-moraine", "sandbox", "faults-preload", "faults-download")


class Worker:
    """A sandbox, and the process in it that makes faults."""

    def __init__(self, build: Path) -> None:
        placed = {
            "/opt/faults/preload.so": build / "tests/faults/faults-preload.so",
            "/opt/faults/download": build / "tests/faults/faults-download",
            "/etc/init.d/S01syslogd-moraine": HERE / "stand-ins/S01syslogd-moraine",
        }
        command = sandbox.command(build, sandbox.python("tests.faults.worker"), placed=placed)
        # In a session of its own: Ctrl-C is for this program, which then ends the workers.
        self._process = subprocess.Popen(
            command, cwd=ROOT, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
            start_new_session=True)

    def ask(self, **request: Any) -> Any:
        assert self._process.stdin is not None and self._process.stdout is not None
        try:
            self._process.stdin.write(json.dumps(request) + "\n")
            self._process.stdin.flush()
            return json.loads(self._process.stdout.readline())
        except (BrokenPipeError, json.JSONDecodeError):
            sys.exit(f"python3 -m tests.faults: a worker has ended at {request}; see above for why")

    def end(self) -> None:
        self._process.kill()  # the sandbox ends with it
        self._process.wait()


class Workers:
    """Some workers, each of which does one thing at a time."""

    def __init__(self, count: int, build: Path) -> None:
        self._all = [Worker(build) for _ in range(count)]
        self._idle: queue.SimpleQueue[Worker] = queue.SimpleQueue()
        for worker in self._all:
            self._idle.put(worker)
        self._pool = concurrent.futures.ThreadPoolExecutor(count)

    def ask(self, **request: Any) -> concurrent.futures.Future[Any]:
        def ask() -> Any:
            worker = self._idle.get()
            try:
                return worker.ask(**request)
            finally:
                self._idle.put(worker)
        return self._pool.submit(ask)

    def end(self) -> None:
        for worker in self._all:
            worker.end()
        self._pool.shutdown(wait=False, cancel_futures=True)


@dataclasses.dataclass
class Tally:
    """Of one scene."""

    errors: int = 0
    kills: int = 0
    signals: int = 0
    memory: int = 0
    not_reached: int = 0
    failed: int = 0

    def count(self, fault: Fault, answer: dict[str, Any]) -> None:
        if fault.place.startswith("malloc#"):
            self.memory += 1
        elif fault.kind == "SIGKILL":
            self.kills += 1
        elif fault.kind.lower().startswith("sig"):
            self.signals += 1
        else:
            self.errors += 1
        self.not_reached += not answer["reached"]
        self.failed += bool(answer["problems"])


def make_all(workers: Workers, faults: list[Fault], to_first_failure: bool) -> int:
    """Returns how many failed or were not reached."""
    tallies = {fault.scene: Tally() for fault in faults}
    progress = Progress()
    failed = 0
    asked = {workers.ask(fault=dataclasses.astuple(fault)): fault for fault in faults}
    for done, future in enumerate(concurrent.futures.as_completed(asked), 1):
        fault, answer = asked[future], future.result()
        tallies[fault.scene].count(fault, answer)
        for note in answer["notes"]:
            progress.line(f"{fault.scene}: {note}")
        if not answer["reached"]:
            progress.line(f"NOT REACHED: {fault}")
        if answer["problems"]:
            failed += 1
            progress.clear()
            print_failure(fault, answer)
            if to_first_failure:
                return failed
        progress.status(f"{done} of {len(faults)} faults, {failed} failed, {progress.seconds:.0f} s")
    progress.clear()
    print_table(tallies)
    print(f"{len(faults)} faults in {len(tallies)} scenes, {failed} failures of the judge, "
          f"{progress.seconds:.0f} s")
    return failed + sum(tally.not_reached for tally in tallies.values())


def print_failure(fault: Fault, answer: dict[str, Any]) -> None:
    print(f"FAILED {ALL_SCENES[fault.scene].about}: {fault.place} {fault.kind}")
    for problem in answer["problems"]:
        print(f"  {problem}")
    print(f"  to repeat it: python3 -m tests.faults {fault}", flush=True)


def print_table(tallies: dict[str, Tally]) -> None:
    names = [field.name for field in dataclasses.fields(Tally)]
    titles = [name.replace("_", " ") for name in names]
    print(f"\n{'scene':14}" + "".join(f"{title:>13}" for title in titles))
    for scene, tally in tallies.items():
        print(f"{scene:14}" + "".join(f"{getattr(tally, name):13}" for name in names))
    totals = (sum(getattr(tally, name) for tally in tallies.values()) for name in names)
    print(f"{'all':14}" + "".join(f"{total:13}" for total in totals) + "\n")


def repeat(workers: Workers, fault: Fault) -> int:
    """Makes one fault and shows all that is known of it."""
    answer = workers.ask(fault=dataclasses.astuple(fault), verbose=True).result()
    for title, lines in (("System calls", answer["calls"]), ("Log", answer["lines"]),
                         ("Output", answer["output"].splitlines())):
        if lines:
            print(f"{title}:", *(f"  {line}" for line in lines), sep="\n")
    print(*answer["notes"], sep="\n", end="\n" if answer["notes"] else "")
    print(f"Status: {answer['status']}" + (" (signal)" if answer["status"] < 0 else ""))
    if not answer["reached"]:
        print(f"There is no {fault.place} in this scene (see --list).")
    elif answer["problems"]:
        print_failure(fault, answer)
    else:
        print("The judge has nothing to say against it.")
    return bool(answer["problems"] or not answer["reached"])


def list_calls(workers: Workers, scene: str) -> None:
    for key, text in workers.ask(calls=scene).result():
        print(f"{key:20} {text}")


def list_scenes() -> None:
    for scene in ALL_SCENES.values():
        print(f"{scene.name:14} {scene.about}")


def choose_faults(workers: Workers, arguments: argparse.Namespace) -> list[Fault]:
    # The long ones first, so that the others run beside them.
    scenes = arguments.scene or sorted(ALL_SCENES, key=lambda name: not is_long(name))
    answers = [workers.ask(faults=scene) for scene in scenes]
    faults = [Fault(*fields) for answer in answers for fields in answer.result()]
    if arguments.full or arguments.scene:
        return faults
    faults = [fault for fault in faults if not is_long(fault.scene)]
    chosen = set(random.Random(arguments.seed).sample(faults, min(SPREAD, len(faults))))
    return [fault for fault in faults if fault in chosen]


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="python3 -m tests.faults", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--full", action="store_true", help="make all faults")
    parser.add_argument("--scene", action="append", choices=list(ALL_SCENES), metavar="NAME",
                        help="make all faults of this scene (may be given again)")
    parser.add_argument("--call", metavar="CALL",
                        help="make one fault, at this call: 'fsync#2' is the second fsync of the "
                             "process, 'malloc#17' its 17th allocation (with --scene, --fault)")
    parser.add_argument("--fault", metavar="KIND",
                        help="an errno (with + behind it: from that call on), SIGKILL, or a stop "
                             "signal")
    parser.add_argument("--list", action="store_true",
                        help="list the scenes, or the calls of the given one")
    parser.add_argument("--first-failure", action="store_true", help="end at the first failure")
    parser.add_argument("--seed", type=int, default=1, help="of the spread (1)")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="sandboxes at once")
    parser.add_argument("--build", type=Path,
                        help="use what is built in this folder (build/release-dynamic, built first)")
    arguments = parser.parse_args()
    if bool(arguments.call) != bool(arguments.fault):
        parser.error("--call and --fault go together")
    scenes = arguments.scene or []
    if arguments.call and len(scenes) != 1 or arguments.list and len(scenes) > 1:
        parser.error("--call and --list take one --scene")
    if arguments.list and scenes and scenes[0] in ENDURANCE:
        parser.error(f"--list takes a scene with calls, not {scenes[0]}")
    return arguments


def built(folder: Path | None) -> Path:
    """The folder with the daemon in it; builds it if none is given."""
    if folder is not None:
        return folder.resolve()
    print(f"Building {PRESET} ...", flush=True)
    for command in (["rig/build-busybox"], ["cmake", "--preset", PRESET],
                    ["cmake", "--build", "--preset", PRESET, "--target", *TARGETS]):
        done = subprocess.run(command, cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              text=True)
        if done.returncode != 0:
            sys.exit(f"{done.stdout}python3 -m tests.faults: '{' '.join(command)}' failed")
    return ROOT / "build" / PRESET


def main() -> int:
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(128 + signal.SIGTERM))
    arguments = parse_arguments()
    if arguments.list and not arguments.scene:
        list_scenes()
        return 0
    if shutil.which("strace") is None:
        sys.exit("python3 -m tests.faults: there is no strace; rig/install-packages test installs it")
    is_single = arguments.call or arguments.list
    workers = Workers(1 if is_single else arguments.jobs, built(arguments.build))
    try:
        if arguments.list:
            list_calls(workers, arguments.scene[0])
            return 0
        if arguments.call:
            return repeat(workers, Fault(arguments.scene[0], arguments.call, arguments.fault))
        faults = choose_faults(workers, arguments)
        return 1 if make_all(workers, faults, arguments.first_failure) else 0
    finally:
        workers.end()


if __name__ == "__main__":
    sys.exit(main())
