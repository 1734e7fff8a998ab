"""The product as it must not be: a copy whose archiving does not wait for the disk. With it the
power cuts have to lose lines; else they would not prove anything."""
from __future__ import annotations

import re
from pathlib import Path

from rig.emulator import image as images
from rig.emulator.product import BuildError
from tests.harness.tree import Tree

NAME = "aarch64-without-syncs"
SYNCS = (
    (r"Futils::Sync\(Compressed\(\)\) \|\| ", ""),
    (r"\n *if \(Futils::Sync\(Moraine::ArchPathAbs\)\) return Outcome::Failed;", ""),
)


def make_image() -> images.Image:
    copy = images.FOLDER / "source-without-syncs"
    Tree(copy)
    _take_syncs_out(copy / "rotate/archive.cpp")
    return images.make(copy, NAME)


def _take_syncs_out(file: Path) -> None:
    text = file.read_text()
    for pattern, replacement in SYNCS:
        text, count = re.subn(pattern, replacement, text)
        if count != 1:
            raise BuildError(f"{pattern!r} matches {count} times in rotate/archive.cpp; "
                               "tests/device/without_syncs.py has to follow what it says now")
    if "Sync(" in text:
        raise BuildError("rotate/archive.cpp syncs at more places than "
                           "tests/device/without_syncs.py knows of")
    file.write_text(text)
