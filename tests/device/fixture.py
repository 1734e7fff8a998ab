# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""What every device test works with: an image, a disk, and a device that takes commands."""
from __future__ import annotations

import contextlib
import dataclasses
import functools
import shutil
import subprocess
import tempfile
from pathlib import Path
from typing import Iterator, Mapping

from rig.emulator import disk as disks
from rig.emulator import image as images
from rig.emulator import qemu
from rig.emulator.emulator import Emulator, EmulatorError
from tests.device import prepared
from tests.device.found import Found

GUEST = Path(__file__).parent / "guest"
LOG = "/perm/logs/syslog"

# Generous: an emulated device among others on a busy machine.
BOOT_TIMEOUT = 600
CYCLE_TIMEOUT = 600


class Failed(AssertionError):
    pass


def check(condition: bool, what: str) -> None:
    if not condition:
        raise Failed(what)


@functools.lru_cache(maxsize=None)
def watcher() -> Path:
    """The program guest/watch.cpp, for the device."""
    program = images.FOLDER / "watch"
    subprocess.run([f"{images.TOOLS}g++", "-std=c++20", "-O2", "-s", "-static", "-o", str(program),
                    str(GUEST / "watch.cpp")], check=True)
    return program


class Device(Emulator):
    """A booted device that runs commands."""

    def wait_until_ready(self) -> None:
        self.expect(r"@ready", BOOT_TIMEOUT)

    def status(self, command: str, timeout: float = CYCLE_TIMEOUT) -> tuple[int, str]:
        """The command's exit status and output."""
        start = len(self.lines)
        self.send(command)
        match = self.expect(r"@status (\d+)$", timeout, since=start)
        output = "\n".join(self.lines[start:])
        output = output[:output.rindex(match[0])]
        return int(match[1]), "\n".join(
            line for line in output.splitlines() if line and not line.startswith("@"))

    def run(self, command: str, timeout: float = CYCLE_TIMEOUT) -> str:
        status, output = self.status(command, timeout)
        if status != 0:
            raise EmulatorError(f"{command}: status {status}: {output}")
        return output

    def wait_for(self, condition: str, timeout: float = CYCLE_TIMEOUT) -> None:
        """Waits until a command of the device succeeds."""
        self.run(f"until {condition}; do sleep 1; done", timeout)

    def power_off(self) -> None:
        self.send("poweroff")
        self.wait_until_off(BOOT_TIMEOUT)

    def failed_services(self) -> list[str]:
        """What init's scripts said of services that would not start or stop."""
        return [line for line in self.lines if line.startswith(("rcS:", "rcK:"))]


@dataclasses.dataclass
class Fixture:
    """An image, a disk, and the devices that boot with them."""

    image: images.Image
    folder: Path
    random: random.Random

    @property
    def disk(self) -> Path:
        return self.folder / "perm.img"

    @property
    def _work(self) -> Path:
        return Path(tempfile.mkdtemp(dir=self.folder))

    def make_disk(self, files: prepared.Files = {}) -> None:
        content = self._work
        log = content / "logs/syslog"
        log.mkdir(parents=True)
        for name, given in files.items():
            data, size = given if isinstance(given, tuple) else (given, len(given))
            (log / name).parent.mkdir(exist_ok=True)
            with (log / name).open("wb") as file:
                file.write(data)
                file.truncate(size)
        disks.make(self.disk, content if files else None)
        shutil.rmtree(content)

    @contextlib.contextmanager
    def boot(self, files: Mapping[str, bytes] = {}, with_disk: bool = True) -> Iterator[Device]:
        """A device that has come up, all its services included."""
        with self.power_on(files, with_disk) as device:
            device.wait_until_ready()
            yield device

    @contextlib.contextmanager
    def power_on(self, files: Mapping[str, bytes] = {}, with_disk: bool = True,
                 mount_options: str = "defaults",
                 memory_mib: int = qemu.MEMORY_MIB) -> Iterator[Device]:
        """`files`: more of the root file system, all executable, by their paths without a slash."""
        work = self._work
        fstab = (images.SKELETON / "etc/fstab").read_text()
        all_files = {"root/script": (GUEST / "commands.sh").read_bytes(),
                     "etc/init.d/S92moraine-page": b"#!/bin/sh\n",  # would only take time
                     "etc/fstab": fstab.replace("ext4\tdefaults", f"ext4\t{mount_options}").encode(),
                     **files}
        try:
            with Device(self.image, self.disk if with_disk else None, work, all_files,
                        memory_mib) as device:
                yield device
        finally:
            shutil.rmtree(work)

    def look(self) -> Found:
        """What the disk holds after power off or a power cut."""
        work = self._work
        disks.copy(self.disk, work / "disk.img")
        disks.extract(work / "disk.img", "/logs/syslog", work)
        found = Found(work / "syslog")
        shutil.rmtree(work)
        return found
