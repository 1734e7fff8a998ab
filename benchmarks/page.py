# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Measures the log page: what a browser gets, what a request takes, and how the place in the log
matters. Works in a sandbox of its own, on an archive of many small files. See ./bench page.
"""
from __future__ import annotations

import argparse
import functools
import http.client
import json
import lzma
import os
import re
import statistics
import subprocess
import sys
import time
from pathlib import Path
from typing import Callable, Mapping

from rig import page
from tests.harness import sandbox, services
from tests.harness.paths import ARCHIVE, BUSYBOX, ROOT, archive_name

BYTES_GOAL = 40 * 1024
MEMORY_GOAL_KB = 8 * 1024
FILES_PER_BOOT = 100
LINES_PER_FILE = 200
PROGRAM = f"{page.WWW}/cgi-bin/moraine"


def fill_archive(files: int) -> None:
    ARCHIVE.mkdir(parents=True)
    now = time.time() - files
    for number in range(files):
        boot, part = divmod(number, FILES_PER_BOOT)
        stamp = time.strftime("%b %e %H:%M:%S", time.localtime(now + number))
        text = "".join(f"{stamp} device user.info pump[530]: line {number * LINES_PER_FILE + i} pressure {i * 7 % 400} kPa\n"
                       for i in range(LINES_PER_FILE))
        path = ARCHIVE / archive_name(boot + 1, part * 60 + boot % 60)
        path.write_bytes(lzma.compress(text.encode(), preset=0))
        os.utime(path, (now + number,) * 2)


def timed(*command: str, environment: Mapping[str, str] | None = None) -> tuple[bytes, int]:
    """Returns what a command writes, and the most memory that it had resident, as BusyBox says it.

    By `time` of BusyBox, since the memory of a process that Python starts is Python's at first.
    """
    done = subprocess.run([str(BUSYBOX), "time", "-f", "%M", *command], capture_output=True, check=True,
                          env=environment)
    return done.stdout, int(done.stderr.split()[-1])


@functools.cache
def busybox_unit() -> int:
    """How often BusyBox counts a kilobyte: it takes the system's kilobytes for pages."""
    status, said = timed(str(BUSYBOX), "cat", "/proc/self/status")
    return round(said / int(re.search(rb"VmHWM:\s*(\d+) kB", status)[1]))


def run(path: str, query: str) -> tuple[bytes, float, int]:
    """Runs the program as the server does. Returns its output, the seconds and its memory in kB."""
    start = time.perf_counter()
    output, memory = timed(PROGRAM, environment={
        "REQUEST_METHOD": "GET", "PATH_INFO": path, "QUERY_STRING": query})
    return output, time.perf_counter() - start, memory // busybox_unit()


def cursor_at(boot: int) -> str:
    output, _, _ = run("/log", f"boot={boot}&lines=1")
    return json.loads(output.splitlines()[-2])["cursor"]


def median(work: Callable[[], float], rounds: int) -> float:
    return statistics.median(work() for _ in range(rounds))


def rate(port: int, path: str, seconds: float) -> float:
    end = time.perf_counter() + seconds
    count = 0
    while time.perf_counter() < end:
        connection = http.client.HTTPConnection("127.0.0.1", port)
        connection.request("GET", path)
        connection.getresponse().read()
        connection.close()
        count += 1
    return count / seconds


def measure(port: int, files: int, rounds: int) -> dict[str, float]:
    page.settings(port)
    fill_archive(files)
    services.syslogd.start()
    page.page.start()
    middle = cursor_at(files // FILES_PER_BOOT // 2)
    memory = {}
    for name, path, query in (
            ("status", "/status", ""), ("boots", "/boots", ""), ("500 lines", "/log", ""),
            ("10,000 lines", "/log", "lines=10000"), ("10,000 lines from the middle", "/log", f"lines=10000&before={middle}"),
            ("rare expression", "/log", "grep=(line|row)+%20999999[0-9]&count"), ("download of 15 MiB", "/download", "")):
        memory[name] = run(path, query)[2]
    at_end = median(lambda: run("/log", "lines=500&reverse=1")[1], rounds)
    in_middle = median(lambda: run("/log", f"lines=500&reverse=1&before={middle}")[1], rounds)
    boots = median(lambda: run("/boots", "")[1], 3)
    result = {
        f"/boots of {files // FILES_PER_BOOT} boots, ms": boots * 1000,
        "requests per second, status": rate(port, "/cgi-bin/moraine/status", rounds / 5),
        "requests per second, page.css": rate(port, "/page.css", rounds / 5),
        f"500 lines at the end of {files} files, ms": at_end * 1000,
        f"500 lines in the middle of {files} files, ms": in_middle * 1000,
        "middle / end": in_middle / at_end,
        **{f"memory, {name}, kB": value for name, value in memory.items()},
    }
    page.page.stop()
    services.syslogd.stop()
    return result


def main() -> int:
    parser = argparse.ArgumentParser(prog="./bench page", description=__doc__)
    parser.add_argument("--quick", action="store_true", help="2,000 files instead of 20,000")
    parser.add_argument("--build", type=Path, default=ROOT / "build/release")
    parser.add_argument("--port", type=int, default=8515)
    parser.add_argument("--inside", action="store_true", help=argparse.SUPPRESS)
    arguments = parser.parse_args()
    if arguments.inside:
        files, rounds = (2000, 5) if arguments.quick else (20000, 25)
        print(json.dumps(measure(arguments.port, files, rounds)))
        return 0

    build = arguments.build.resolve()
    www = build / "www"
    sizes = [(www / f"{name}.gz").stat().st_size for name in ("index.html", "page.js", "page.css")]
    argv = sandbox.python("benchmarks.page", "--inside", *sys.argv[1:])
    output = subprocess.run(sandbox.command(build, argv, placed=page.files(build, BUSYBOX)), cwd=ROOT,
                            stdout=subprocess.PIPE, text=True, check=True).stdout
    browser = subprocess.run(["node", "benchmarks/first_screen.mjs"], cwd=ROOT, stdout=subprocess.PIPE, text=True,
                             check=True, env={**os.environ, "PAGE_BUILD": str(build)}).stdout
    result = {"bytes to the browser, compressed": sum(sizes), **json.loads(browser), **json.loads(output)}
    for name, value in result.items():
        print(f"{name:48} {value:12,.1f}" if isinstance(value, float) else f"{name:48} {value:12,}")
    missed = [name for name, value, goal in (
        ("bytes", sum(sizes), BYTES_GOAL),
        ("memory", max(value for name, value in result.items() if name.startswith("memory")), MEMORY_GOAL_KB))
        if value > goal]
    if missed:
        print(f"missed: {', '.join(missed)}")
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
