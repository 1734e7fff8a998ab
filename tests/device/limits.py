"""Archives at their limits, and power cuts while these are enforced: while boots are deleted and
renumbered, and while the oldest files are deleted."""
from __future__ import annotations

import dataclasses

from tests.device import cuts, lines, prepared
from tests.device.bench import BOOT_TIMEOUT, CYCLE_TIMEOUT, Bench
from tests.device.tally import Tally

SIZE_LIMIT = 1 << 30
LOWER_MARK = 966367641
MAX_BOOT = 999
BOOTS_DELETED_AT_ONCE = 100

# Such a number that a rotation more or less does not decide on one file more.
BIG_FILES = 487
ROTATION_LINES = 2000


def _big_file_size(count: int) -> int:
    return (SIZE_LIMIT - 4096) // count // 4 * 4


def files_below_size_limit(count: int) -> prepared.Files:
    """The next rotation that is archived reaches the limit."""
    return prepared.big_files(count, _big_file_size(count))


def files_to_delete(count: int) -> int:
    """How many of these then have to go."""
    size = _big_file_size(count)
    return next(deleted for deleted in range(count) if (count - deleted) * size < LOWER_MARK)


def boot_numbers(found: lines.Found) -> list[int]:
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
    deleted_by_next_start: int = 0
    rotations: int = 0


def works() -> list[Work]:
    big_files = files_to_delete(BIG_FILES)
    return [
        Work("renumbering", prepared.boots(2, MAX_BOOT - 1), "m", MAX_BOOT - 2, deleted=0),
        Work("keeping below 1 GiB", files_below_size_limit(BIG_FILES), "d", big_files, big_files,
             rotations=1),
        Work("deleting the oldest boots", prepared.boots(1, MAX_BOOT), "d", BOOTS_DELETED_AT_ONCE,
             deleted=BOOTS_DELETED_AT_ONCE),
        # This leaves a boot 1 and a boot 999, which are the sign of all numbers being in use.
        Work("renumbering after deletion", prepared.boots(1, MAX_BOOT), "m",
             MAX_BOOT - BOOTS_DELETED_AT_ONCE, deleted=BOOTS_DELETED_AT_ONCE,
             deleted_by_next_start=BOOTS_DELETED_AT_ONCE),
    ]


class Interruption:
    """One power cut amid such a work, and the next start."""

    def __init__(self, bench: Bench, work: Work) -> None:
        self.bench = bench
        self.work = work
        self.step = bench.random.randint(1, work.steps)
        self.tally = Tally(cuts=1, synced=len(work.files) + work.rotations * ROTATION_LINES)

    def run(self) -> Tally:
        work = self.work
        self.bench.make_disk(work.files)
        with self.bench.power_on(self._service()) as device:
            device.expect("@prepared", BOOT_TIMEOUT)
            device.expect(f"@event {work.event} ", CYCLE_TIMEOUT)
            device.cut()
        found = self._judge("the cut", work.deleted)
        self.tally.half_done = self._is_half_done(found)
        with self.bench.power_on(cuts.service({})) as device:
            cuts.check_start(device, self.tally)
        found = self._judge("the next start", work.deleted + work.deleted_by_next_start)
        self.tally.duplicated = found.duplicated
        return self.tally

    def _service(self) -> dict[str, bytes]:
        # Without a sync now and then, the disk would be found as if the work had not begun.
        settings = f"export NTH={self.step} LETTER={self.work.event} SYNC_ALL_THE_TIME=yes\n"
        rotations = {f"root/rotations/{number}": lines.logged(
            number * ROTATION_LINES + 1, ROTATION_LINES, self.bench.random)
            for number in range(self.work.rotations)}
        return cuts.service({"root/settings": settings.encode(), **rotations})

    def _judge(self, after: str, may_be_deleted: int) -> lines.Found:
        """Only the oldest files may be gone, and the others stand in their order."""
        found = self.bench.look()
        before = self._prepared_lines()
        kept = prepared.kept_lines(found)
        wanted = set(before[may_be_deleted:])
        lost = (wanted | set(range(1, self.work.rotations * ROTATION_LINES + 1))) - set(found.lines)
        if kept != before[len(before) - len(kept):]:
            lost |= wanted
        self.tally.add_losses(f"{self.work.name}, step {self.step}, after {after}", lost,
                              set(found.empty), set(found.corrupt))
        return found

    def _prepared_lines(self) -> list[int]:
        return [prepared.FIRST_LINE + int(path.split(".")[1]) for path in sorted(self.work.files)]

    def _is_half_done(self, found: lines.Found) -> bool:
        deleted = len(self.work.files) - len(prepared.kept_lines(found))
        numbers = boot_numbers(found)
        return (0 < deleted < self.work.deleted
                or numbers != list(range(numbers[0], numbers[0] + len(numbers))))
