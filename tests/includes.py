# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Checks what each folder of the product includes against the dependency rule of
docs/architecture.md, and that every own header is included by its path from the root."""
from __future__ import annotations

import re
import sys
from pathlib import Path
from typing import Iterator

from tests.harness.paths import ROOT

# The constants live in daemon/, know nothing, and are a room of their own here.
CONSTANTS = ("daemon/moraine.h", "daemon/moraine.cpp")
CORE = {"util", "logging", "futils", "constants", "logfileutils"}
KNOWS = {
    "constants": set(),
    "util": set(),
    "logging": {"util"},
    "futils": {"util", "logging"},
    "logfileutils": CORE,
    "rotate": CORE,
    "daemon": CORE | {"rotate"},
    "reader": {"constants"},
    "tool": {"reader", "constants"},
    "logpage": {"reader", "constants"},
}
INCLUDE = re.compile(r'^\s*#\s*include\s+(["<])([^">]*)[">]')


def room_of(path: str) -> str:
    return "constants" if path in CONSTANTS else path.split("/")[0]


def complaints(path: Path) -> Iterator[str]:
    file = str(path.relative_to(ROOT))
    room = room_of(file)
    for number, line in enumerate(path.read_text().splitlines(), 1):
        include = INCLUDE.match(line)
        if not include:
            continue
        quote, header = include.groups()
        if quote == "<" and room_of(header) not in KNOWS:
            continue
        if quote == "<" or header.startswith((".", "/")) or not (ROOT / header).is_file():
            yield f'{file}:{number}: {header} is not written as "FOLDER/FILE.h", from the root'
        elif room in KNOWS and room_of(header) not in KNOWS[room] | {room}:
            yield f"{file}:{number}: {room} may not know {room_of(header)} ({header})"


def main() -> int:
    files = sorted(path for folder in [*KNOWS, "tests", "benchmarks"]
                   for path in (ROOT / folder).rglob("*") if path.suffix in (".h", ".cpp"))
    found = [complaint for path in files for complaint in complaints(path)]
    print(*found, sep="\n", end="\n" if found else "")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
