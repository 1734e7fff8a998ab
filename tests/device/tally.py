# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""What power cuts have done."""
from __future__ import annotations

import collections
import dataclasses

from tests.harness.numbered import ranges


@dataclasses.dataclass
class Tally:
    """`half_done` is no flaw: the next start finishes or takes back what was interrupted."""

    cuts: int = 0
    moments: collections.Counter[str] = dataclasses.field(default_factory=collections.Counter)
    half_done: int = 0  # cuts that were found to have interrupted something
    with_losses: int = 0  # cuts
    synced: int = 0  # lines
    lost: int = 0
    duplicated: int = 0  # lines, after the last start
    empty: int = 0  # archive files
    corrupt: int = 0
    refused: int = 0  # starts that failed
    unhealed: int = 0  # leftovers that a start did not take away
    notes: list[str] = dataclasses.field(default_factory=list)

    def add(self, other: Tally) -> None:
        for field in dataclasses.fields(self):
            setattr(self, field.name, getattr(self, field.name) + getattr(other, field.name))

    def add_losses(self, what: str, lost: set[int], empty: set[str], corrupt: set[str]) -> None:
        """What a cut has been found to have done."""
        self.with_losses += bool(lost)
        self.lost += len(lost)
        self.empty += len(empty)
        self.corrupt += len(corrupt)
        if lost or empty or corrupt:
            damaged = ", ".join(sorted(empty | corrupt)) or "none"
            self.notes.append(f"{what}: lost lines {', '.join(ranges(lost)) or 'none'}; "
                              f"damaged files: {damaged}")

    @property
    def flaws(self) -> int:
        return self.lost + self.duplicated + self.empty + self.corrupt + self.refused + self.unhealed

    def __str__(self) -> str:
        moments = "".join(f"  {count:4} {name}\n" for name, count in sorted(self.moments.items()))
        return (f"{self.cuts} cuts, {self.half_done} of them found to have interrupted something, "
                f"{self.with_losses} with losses:\n{moments}"
                f"{self.synced} lines synced, {self.lost} lost, {self.duplicated} duplicated\n"
                f"{self.empty} archive files empty, {self.corrupt} corrupt\n"
                f"{self.refused} starts refused, {self.unhealed} leftovers not healed")
