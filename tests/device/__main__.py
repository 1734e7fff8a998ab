# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""The device tests. See --help."""
from __future__ import annotations

import argparse
import concurrent.futures
import dataclasses
import os
import random
import shutil
import subprocess
import sys
import tempfile
import time
from pathlib import Path
from typing import Callable, Union

from rig.emulator import image as images
from rig.emulator.packages import FetchError
from rig.emulator.product import BuildError
from tests.device import boots, cuts, faults, fixture, limits, unit, without_syncs
from tests.device.tally import Tally
from tests.harness.paths import ROOT

DESCRIPTION = """\
Tests the product on the emulated device (see ./device): boots and shutdowns with log traffic,
archives at their limits, power cuts, and disks that are full, read-only or missing. Several devices
run at a time; most of that time they wait, as the daemon does.

Without options this takes about two minutes, and some more on the first call, which fetches and
builds the device. The status is 0 only if nothing was lost."""


@dataclasses.dataclass
class Case:
    name: str
    run: Callable[[fixture.Fixture], Union[str, Tally]]


def chain(count: int) -> Case:
    return Case(f"{count} power cuts", lambda given: cuts.Chain(given, count).run())


def cut_cases(count: int, per_chain: int) -> list[Case]:
    """Three of four cuts around the archiving of rotations, the others at the archive's limits."""
    at_limits = count // 4
    works = limits.works()
    cases = [chain(min(per_chain, count - at_limits - done))
             for done in range(0, count - at_limits, per_chain)]
    for number in range(at_limits):
        work = works[number % len(works)]
        cases.append(Case(f"power cut, {work.name}",
                          lambda given, work=work: limits.Interruption(given, work).run()))
    return cases


def plain_cases() -> list[Case]:
    return [
        Case("past the last boot number", boots.past_the_last_boot_number),
        Case("past 1 GiB", boots.past_the_size_limit),
        Case("full disk", faults.full_disk),
        Case("read-only disk", faults.read_only_in_flight),
        Case("missing disk", faults.missing_disk),
    ]


@dataclasses.dataclass
class Runner:
    image: images.Image
    folder: Path
    seed: int
    ends_with_loss: bool = False  # No case starts any more once a line is lost.
    failed: list[str] = dataclasses.field(default_factory=list)
    tally: Tally = dataclasses.field(default_factory=Tally)

    def run(self, cases: list[Case], jobs: int) -> None:
        with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
            try:
                for _ in pool.map(self._run_case, range(len(cases)), cases):
                    pass
            except KeyboardInterrupt:  # The devices got it, too.
                pool.shutdown(wait=False, cancel_futures=True)
                raise

    def _run_case(self, number: int, case: Case) -> None:
        if self.ends_with_loss and self.tally.lost:
            return
        folder = Path(tempfile.mkdtemp(dir=self.folder))
        given = fixture.Fixture(self.image, folder, random.Random(f"{self.seed} {number}"))
        start = time.monotonic()
        try:
            result = case.run(given)
        except Exception as error:  # Whatever it is, it ends this case and no other.
            self.failed.append(case.name)
            self._report("FAIL", case, start, f"{error!s} (its disk: {given.disk})")
            return
        if isinstance(result, Tally):
            self.tally.add(result)
            text = "; ".join(result.notes) or f"{result.synced} lines synced, none lost"
            self._report("FAIL" if result.flaws else "ok", case, start, text)
        else:
            self._report("ok", case, start, result)
        shutil.rmtree(folder)

    @staticmethod
    def _report(verdict: str, case: Case, start: float, text: str) -> None:
        print(f"{verdict:5}{case.name:36}{time.monotonic() - start:5.0f} s  {text}", flush=True)


def parse() -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        prog="python3 -m tests.device", description=DESCRIPTION,
        formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--full", action="store_true",
                        help="200 power cuts, more boots, and the unit tests on the device "
                        "(an hour or more)")
    parser.add_argument("--cuts", metavar="N", type=int,
                        help="number of power cuts (4, with --full 200)")
    parser.add_argument("--only", metavar="WORD", help="only cases whose names have this word")
    parser.add_argument("--seed", metavar="N", type=int, default=random.randrange(10000),
                        help="repeats the random choices of an earlier run")
    parser.add_argument("--jobs", metavar="N", type=int, default=3 * (os.cpu_count() or 1),
                        help="devices at a time (three for each processor)")
    parser.add_argument("--without-syncs", action="store_true",
                        help="power cuts alone, with a daemon that does not wait for the disk, "
                        "until one has lost lines: the status is 0 if one has")
    return parser.parse_args()


def cases_of(options: argparse.Namespace) -> list[Case]:
    count = options.cuts if options.cuts is not None else 200 if options.full else 4
    if options.without_syncs:
        return [chain(1) for _ in range(count)]
    cases = plain_cases() + cut_cases(count, per_chain=8 if options.full else 2)
    if options.full:
        cases = [Case("unit tests", unit.run), Case("clean boots", boots.clean_boots), *cases]
    return [case for case in cases if not options.only or options.only in case.name]


def verdict(runner: Runner, options: argparse.Namespace) -> int:
    if runner.tally.cuts:
        print(f"\n{runner.tally}")
    if runner.failed:
        print(f"\nFailed: {', '.join(runner.failed)}. To repeat: --seed {runner.seed}")
        return 1
    if options.without_syncs:
        print("\nAs it must be: without the syncs, lines are lost." if runner.tally.lost else
              "\nNo line was lost: these cuts would not notice that the syncs are missing.")
        return 0 if runner.tally.lost else 1
    if runner.tally.moments[cuts.UNAIMED] * 4 > runner.tally.cuts:
        print(f"\nToo many cuts were not aimed. To repeat: --seed {runner.seed}")
        return 1
    if runner.tally.flaws:
        print(f"\nPower cuts did harm. To repeat: --seed {runner.seed}")
        return 1
    print("\nNothing was lost.")
    return 0


def main() -> int:
    options = parse()
    cases = cases_of(options)
    if not cases:
        sys.exit(f"python3 -m tests.device: no case has the word {options.only!r} in its name")
    subprocess.run([str(ROOT / "rig/install-packages"), "device"], check=True)
    image = without_syncs.make_image() if options.without_syncs else images.make()
    folder = images.FOLDER / "tests"
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir()
    print(f"Device tests, seed {options.seed}, {options.jobs} devices at a time")
    runner = Runner(image, folder, options.seed, ends_with_loss=options.without_syncs)
    runner.run(cases, options.jobs)
    return verdict(runner, options)


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit("python3 -m tests.device: interrupted")
    except (FetchError, BuildError) as error:
        sys.exit(f"python3 -m tests.device: {error}")
    except subprocess.CalledProcessError as error:  # The command has said why.
        sys.exit(error.returncode)
