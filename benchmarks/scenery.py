# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""What is measured on: log text, archives of many files, and a /perm on a disk."""
from __future__ import annotations

import os
import random
import shutil
import subprocess
import time
from pathlib import Path
from typing import Iterable, Iterator

from tests.harness.paths import ARCHIVE, SIZE_LIMIT, archive_name

BOOTS = 990  # leaves room below 999 for a renumbering upwards

_random = random.Random(7)  # the same text in each run


def _message() -> str:
    number, gauss = _random.randint, _random.gauss
    kind = number(1, 20)
    if kind <= 8:
        return (f"pumpd[588]: pump {number(0, 7)} pressure {gauss(112, 9):.2f} kPa "
                f"flow {gauss(3200, 240):.0f} l/h valve {number(0, 100)}%")
    if kind <= 14:
        return (f"sensord[590]: adc{number(0, 3)} raw=0x{number(0, 65535):04x} "
                f"temp={gauss(41, 6):.3f}C")
    if kind <= 17:
        return f"modemd[601]: +CSQ: {number(0, 31)},99 rsrp {number(-140, -44)} dBm"
    if kind == 18:
        return (f"dhcpcd[412]: eth0: leased 192.168.{number(0, 3)}.{number(2, 254)} for "
                f"{_random.choice((600, 3600, 86400))} seconds")
    if kind == 19:
        return (f"sshd[{number(900, 32000)}]: Connection closed by 10.{number(0, 255)}."
                f"{number(0, 255)}.{number(1, 254)} port {number(1024, 65535)} [preauth]")
    return f"updated[702]: checked manifest {_random.getrandbits(128):032x}: no change"


def _lines() -> Iterator[str]:
    now = 1_700_000_000.0
    while True:
        now += _random.expovariate(8)
        stamp = time.strftime("%b %e %H:%M:%S", time.gmtime(now))
        yield f"{stamp} device daemon.info {_message()}\n"


def write_log_text(path: Path, size: int) -> None:
    """Log text of a device, as xz compresses it to a ninth: `size` bytes."""
    with path.open("w") as file:
        for line in _lines():
            file.write(line[:size])
            size -= len(line)
            if size <= 0:
                return


def use_disk(folder: Path) -> str:
    """Lets /perm be this folder of the machine's disk. Returns the name of its file system."""
    for entry in folder.iterdir():
        shutil.rmtree(entry)
    subprocess.run(["mount", "--bind", folder, "/perm"], check=True)
    done = subprocess.run(["stat", "-f", "-c", "%T", "/perm"], check=True, text=True,
                          stdout=subprocess.PIPE)
    return done.stdout.strip().replace("ext2/ext3", "ext4")


class Archive:
    """An archive of `count` files of `BOOTS` boots, just below the size limit. The files have no
    content: nothing here reads any."""

    def __init__(self, count: int) -> None:
        self.size = SIZE_LIMIT // count
        self.names = list(self._make_names(count))
        shutil.rmtree(ARCHIVE, ignore_errors=True)
        ARCHIVE.mkdir(parents=True)
        self.refill()

    @staticmethod
    def _make_names(count: int) -> Iterator[str]:
        for number in range(count):
            yield archive_name(number * BOOTS // count + 1, number * 600)

    def refill(self, names: Iterable[str] | None = None) -> None:
        """Makes again what of `names` (all of them) is not there."""
        present = set(os.listdir(ARCHIVE))
        for name in self.names if names is None else names:
            if name not in present:
                self.make(name, self.size)

    @staticmethod
    def make(name: str, size: int) -> None:
        with (ARCHIVE / name).open("wb") as file:
            file.truncate(size)
