# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""What a disk holds of the log."""
from __future__ import annotations

from pathlib import Path
from typing import Iterable

from tests.harness.numbered import Verdict, log_files


class Found:
    def __init__(self, log: Path) -> None:
        self._files = [file.read() for file in log_files(log)]
        in_archive = [file for file in self._files if file.place == "archive"]
        # The numbered lines of each archive file, by its name.
        self.archive = {file.path.name: list(file.numbers) for file in in_archive}
        self.empty = [file.path.name for file in in_archive if file.size == 0]
        self.corrupt = [file.path.name for file in in_archive if file.damaged and file.size != 0]
        self.leftovers = [file.path.name for file in self._files
                          if file.place == "leftovers" and file.path.suffix in (".xz", ".tmp")]
        self.daemon_lines = [line for file in self._files for line in file.daemon_lines]
        self.duplicated = Verdict((), self._files).duplicated

    def lost(self, wanted: Iterable[int]) -> set[int]:
        """Returns those of the numbered lines `wanted` that are nowhere."""
        return set(Verdict(wanted, self._files).lost)
