# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Power cuts at random moments around the archiving of rotations. After each, the disk is judged as
it is found; the next start has to heal it, and its power is cut in turn.
"""
from __future__ import annotations

import collections
import contextlib
import dataclasses
import time
from typing import Mapping

from rig.emulator.emulator import EmulatorError
from tests.device.fixture import BOOT_TIMEOUT, CYCLE_TIMEOUT, GUEST, Device, Fixture, watcher
from tests.device.found import Found
from tests.device.tally import Tally
from tests.harness.numbered import logged, numbers_in

ROTATION_LINES = (400, 2500)  # about 40 to 240 KiB
UNAIMED = "at any moment, without an event from the watcher"
LEFT_OVER_LIVE_LOG = "messages.txt.tmp"

# The longer the kernel holds back what was written, the more a cut takes away.
MOUNT_OPTIONS = ("defaults", "defaults", "commit=15", "commit=30")


@dataclasses.dataclass(frozen=True)
class Moment:
    """When to cut: some time after an event that watch.cpp reports."""

    name: str
    event: str
    longest_wait: float  # seconds
    weight: int


MOMENTS = (
    Moment("compressing", r"@event n syslog/messages\.txt\.\w+\.xz", 1.5, 20),
    Moment("syncing", r"@event w syslog/messages\.txt\.\w+\.xz", 0.1, 20),
    Moment("renaming", r"@event m archive/", 0.05, 20),
    Moment("removing", r"@event d syslog/messages\.txt\.\w+$", 0.2, 10),
    Moment("afterwards", r"@event d syslog/messages\.txt\.\w+$", 40, 40),
)


class Chain:
    """Power cuts, one after the other, on one disk that is never shut down."""

    def __init__(self, fixture: Fixture, cuts: int) -> None:
        self.fixture = fixture
        self.random = fixture.random
        self.cuts = cuts
        self.mount_options = self.random.choice(MOUNT_OPTIONS)
        self.tally = Tally()
        self._next_line = 1
        self._synced: set[int] = set()
        self._lost: set[int] = set()
        self._damaged: set[str] = set()

    def run(self) -> Tally:
        self.fixture.make_disk()
        for _ in range(self.cuts):
            self._cut()
        with self._power_on({}) as device:
            check_start(device, self.tally)
        self.tally.duplicated = self._judge("the last start").duplicated
        self.tally.synced = len(self._synced)
        return self.tally

    def _cut(self) -> None:
        moment = self.random.choices(MOMENTS, [moment.weight for moment in MOMENTS])[0]
        wait = self.random.random() * moment.longest_wait
        at_start = self.random.random() < 0.2
        rotations = {name: self._rotation() for name in self._names(at_start)}
        nth = self.random.randint(1, min(2, len(rotations)))

        with self._power_on(rotations) as device:
            if not at_start:
                check_start(device, self.tally)
            aimed_at = moment.name
            try:
                device.expect(moment.event, BOOT_TIMEOUT + CYCLE_TIMEOUT, nth=nth)
            except EmulatorError:  # The watcher's lines did not come. A cut it is all the same.
                aimed_at = UNAIMED
            time.sleep(wait)
            device.cut()
        self.tally.add(Tally(cuts=1, moments=collections.Counter([aimed_at])))
        for line in device.lines:
            if line.startswith("@synced "):
                self._synced.update(numbers_in(rotations[line.split()[1]]))
        found = self._judge(f"{moment.name}{' at start' if at_start else ''} + {wait:.3f} s, "
                            f"{self.mount_options}")
        self.tally.half_done += bool(found.leftovers or found.duplicated)

    def _names(self, at_start: bool) -> list[str]:
        """What there is to archive: a start finds a live log whose archiving was interrupted, a
        check cycle finds rotations."""
        if at_start:
            return [LEFT_OVER_LIVE_LOG]
        return [f"rotation-{number}" for number in range(self.random.randint(1, 3))]

    def _rotation(self) -> bytes:
        count = self.random.randint(*ROTATION_LINES)
        self._next_line += count
        return logged(self._next_line - count, self._next_line - 1)

    def _power_on(self, rotations: Mapping[str, bytes]) -> contextlib.AbstractContextManager[Device]:
        files = {f"root/rotations/{name}": text for name, text in rotations.items()}
        return self.fixture.power_on(service(files), mount_options=self.mount_options)

    def _judge(self, what: str) -> Found:
        found = self.fixture.look()
        lost = found.lost(self._synced) - self._lost
        empty = set(found.empty) - self._damaged
        corrupt = set(found.corrupt) - self._damaged
        self.tally.add_losses(what, lost, empty, corrupt)
        self._lost |= lost
        self._damaged |= empty | corrupt
        return found


def service(files: Mapping[str, bytes]) -> dict[str, bytes]:
    """The service that reports events and adds the rotations in root/rotations/."""
    return {"etc/init.d/S50power-cut": (GUEST / "power-cut.sh").read_bytes(),
            "root/watch": watcher().read_bytes(), **files}


def check_start(device: Device, tally: Tally) -> None:
    """A start never refuses, and it leaves nothing behind that an earlier run left half done."""
    match = device.expect(r"@log .*(running|will now exit)\.", BOOT_TIMEOUT + CYCLE_TIMEOUT)
    device.wait_until_ready()
    if match[1] != "running" or device.failed_services():
        tally.refused += 1
        tally.notes.append("a start refused: " + " / ".join(
            line for line in device.lines if line.startswith(("@log", "rcS:"))))
    for line in device.lines:
        if not line.startswith("@leftover "):
            continue
        _, inode, changed, path = line.split()
        status, now = device.status(f"stat -c '%i %Z' {path}")
        if status == 0 and now == f"{inode} {changed}":
            tally.unhealed += 1
            tally.notes.append(f"{path} was still there after a start")
