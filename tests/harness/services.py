# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""The product's services, inside a sandbox."""
from __future__ import annotations

import subprocess
from pathlib import Path


class Service:
    """An init script."""

    def __init__(self, script: str, pid_file: str) -> None:
        self.script = f"/etc/init.d/{script}"
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
    Path("/etc/default/syslogd-moraine").write_text(f"ROTATION_KB={kib}\n")
