# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""How soon one program that logs as fast as it can overwrites all rotations, by ROTATION_KB. Nothing
archives meanwhile. Prints a table; takes a minute."""
from __future__ import annotations

import socket
import subprocess
import sys
import time
from pathlib import Path

from benchmarks.load import SIZES_KIB
from tests.harness import sandbox
from tests.harness.paths import LOG_SOCKET, ROOT, SYSLOG
from tests.harness.services import set_rotation_size, syslogd

ROUNDS = 3
LINE = b"<14>flood: " + b"x" * 189  # with time, host and level, 230 bytes in the log
LAST = SYSLOG / "messages.txt.9"


def seconds_until_last(size_kb: int) -> float:
    """Returns how long it took until syslogd had no further name."""
    set_rotation_size(size_kb)
    syslogd.start()
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as log:
        log.connect(str(LOG_SOCKET))
        start = time.monotonic()
        while not LAST.exists():
            for _ in range(100):
                log.send(LINE)
        seconds = time.monotonic() - start
    syslogd.stop()
    for path in SYSLOG.glob("messages.txt*"):
        path.unlink()
    return seconds


def measure() -> None:
    print(f"{'ROTATION_KB':>11}  {'flood':>12}  {'all ten full after':>18}")
    for size_kb in SIZES_KIB:
        seconds = sorted(seconds_until_last(size_kb) for _ in range(ROUNDS))[ROUNDS // 2]
        print(f"{size_kb:>11}  {10 * size_kb / 1024 / seconds:>6.1f} MiB/s  {seconds:>16.1f} s", flush=True)


def main() -> None:
    if "--inside" in sys.argv:
        sandbox.require()
        measure()
        return
    subprocess.run([str(ROOT / "rig/build-busybox")], check=True)
    build = ROOT / "build/dev"
    for path in (build / "vandis-moraine", build / "tests/harness/sandbox"):
        if not Path(path).exists():
            sys.exit(f"{path} is missing: build it, as CONTRIBUTING.md says")
    sandbox.enter(sandbox.command(build, sandbox.python("benchmarks.flood", "--inside")))


if __name__ == "__main__":
    main()
