# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Measures what the daemon costs, beside its peers. See ./bench."""
from __future__ import annotations

import argparse
import dataclasses
import json
import os
import platform
import re
import shutil
import statistics
import subprocess
import sys
from pathlib import Path
from typing import Any, Callable, Mapping

from benchmarks import (archiving, footprint, idle, load, plot, reading, report,
                        scale)
from benchmarks.measure import Row
from tests.harness import sandbox
from tests.harness.paths import DAEMON, ROOT

# What runs in a sandbox of its own, by name.
INSIDE: Mapping[str, Callable[..., dict]] = {
    "archiving": archiving.measure,
    "idle": idle.measure,
    "scale": scale.measure,
    "load": load.measure,
    "flood": load.flood,
    "reading": reading.measure,
}
SECTIONS = ("footprint", "idle", "archiving", "scale", "load", "reading")


@dataclasses.dataclass
class Builds:
    """The folders of the presets."""

    static: Path = ROOT / "build/release"
    dynamic: Path = ROOT / "build/release-dynamic"
    arm_static: Path = ROOT / "build/aarch64"
    arm_dynamic: Path = ROOT / "build/aarch64-dynamic"
    fast_sleep: Path = ROOT / "build/release-dynamic/tests/harness/libfast_sleep.so"


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="./bench", description=__doc__)
    parser.add_argument("sections", nargs="*", metavar="SECTION", help=", ".join(SECTIONS))
    parser.add_argument("--quick", action="store_true", help="small sizes and few rounds")
    parser.add_argument("--output", type=Path, default=ROOT / "build/bench",
                        help="folder for results.json, .txt and .svg")
    parser.add_argument("--only-check-arguments", action="store_true", help=argparse.SUPPRESS)
    parser.add_argument("--inside", help=argparse.SUPPRESS)
    arguments = parser.parse_args()
    unknown = set(arguments.sections) - set(SECTIONS)
    if unknown and not arguments.inside:
        parser.error(f"no such section: {', '.join(unknown)} (there are {', '.join(SECTIONS)})")
    return arguments


class Sandbox:
    """Runs one of `INSIDE` in a sandbox, at once; `result` waits for it."""

    def __init__(self, builds: Builds, work: str, disk: Path | None = None,
                 daemon: Path | None = None, **arguments: Any) -> None:
        if work in ("archiving", "scale"):
            arguments["disk"] = str(disk) if disk else None
        tools = builds.static / "benchmarks"
        placed = {"/usr/sbin/engine": tools / "engine", "/usr/sbin/floor": tools / "floor",
                  "/usr/sbin/logrotate": Path("/usr/sbin/logrotate"),
                  reading.MORAINE: builds.static / "moraine"}
        if daemon:
            placed[DAEMON] = daemon
            placed[idle.FAST_SLEEP] = builds.fast_sleep
        argv = sandbox.python("benchmarks", "--inside", json.dumps([work, arguments]))
        self._process = subprocess.Popen(
            sandbox.command(builds.static, argv, placed=placed,
                            options=[f"--bind-rw={disk}"] if disk else []),
            cwd=ROOT, stdout=subprocess.PIPE, text=True,
            env={**os.environ, "XZ_DEFAULTS": xz_defaults()})
        self._work = work

    def result(self) -> dict:
        output, _ = self._process.communicate()
        if self._process.returncode != 0:
            sys.exit(f"bench: {self._work} failed")
        return json.loads(output)


def xz_defaults() -> str:
    """As the daemon's init script sets them."""
    script = (ROOT / "init/S90vandis-moraine").read_text()
    return re.findall(r'^\s*XZ_DEFAULTS="(.*)"', script, re.M)[0]


def run_inside(order: str) -> None:
    work, arguments = json.loads(order)
    if arguments.get("disk"):
        arguments["disk"] = Path(arguments["disk"])
    result = INSIDE[work](**arguments)
    result["rows"] = [dataclasses.asdict(row) for row in result.get("rows", [])]
    json.dump(result, sys.stdout)


def machine() -> str:
    models = re.findall(r"^model name\s*: (.*)", Path("/proc/cpuinfo").read_text(), re.M)
    return (f"{len(os.sched_getaffinity(0))} x {models[0] if models else platform.machine()}, "
            f"Linux {platform.release()}")


def add_idle(results: dict[str, Any], quick: bool, builds: Builds) -> None:
    """Several starts of the daemon and of its peers, at the same time."""
    starts = 1 if quick else 3
    sandboxes = [Sandbox(builds, "idle", quick=quick, own_name="static", with_peers=True,
                      with_cycle=number == 0) for number in range(starts)]
    sandboxes += [Sandbox(builds, "idle", daemon=builds.dynamic / "vandis-moraine", quick=quick,
                       own_name="dynamic", with_peers=False, with_cycle=number == 0)
                for number in range(starts)]
    rows: dict[tuple[str, str], dict] = {}
    idlers: dict[str, list[dict]] = {}
    for result in [each.result() for each in sandboxes]:
        for row in result.pop("rows"):
            first = rows.setdefault((row["what"], row["peer_name"]), row)
            if first is not row:
                first["ours"] += row["ours"]
                first["peer"] += row["peer"]
        for name, figures in result.pop("idlers").items():
            idlers.setdefault(name, []).append(figures)
        results.update(result)
    results["rows"] += rows.values()
    results["idlers"] = {
        name: {field: statistics.median(figures[field] for figures in samples)
               for field in samples[0]} for name, samples in idlers.items()}


def measure(results: dict[str, Any], sections: list[str], quick: bool, disk: Path,
            builds: Builds) -> None:
    def add(result: dict) -> dict:
        results["rows"] += result.pop("rows")
        return result

    if "footprint" in sections:
        done = footprint.measure([
            (footprint.NATIVE, "dynamic", builds.dynamic / "vandis-moraine"),
            (footprint.NATIVE, "static", builds.static / "vandis-moraine"),
            ("aarch64", "dynamic", builds.arm_dynamic / "vandis-moraine"),
            ("aarch64", "static", builds.arm_static / "vandis-moraine")])
        results["rows"] += [dataclasses.asdict(row) for row in done["rows"]]
        results["footprint"] = done["table"]
    if "idle" in sections:
        add_idle(results, quick, builds)
    for section in ("archiving", "scale"):
        for place in (None, disk):
            if section in sections and not (quick and place):
                add(Sandbox(builds, section, place, quick=quick).result())
    if "load" in sections:
        results["load"] = add(Sandbox(builds, "load", quick=quick).result())["table"]
        if not quick:
            floods = [Sandbox(builds, "flood", factor=factor, duration=130) for factor in (0.9, 2)]
            results["floods"] = [add(each.result()) for each in floods]
    if "reading" in sections:
        add(Sandbox(builds, "reading", quick=quick).result())
        results["rows"] += map(dataclasses.asdict, reading.measure_size(builds.arm_static / "moraine"))


def write(results: dict[str, Any], output: Path) -> bool:
    """Returns whether all counts and sizes meet their goals."""
    rows = [Row(**row) for row in results["rows"]]
    text = report.text(results, rows)
    (output / "results.json").write_text(json.dumps(results, indent=1) + "\n")
    (output / "results.txt").write_text(text)
    (output / "results.svg").write_text(plot.draw(results, rows))
    print(f"\n{text}\nAll samples, and a plot: {output}/results.json, results.svg")
    return all(row.is_timed or row.is_met is not False for row in rows)


def main() -> int:
    arguments = parse_arguments()
    if arguments.only_check_arguments:
        return 0
    if arguments.inside:
        run_inside(arguments.inside)
        return 0

    output = arguments.output.resolve()
    disk = output / "disk"
    shutil.rmtree(disk, ignore_errors=True)
    disk.mkdir(parents=True)
    results: dict[str, Any] = {"machine": machine(), "quick": arguments.quick, "rows": []}
    try:
        measure(results, arguments.sections or list(SECTIONS), arguments.quick, disk, Builds())
    finally:  # What has been measured is not lost with what fails.
        shutil.rmtree(disk)
        is_met = write(results, output)
    return 0 if is_met else 1


if __name__ == "__main__":
    sys.exit(main())
