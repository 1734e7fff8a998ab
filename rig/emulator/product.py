# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""The product, built for the device and installed into a folder."""
from __future__ import annotations

import os
import shutil
import subprocess
from pathlib import Path
from typing import Sequence


class BuildError(RuntimeError):
    pass


def run(command: Sequence[str], log: Path, **environment: str) -> None:
    """Keeps quiet unless the command fails. Appends its output to `log`."""
    with log.open("a") as file:
        done = subprocess.run(command, stdout=file, stderr=subprocess.STDOUT,
                              env={**os.environ, **environment})
    if done.returncode != 0:
        last_lines = "\n".join(log.read_text().splitlines()[-20:])
        raise BuildError(f"{last_lines}\nfailed: {' '.join(command)}\n(all of it: {log})")


def install(source: Path, build: Path, root: Path) -> None:
    """Builds the project in the folder `source` as its preset for the device says, in the folder
    `build`, and makes `root` hold just what `cmake --install` gives a device with BusyBox init."""
    build.mkdir(parents=True, exist_ok=True)
    log = build / "device.log"
    log.unlink(missing_ok=True)
    run(["cmake", "-S", str(source), "--preset", "aarch64", "-B", str(build)], log)
    run(["cmake", "--build", str(build)], log)
    shutil.rmtree(root, ignore_errors=True)
    for component in ("daemon", "command", "page", "sysv"):
        run(["cmake", "--install", str(build), "--prefix", "/usr", "--strip",
             "--component", component], log, DESTDIR=str(root))
