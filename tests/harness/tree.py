"""A copy of the project, to be broken."""
from __future__ import annotations

import contextlib
import shutil
import subprocess
from pathlib import Path
from typing import Iterator

from tests.harness.paths import ROOT


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


def quietly(*argv: str, timeout: float | None = None) -> bool:
    """Runs a command without its output. Returns whether it succeeded in time."""
    try:
        return subprocess.run(argv, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              timeout=timeout).returncode == 0
    except subprocess.TimeoutExpired:
        return False
