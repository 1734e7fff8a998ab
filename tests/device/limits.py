# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Archives at their limits, and power cuts while these are enforced: while boots are deleted and
renumbered, and while the oldest files are deleted."""
from __future__ import annotations

import collections
import dataclasses

from tests.device import cuts, prepared
from tests.device.fixture import BOOT_TIMEOUT, CYCLE_TIMEOUT, Fixture
from tests.device.found import Found
from tests.device.tally import Tally
from tests.harness.numbered import logged
from tests.harness.paths import SIZE_LIMIT

LOWER_MARK = 966367641
MAX_BOOT = 999
BOOTS_DELETED_AT_ONCE = 100

# Such a number that a rotation more or less does not decide on one file more.
BIG_FILES = 487
ROTATION_LINES = 2000


def _big_file_size(count: int) -> int:
    return (SIZE_LIMIT - 1024) // count // 4 * 4


def files_below_size_limit(count: int) -> prepared.Files:
    """The next rotation that is archived reaches the limit."""
    return prepared.big_files(count, _big_file_size(count))


def files_to_delete(count: int) -> int:
    """How many of these then have to go."""
    size = _big_file_size(count)
    return next(deleted for deleted in range(count) if (count - deleted) * size < LOWER_MARK)


def boot_numbers(found: Found) -> list[int]:
    return sorted(int(name.split(".")[1]) for name in found.archive)


@dataclasses.dataclass(frozen=True)
class Work:
    """What the daemon does to an archive when the power is cut: after one of `steps` steps, each of
    which shows as an event (see watch.cpp). It may delete that many of the oldest files."""

    name: str
    files: prepared.Files
    event: str
    steps: int
    deleted: int
    rotations: int = 0


def works() -> list[Work]:
    big_files = files_to_delete(BIG_FILES)
    return [
        # Half done, these two leave a boot 1 and a boot 999, as if all numbers were in use.
        Work("renumbering", prepared.boots(2, MAX_BOOT), "m", MAX_BOOT - 1, deleted=0),
        Work("renumbering after deletion", prepared.boots(1, MAX_BOOT), "m",
             MAX_BOOT - BOOTS_DELETED_AT_ONCE, deleted=BOOTS_DELETED_AT_ONCE),
        Work("keeping below 1 GiB", files_below_size_limit(BIG_FILES), "d", big_files, big_files,
             rotations=1),
        Work("deleting the oldest boots", prepared.boots(1, MAX_BOOT), "d", BOOTS_DELETED_AT_ONCE,
             deleted=BOOTS_DELETED_AT_ONCE),
    ]


class Interruption:
    """One power cut amid such a work, and the next start, which finishes it."""

    def __init__(self, fixture: Fixture, work: Work) -> None:
        self.fixture = fixture
        self.work = work
        self.step = fixture.random.randint(1, work.steps)
        self.tally = Tally(cuts=1, moments=collections.Counter([work.name]),
                           synced=len(work.files) + work.rotations * ROTATION_LINES)

    def run(self) -> Tally:
        self.fixture.make_disk(self.work.files)
        with self.fixture.power_on(self._service()) as device:
            device.expect("@prepared", BOOT_TIMEOUT)
            device.expect(f"@event {self.work.event} ", CYCLE_TIMEOUT)
            device.cut()
        found = self._judge("the cut", self.work.deleted)
        deleted = self._count_deleted(found)
        is_half_renumbered = not _is_without_gap(found)
        self.tally.half_done = is_half_renumbered or 0 < deleted < self.work.deleted

        with self.fixture.power_on(cuts.service({})) as device:
            cuts.check_start(device, self.tally)
            device.run("sync")
        # Half renumbered, it looks as if all numbers were in use. Nothing more may go.
        found = self._judge("the next start", deleted if is_half_renumbered else self.work.deleted)
        if not _is_without_gap(found):
            self.tally.unhealed += 1
            self.tally.notes.append(f"{self._what()}: the next start has not renumbered to the end")
        self.tally.duplicated = found.duplicated
        return self.tally

    def _service(self) -> dict[str, bytes]:
        # Without a sync now and then, the disk would be found as if the work had not begun.
        settings = f"export NTH={self.step} LETTER={self.work.event} SYNC_ALL_THE_TIME=yes\n"
        rotations = {f"root/rotations/{number}": logged(
            number * ROTATION_LINES + 1, (number + 1) * ROTATION_LINES)
            for number in range(self.work.rotations)}
        return cuts.service({"root/settings": settings.encode(), **rotations})

    def _judge(self, after: str, may_be_deleted: int) -> Found:
        """Only the oldest files may be gone, and the others stand in their order."""
        found = self.fixture.look()
        before = self._prepared_lines()
        kept = prepared.kept_lines(found)
        wanted = set(before[may_be_deleted:])
        lost = found.lost(wanted | set(range(1, self.work.rotations * ROTATION_LINES + 1)))
        if kept != before[len(before) - len(kept):]:
            lost |= wanted
        self.tally.add_losses(f"{self._what()}, after {after}", lost, set(found.empty),
                              set(found.corrupt))
        return found

    def _what(self) -> str:
        return f"{self.work.name}, step {self.step}"

    def _prepared_lines(self) -> list[int]:
        return [prepared.FIRST_LINE + int(path.split(".")[1]) for path in sorted(self.work.files)]

    def _count_deleted(self, found: Found) -> int:
        return len(self.work.files) - len(prepared.kept_lines(found))


def _is_without_gap(found: Found) -> bool:
    numbers = boot_numbers(found)
    return numbers == list(range(numbers[0], numbers[0] + len(numbers)))
