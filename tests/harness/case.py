# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Test cases that run in a sandbox: each has a /perm and a /scratch of its own, and no test waits
for a time, only for events. A test file ends in `case.main()`, which enters the sandbox.
"""
from __future__ import annotations

import argparse
import contextlib
import lzma
import os
import re
import signal
import subprocess
import sys
import unittest
from pathlib import Path
from typing import Any, Callable, Mapping, Sequence

from tests.harness import sandbox, services, waiting
from tests.harness.daemon import (RUNNING, SANITIZER_REPORT, SCRATCH, STAND_INS, Daemon, DaemonLog)
from tests.harness.log_socket import Line
from tests.harness.numbered import log_files
from tests.harness.paths import ARCHIVE, BUSYBOX, LIVE_LOG, ROOT, SYSLOG

SYSLOGD_SCRIPT = Path("/etc/init.d/S01syslogd-moraine")


class SandboxCase(unittest.TestCase):
    """A test in a sandbox that is as if just made: /perm is empty but for /perm/logs/syslog, and nothing
    runs."""

    maxDiff = None

    def setUp(self) -> None:
        sandbox.require()
        self.mount("-t", "tmpfs", "-o", "size=2147483648,mode=0755", "tmpfs", "/perm")
        SCRATCH.mkdir(exist_ok=True)
        self.mount("-t", "tmpfs", "tmpfs", str(SCRATCH))
        STAND_INS.mkdir()
        SYSLOG.mkdir(parents=True)
        self.addCleanup(self._check_sanitizers)
        self.addCleanup(self._remove_run_files)

    def _check_sanitizers(self) -> None:
        reports = [path.read_text() for path in SCRATCH.glob(f"{SANITIZER_REPORT.name}.*")]
        self.assertEqual(reports, [], "\n".join(reports))

    def _remove_run_files(self) -> None:
        for service in (services.syslogd, services.daemon):
            for path in (service.pid_file, service.settings):
                if path.is_dir():
                    path.rmdir()
                path.unlink(missing_ok=True)

    def mount(self, *arguments: str) -> None:
        """Until the end of the test. The last argument is where."""
        subprocess.run(["mount", *arguments], check=True)
        self.addCleanup(subprocess.run, ["umount", "--lazy", arguments[-1]], check=True)

    def remount(self, options: str) -> None:
        """Changes the /perm of this test."""
        # With the source, too: else mount(8) repeats the options that it finds, among them owners
        # that an ordinary user's sandbox does not know.
        subprocess.run(["mount", "-o", f"remount,{options}", "tmpfs", "/perm"], check=True)

    def wait_until(self, condition: Callable[[], object], what: str) -> None:
        if not waiting.wait_until(condition):
            self.fail(f"waited {waiting.limit:.0f} s for this: {what}")

    def stand_in(self, name: str, script: str) -> None:
        """Puts a shell script before the sandbox's program of this name, for the daemon."""
        write_script(STAND_INS / name, script)

    def slow_xz(self) -> Gate:
        """From here on `xz` waits at a gate before it compresses."""
        gate = Gate("xz")
        self.stand_in("xz", f'{gate.script}\nexec /usr/bin/xz "$@"')
        return gate

    def held_xz(self) -> Gate:
        """From here on `xz` waits at a gate when it has compressed."""
        gate = Gate("xz")
        self.stand_in("xz", f'/usr/bin/xz "$@"\n{gate.script}')
        return gate

    def init_script(self, script: str) -> None:
        """Replaces syslogd's init script."""
        write_script(SCRATCH / "init-script", script)
        self.mount("--bind", str(SCRATCH / "init-script"), str(SYSLOGD_SCRIPT))


class BlackBoxCase(SandboxCase):
    """No syslogd runs: the test reads /dev/log itself."""

    def setUp(self) -> None:
        super().setUp()
        write(LIVE_LOG)
        self.log = DaemonLog()
        self.addCleanup(self._close_log)
        self.daemons: list[Daemon] = []
        self.addCleanup(lambda: [daemon.end() for daemon in self.daemons])

    def _close_log(self) -> None:
        self.log.close()
        self.assertEqual(self.log.unexpected, [], "came to /dev/log, but is no line of the daemon")

    def start(self, *arguments: Any, **options: Any) -> Daemon:
        """Starts the daemon; see Daemon. Without `fast_sleep` only a stop signal starts a cycle."""
        self.daemons.append(Daemon(*arguments, **options))
        return self.daemons[-1]

    def start_and_wait(self, *arguments: Any, **options: Any) -> Daemon:
        """The same, and waits until it sleeps for the first time."""
        count = self.log.all().count(RUNNING)
        daemon = self.start(*arguments, **options)
        self.log.wait_for(RUNNING, count + 1)
        self.wait_until(lambda: daemon.waits, "the daemon sleeps")
        return daemon

    def stop(self, daemon: Daemon, number: int = signal.SIGTERM) -> int:
        """Sends a stop signal and returns the exit status."""
        daemon.signal(number)
        return self.wait(daemon)

    def deliver(self, daemon: Daemon, *numbers: int) -> None:
        """Sends signals so that they are delivered in this order."""
        for number in numbers:
            daemon.signal(number)
            self.wait_until(lambda: not daemon.has_pending(number), "the signal is delivered")

    def wait(self, daemon: Daemon) -> int:
        try:
            return daemon.wait()
        except subprocess.TimeoutExpired:
            self.fail(f"the daemon still runs after {waiting.limit:.0f} s, with these lines: "
                      f"{self.log.all()[-20:]}")

    def run_once(self) -> list[Line]:
        """The lines of a life that consists of start-up and, if that succeeds, one cycle."""
        first = len(self.log.all())
        daemon = self.start()
        self.wait_until(lambda: not daemon.is_running or
                        RUNNING in self.log.all()[first:] and daemon.waits, "the daemon sleeps")
        if daemon.is_running:
            daemon.signal(signal.SIGTERM)
        self.status = self.wait(daemon)
        return self.log.all()[first:]


class Gate:
    """A place in a shell script that only a test lets it pass."""

    def __init__(self, name: str) -> None:
        self._reached = SCRATCH / f"{name}.reached"
        self._open = SCRATCH / f"{name}.open"
        self.script = (f"touch {self._reached}\n"
                       f"until [ -e {self._open} ]; do sleep 0.02; done")

    @property
    def is_reached(self) -> bool:
        return self._reached.exists()

    def open(self) -> None:
        self._open.touch()


def write_script(path: Path, script: str) -> None:
    path.write_text(f"#!/bin/sh\n{script}\n")
    path.chmod(0o755)


def write(path: Path | str, content: str | bytes = "") -> Path:
    """A bare name is one of the syslog folder."""
    path = SYSLOG / path
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(content.encode() if isinstance(content, str) else content)
    return path


def write_sparse(path: Path | str, size: int) -> Path:
    path = write(path)
    os.truncate(path, size)
    return path


def content_of(folder: Path) -> dict[str, str]:
    """Name to content of all that is in a folder: "NAME/" for a folder, "NAME@" for a link, which
    has its target as content, "NAME" for a file."""
    found = {}
    for path in folder.iterdir():
        if path.is_symlink():
            found[f"{path.name}@"] = os.readlink(path)
        elif path.is_dir():
            found[f"{path.name}/"] = ""
        else:
            found[path.name] = text_of(path.read_bytes())
    return found


def archive(except_for: Sequence[str] = ()) -> list[tuple[int, str]]:
    """Boot number and text of each archive file, the oldest first. Where the source had a hole,
    its size stands."""
    return [(int(path.name.split(".")[1]), text_of(lzma.decompress(path.read_bytes())))
            for path in sorted(ARCHIVE.iterdir()) if path.name not in except_for]


def text_of(content: bytes) -> str:
    text = content.decode(errors="surrogateescape")
    return re.sub("\0{100,}", lambda hole: f"[{len(hole[0])} zeros]", text)


def log_lines() -> list[str]:
    """The text of each line of the daemon that a syslogd has written, the oldest first."""
    lines: list[str] = []
    for file in log_files():
        with contextlib.suppress(FileNotFoundError):  # archived meanwhile
            lines += file.read().daemon_lines
    return lines


def main(placed: Mapping[str, Path] | None = None) -> None:
    """Enters a sandbox and runs the tests of the module that was called. `placed` are more files for
    the sandbox (see sandbox.command)."""
    module = sys.modules["__main__"]
    parser = argparse.ArgumentParser(
        description=module.__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("--build", type=Path, default=ROOT / "build/dev",
                        help="folder in which the daemon was built (build/dev)")
    parser.add_argument("--busybox", type=Path, default=BUSYBOX,
                        help="made by rig/build-busybox (build/busybox/busybox)")
    parser.add_argument("--limit", type=float, default=waiting.limit,
                        help="seconds that a test waits for an event (180)")
    parser.add_argument("tests", nargs="*", metavar="CLASS[.TEST]", help="run these only")
    parser.add_argument("--inside", action="store_true", help=argparse.SUPPRESS)
    arguments = parser.parse_args()
    if not arguments.inside:
        enter_sandbox(module.__spec__.name, arguments, placed)

    sandbox.require()
    waiting.limit = arguments.limit
    os.environ["MORAINE_BUILD"] = str(arguments.build)
    unittest.main(argv=[sys.argv[0], *arguments.tests], verbosity=2, failfast=False)


def enter_sandbox(module: str, arguments: argparse.Namespace,
                  placed: Mapping[str, Path] | None) -> None:
    build, busybox = arguments.build.resolve(), arguments.busybox.resolve()
    for path, remedy in ((busybox, "run rig/build-busybox"),
                         (build / "vandis-moraine", "build it, as CONTRIBUTING.md says"),
                         (build / "tests/harness/libfast_sleep.so", "build all targets")):
        if not path.exists():
            sys.exit(f"{path} is missing: {remedy}")
    argv = sandbox.python(module, "--inside", "--build", str(build),
                          "--limit", str(arguments.limit), *arguments.tests)
    # Writable, for coverage data.
    sandbox.enter(sandbox.command(build, argv, busybox=busybox, placed=placed,
                                  options=["--bind-rw", str(build)]))
