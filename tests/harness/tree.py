# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""A copy of the project, to be broken.

Lines of the product that a test breaks end in a comment `// guard: NAME`, which names them wherever
they go.
"""
from __future__ import annotations

import contextlib
import re
import shutil
import subprocess
from pathlib import Path
from typing import Iterator, Mapping

from tests.harness.paths import ROOT

GUARD = re.compile(r"// guard: ([\w-]+)$", re.MULTILINE)
CONDITION = re.compile(r"if \((.*)\) return .*$")
IGNORED = "IGNORED"


class Tree:
    """A fresh copy of the project in `folder`, with the BusyBox that was built for this one."""

    def __init__(self, folder: Path) -> None:
        self.folder = folder
        shutil.rmtree(folder, ignore_errors=True)
        # With today's times: what was built of an earlier copy is older.
        shutil.copytree(ROOT, folder, ignore=shutil.ignore_patterns("build", ".git"),
                        copy_function=shutil.copy)
        (folder / "build").mkdir()
        (folder / "build/busybox").symlink_to(ROOT / "build/busybox")

    @contextlib.contextmanager
    def changed(self, file: str, text: str) -> Iterator[None]:
        """Inside a `with` block, `file` holds `text`."""
        path = self.folder / file
        original = path.read_text()
        path.write_text(text)
        try:
            yield
        finally:
            path.write_text(original)

    def guards(self) -> list[str]:
        """Returns the names of all guards."""
        return [name for path in self._sources() for name in GUARD.findall(path.read_text())]

    @contextlib.contextmanager
    def broken(self, changes: Mapping[str, str]) -> Iterator[None]:
        """Inside a `with` block, the line of each guard is its replacement (IGNORED: its condition is
        evaluated, but has no consequence)."""
        with contextlib.ExitStack() as stack:
            for name, replacement in changes.items():
                path, line = self._find(name)
                if replacement == IGNORED:
                    replacement = CONDITION.sub(r"(void)(\1);", line)
                text = path.read_text().replace(line, replacement)
                stack.enter_context(self.changed(str(path.relative_to(self.folder)), text))
            yield

    def _find(self, name: str) -> tuple[Path, str]:
        line = re.compile(rf"^.*// guard: {name}$", re.MULTILINE)
        found = [(path, match) for path in self._sources()
                 for match in line.findall(path.read_text())]
        if len(found) != 1:
            raise LookupError(f"{len(found)} lines of the product end in '// guard: {name}'")
        return found[0]

    def _sources(self) -> list[Path]:
        return [path for path in sorted(self.folder.glob("*/*.cpp"))
                if path.parent.name not in ("tests", "build")]


def quietly(*argv: str, timeout: float | None = None) -> bool:
    """Runs a command without its output. Returns whether it succeeded in time."""
    try:
        return subprocess.run(argv, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              timeout=timeout).returncode == 0
    except subprocess.TimeoutExpired:
        return False
