# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""One run of the emulated device, from power on to power off or to a power cut."""
from __future__ import annotations

import re
import shutil
import subprocess
import threading
import time
from pathlib import Path
from typing import Callable, Mapping

from rig.emulator import image as images
from rig.emulator import qemu


class EmulatorError(RuntimeError):
    pass


class Emulator:
    """`lines`: what has come over the serial console so far. Leave a `with` block and the device is
    gone, however it stood."""

    def __init__(self, image: images.Image, disk: Path | None, work: Path,
                 files: Mapping[str, bytes] = {}, memory_mib: int = qemu.MEMORY_MIB,
                 echo: Callable[[str], None] | None = None) -> None:
        """`files`: more executable files of the root file system, by their paths without the first
        slash. `work`: a folder for this run's own copy of it."""
        initramfs = None
        if image.initramfs:
            initramfs = work / "root.cpio"
            shutil.copyfile(image.initramfs, initramfs)
            with initramfs.open("ab") as file:
                file.write(images.overlay(dict(files)))

        self.lines: list[str] = []
        self._echo = echo
        self._changed = threading.Condition()
        self._process = subprocess.Popen(
            qemu.command(image, initramfs, disk, memory_mib=memory_mib),
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()

    def __enter__(self) -> Emulator:
        return self

    def __exit__(self, *_: object) -> None:
        self.cut()

    def cut(self) -> None:
        """Cuts the power."""
        self._process.kill()
        self._process.wait()
        self._reader.join()

    def wait_until_off(self, timeout: float) -> None:
        try:
            self._process.wait(timeout)
        except subprocess.TimeoutExpired:
            raise self._error("it does not power off") from None
        self._reader.join()

    def expect(self, pattern: str, timeout: float, since: int = 0, nth: int = 1) -> re.Match[str]:
        """Waits for the line, the nth from `lines[since]` on, that matches."""
        deadline = time.monotonic() + timeout
        while True:
            with self._changed:
                for line in self.lines[since:]:
                    since += 1
                    match = re.search(pattern, line)
                    if match:
                        nth -= 1
                        if nth == 0:
                            return match
                left = deadline - time.monotonic()
                if left <= 0 or not self._reader.is_alive():
                    raise self._error(f"no line {pattern!r}")
                self._changed.wait(min(left, 1))

    def send(self, line: str) -> None:
        """Types a line."""
        assert self._process.stdin
        self._process.stdin.write(line.encode() + b"\n")
        self._process.stdin.flush()

    def _read(self) -> None:
        assert self._process.stdout
        for raw in self._process.stdout:
            line = raw.decode(errors="replace").rstrip("\r\n")
            if self._echo:
                self._echo(line)
            with self._changed:
                self.lines.append(line)
                self._changed.notify_all()

    def _error(self, what: str) -> EmulatorError:
        console = "\n".join(f"  | {line}" for line in self.lines[-25:])
        return EmulatorError(f"{what}; the console's last lines:\n{console}")
