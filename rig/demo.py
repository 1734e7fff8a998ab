# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Floods the system log of a sandbox and shows what becomes of it. See ./run."""
from __future__ import annotations

import argparse
import os
import re
import shlex
import shutil
import signal
import subprocess
import sys
import threading
import time
from pathlib import Path
from typing import BinaryIO, Iterable

from tests.harness import numbered, sandbox, services
from tests.harness.numbered import LogFile, Verdict, log_files
from tests.harness.paths import BUSYBOX, ROOT
from tests.harness.progress import Progress
from tests.harness.waiting import wait_until

COMPLETION = ROOT / "packaging/bash-completion/moraine"
RED, GREEN, CYAN = "1;31", "1;32", "36"


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="./run", description=__doc__)
    parser.add_argument("--duration", type=positive, default=60, help="seconds of flood (60)")
    parser.add_argument("--rate", type=positive, default=1000, help="lines per second (1000)")
    parser.add_argument("--rotation-size", type=positive, default=600, metavar="KIB",
                        help="size at which syslogd rotates its file, in KiB (600)")
    parser.add_argument("--keep", action="store_true",
                        help="end with a shell inside the sandbox")
    parser.add_argument("--build", type=Path, default=ROOT / "build/release",
                        help="folder in which the daemon was built")
    parser.add_argument("--busybox", type=Path, default=BUSYBOX)
    parser.add_argument("--only-check-arguments", action="store_true", help=argparse.SUPPRESS)
    parser.add_argument("--inside", action="store_true", help=argparse.SUPPRESS)
    return parser.parse_args()


def positive(text: str) -> int:
    if not text.isdecimal() or int(text) == 0:
        raise argparse.ArgumentTypeError(f"'{text}' is not a whole number above 0")
    return int(text)


def human(size: float) -> str:
    for unit in ("B", "kB", "MB"):
        if size < 1000:
            break
        size /= 1000
    else:
        unit = "GB"
    return f"{size:.0f} {unit}" if unit == "B" else f"{size:.1f} {unit}"


class Overview:
    """Sizes and counts of the log's files, from one look at them to the next."""

    def __init__(self) -> None:
        self._text_sizes: dict[Path, int] = {}

    def describe(self) -> str:
        counts = dict.fromkeys(numbered.PLACES, 0)
        logged = kept = 0
        for file in log_files():
            try:
                size = file.path.stat().st_size
                logged += self._text_size(file, size)
            except FileNotFoundError:  # renamed or archived meanwhile
                continue
            kept += size
            counts[file.place] += 1
        return (f"{human(logged)} logged, {human(kept)} on disk | {counts['rotations']} waiting, "
                f"{counts['archive']} archived")

    def _text_size(self, file: LogFile, size: int) -> int:
        if file.place != "archive":
            return 0 if file.path.suffix == ".xz" else size
        if file.path not in self._text_sizes:
            self._text_sizes[file.path] = file.read().text_size
        return self._text_sizes[file.path]


class DaemonLines:
    """The daemon's own lines of the log as they come, through all rotations."""

    PATTERN = re.compile(rb"^\w+ +\d+ (\S+) \S+ \S+ vandis-moraine: *(.*)\n")

    def __init__(self) -> None:
        self._files: dict[int, BinaryIO] = {}  # by inode, which stays when syslogd renames them

    def poll(self) -> list[str]:
        present = set()
        for log in log_files():
            if log.place not in ("rotations", "live log"):
                continue
            try:
                file = log.path.open("rb")
            except FileNotFoundError:
                continue
            inode = os.fstat(file.fileno()).st_ino
            present.add(inode)
            if self._files.setdefault(inode, file) is not file:
                file.close()
        lines = [line for file in self._files.values() for line in self._read(file)]
        for inode in self._files.keys() - present:
            self._files.pop(inode).close()
        return lines

    def _read(self, file: BinaryIO) -> Iterable[str]:
        for line in file:
            match = self.PATTERN.match(line)
            if match:
                yield b" ".join(match.groups()).decode(errors="replace")
            elif not line.endswith(b"\n"):
                file.seek(-len(line), os.SEEK_CUR)  # still being written
                break


def demonstrate(arguments: argparse.Namespace, screen: Progress) -> int:
    """Returns how many lines were written."""
    enough = threading.Event()
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, lambda *_: enough.set())

    lines, overview = DaemonLines(), Overview()
    flood = numbered.Flood(arguments.rate)
    start = time.monotonic()

    def show() -> None:
        for line in lines.poll():
            screen.line(line, CYAN)
        screen.status(f"{time.monotonic() - start:3.0f} s | {flood.written} lines | "
                      f"{overview.describe()}")

    services.set_rotation_size(arguments.rotation_size)
    services.syslogd.start()
    try:
        services.daemon.start()
        flood.start()
        while time.monotonic() - start < arguments.duration and not enough.wait(0.5):
            show()
        flood.stop()
        wait_until(lambda: numbered.has_logged(flood.written), 10)
        if services.daemon.pid is None:
            raise RuntimeError("the daemon has ended by itself")
        screen.line(f"Stopping the daemon after {flood.written} lines.")
        services.daemon.stop()
    finally:
        show()
        services.syslogd.stop()
    return flood.written


def print_archive(files: list[LogFile], screen: Progress) -> None:
    screen.line(f"\n{'':42}{'size':>10}{'text':>10}{'ratio':>7}{'lines':>9}  numbers")
    for file in files:
        numbers = file.numbers
        span = f"{min(numbers)} to {max(numbers)}" if numbers else ""
        screen.line(f"{file.path.name:42}{human(file.size):>10}{human(file.text_size):>10}"
                    f"{file.text_size / max(file.size, 1):7.1f}{len(numbers):9}  {span}"
                    f"{' (damaged)' if file.damaged else ''}")
    screen.line("")


def print_verdict(verdict: Verdict, screen: Progress) -> None:
    for lines in numbered.ranges(verdict.lost)[:10]:
        screen.line(f"lost: {lines}")
    if verdict.lost:
        screen.line(f"LOST LINES: {verdict}", RED)
    else:
        screen.line(f"NOTHING LOST: {verdict}", GREEN)


# What to try on the log that is there now.
TOUR = (("boots",), ("-g", "vandis-moraine: Archived", "-n", "3"), ("status",))


def show_tour(screen: Progress) -> None:
    """Calls the command `moraine`; syslogd and the daemon run."""
    for arguments in TOUR:
        screen.line(f"\n$ {shlex.join(('moraine', *arguments))}", CYAN)
        subprocess.run(["moraine", *arguments], env={**os.environ, "PAGER": "cat"})


def run_shell(screen: Progress) -> None:
    """Until the user leaves it."""
    screen.line("\nThis is a shell inside the sandbox, with the log and its services. "
                "exit ends both. Try: moraine --help", CYAN)
    bash = shutil.which("bash")
    shell = [bash, "--rcfile", str(COMPLETION)] if bash else ["sh"]
    subprocess.run(shell, cwd="/perm/logs/syslog", env={**os.environ, "PS1": "sandbox# "})


def look_around(arguments: argparse.Namespace, screen: Progress) -> None:
    services.syslogd.start()
    try:
        services.daemon.start()
        show_tour(screen)
        if arguments.keep:
            run_shell(screen)
        services.daemon.stop()
    finally:
        services.syslogd.stop()


def show(arguments: argparse.Namespace, screen: Progress) -> int:
    written = demonstrate(arguments, screen)
    files = [file.read() for file in log_files()]
    print_archive(files, screen)
    verdict = numbered.judge(written, files)
    print_verdict(verdict, screen)
    look_around(arguments, screen)
    return 1 if verdict.lost else 0


def main() -> int:
    arguments = parse_arguments()
    if arguments.only_check_arguments:
        return 0
    if not arguments.inside:
        argv = sandbox.python("rig.demo", "--inside", *sys.argv[1:])
        build = arguments.build.resolve()
        sandbox.enter(sandbox.command(build, argv, busybox=arguments.busybox.resolve(),
                                      placed={"/usr/sbin/moraine": build / "moraine"}))

    screen = Progress()
    try:
        return show(arguments, screen)
    except RuntimeError as error:
        screen.line(f"demo: {error}", RED)
        return 1


if __name__ == "__main__":
    sys.exit(main())
