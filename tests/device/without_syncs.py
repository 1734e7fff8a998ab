# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""The product as it must not be: a copy whose archiving does not wait for the disk. With it the
power cuts have to lose lines; else they would not prove anything."""
from __future__ import annotations

from rig.emulator import image as images
from rig.emulator.product import BuildError
from tests.harness.tree import Tree


def make_image() -> images.Image:
    tree = Tree(images.FOLDER / "source-without-syncs")
    syncs = {name: "" for name in tree.guards() if name.startswith("sync-")}
    with tree.broken(syncs):
        for path in (tree.folder / "rotate").glob("*.cpp"):
            if "Sync(" in path.read_text():
                raise BuildError(f"a sync in {path} is not marked '// guard: sync-NAME'")
        return images.make(tree.folder, "aarch64-without-syncs")
