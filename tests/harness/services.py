# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""The product's services, inside a sandbox."""
from __future__ import annotations

import contextlib
import os
import socket
import subprocess
from pathlib import Path

from tests.harness.paths import LIVE_LOG


class Service:
    """An init script."""

    def __init__(self, script: str, pid_file: str) -> None:
        self.script = f"/etc/init.d/{script}"
        self.settings = Path("/etc/default", script[len("S01"):])
        self.pid_file = Path(pid_file)

    def _call(self, action: str) -> None:
        # In a session of its own, out of reach of the terminal's Ctrl-C.
        done = subprocess.run([self.script, action], stdout=subprocess.PIPE, text=True,
                              start_new_session=True)
        if done.returncode != 0:
            raise RuntimeError(f"{self.script} {action}: {done.stdout.strip()}")

    def start(self) -> None:
        self._call("start")

    def stop(self) -> None:
        self._call("stop")

    @property
    def pid(self) -> int | None:
        """None if it does not run."""
        try:
            pid = int(self.pid_file.read_text())
        except (FileNotFoundError, ValueError):
            return None
        return pid if Path(f"/proc/{pid}").exists() else None


syslogd = Service("S01syslogd-moraine", "/var/run/syslogd.pid")
daemon = Service("S90vandis-moraine", "/var/run/vandis-moraine.pid")


def set_rotation_size(kib: int) -> None:
    """From the next start of syslogd on."""
    syslogd.settings.write_text(f"ROTATION_KB={kib}\n")


def rotate() -> None:
    """Renames the log's files as syslogd does, which then opens a new live log."""
    for number in range(8, -1, -1):
        with contextlib.suppress(FileNotFoundError):  # it may be archived just then
            os.rename(f"{LIVE_LOG}.{number}", f"{LIVE_LOG}.{number + 1}")
    os.rename(LIVE_LOG, f"{LIVE_LOG}.0")


def free_port() -> int:
    """Of 127.0.0.1, for a server of a test."""
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]
