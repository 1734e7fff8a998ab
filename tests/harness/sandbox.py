# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""The sandbox (see sandbox.h) with the product in it."""
from __future__ import annotations

import os
import socket
import sys
from pathlib import Path
from typing import Mapping, NoReturn, Sequence

from tests.harness.paths import BUSYBOX, DAEMON, ROOT


def command(build: Path, argv: Sequence[str], *, busybox: Path = BUSYBOX,
            options: Sequence[str] = (), placed: Mapping[str, Path] | None = None) -> list[str]:
    """Returns the command that runs `argv` in a sandbox with the product of the folder `build` and
    BusyBox's syslogd and start-stop-daemon. The project is visible, read-only, at its own path.

    `options` are those of the program `sandbox`. `placed` maps paths in the sandbox to files of the
    machine, in addition to the product's or instead of them.
    """
    files = {
        "/sbin/syslogd": busybox,
        "/sbin/start-stop-daemon": busybox,
        DAEMON: build / "vandis-moraine",
        "/etc/init.d/S01syslogd-moraine": ROOT / "init/S01syslogd-moraine",
        "/etc/init.d/S90vandis-moraine": ROOT / "init/S90vandis-moraine",
        **{f"/usr/lib/vandis-moraine/{name}": ROOT / "init" / name
           for name in ("functions", "quarantine", "supervise", "xz")},
        **(placed or {}),
    }
    return [str(build / "tests/harness/sandbox"), "--bind", str(ROOT), *options,
            *(f"--place={file}={path}" for path, file in files.items()), "--", *argv]


def python(module: str, *arguments: str) -> list[str]:
    """Returns the command that runs a module of the project; its working folder is to be ROOT."""
    return ["python3", "-B", "-m", module, *arguments]


def enter(argv: Sequence[str]) -> NoReturn:
    """Replaces this process by `argv`, a result of `command`."""
    sys.stdout.flush()
    os.chdir(ROOT)
    os.execv(argv[0], argv)


def require() -> None:
    """Throws outside a sandbox: what tests do to /perm and /dev/log must never happen to a
    machine."""
    if socket.gethostname() != "sandbox" or os.getpid() != 2:
        raise RuntimeError("this runs only inside a sandbox")
