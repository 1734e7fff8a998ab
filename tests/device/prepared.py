# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Archives near their limits, as a disk may hold them after years."""
from __future__ import annotations

import lzma

from tests.device.found import Found
from tests.harness.numbered import logged
from tests.harness.paths import archive_name

# Numbers that no other lines of a test have: boot N holds the line FIRST_LINE + N.
FIRST_LINE = 1_000_000

# By their paths below the log's folder: contents, or contents and the size to which a hole fills
# them up.
Files = "dict[str, Union[bytes, tuple[bytes, int]]]"


def boots(first: int, last: int) -> Files:
    """One small file of each boot."""
    return {path(boot): lzma.compress(logged(FIRST_LINE + boot, FIRST_LINE + boot))
            for boot in range(first, last + 1)}


def big_files(count: int, size: int) -> Files:
    """Files of `size` bytes each, one of each boot. They are valid xz files that take next to no
    space: padding may follow what is compressed if it is zeros and of a multiple of four bytes, and
    here it is a hole."""
    return {path: (data, size // 4 * 4) for path, data in boots(1, count).items()}


def path(boot: int) -> str:
    return f"archive/{archive_name(boot, 30)}"


def kept_lines(found: Found) -> list[int]:
    """The lines of the prepared files that are left, in the order of the files' names."""
    return [number for name in sorted(found.archive) for number in found.archive[name]
            if number >= FIRST_LINE]
