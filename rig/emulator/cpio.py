# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Writes a root file system for the kernel to unpack at boot: a cpio archive ("newc").

Owners and device nodes are just numbers in it, so that making one needs no root rights. Archives
may follow each other in one file; what comes later replaces or completes what came before.
"""
from __future__ import annotations

import os
import stat
from pathlib import Path
from typing import BinaryIO


class Writer:
    """Everything belongs to root. The folders that a path needs are made with it."""

    def __init__(self, stream: BinaryIO) -> None:
        self._stream = stream
        self._folders: set[str] = set()
        self._entries = 0

    def folder(self, path: str, mode: int = 0o755) -> None:
        if path not in self._folders:
            self._entry(path, stat.S_IFDIR | mode)
            self._folders.add(path)

    def file(self, path: str, content: bytes, mode: int = 0o644) -> None:
        self._entry(path, stat.S_IFREG | mode, content)

    def link(self, path: str, target: str) -> None:
        self._entry(path, stat.S_IFLNK | 0o777, target.encode())

    def character_device(self, path: str, major: int, minor: int) -> None:
        self._entry(path, stat.S_IFCHR | 0o600, device=(major, minor))

    def tree(self, source: Path) -> None:
        """Everything below the folder `source`."""
        for path in sorted(source.rglob("*")):
            name = str(path.relative_to(source))
            if path.is_symlink():
                self.link(name, os.readlink(path))
            elif path.is_dir():
                self.folder(name)
            else:
                self.file(name, path.read_bytes(), 0o755 if os.access(path, os.X_OK) else 0o644)

    def end(self) -> None:
        self._entry("TRAILER!!!", 0)

    def _entry(self, path: str, mode: int, content: bytes = b"", device: tuple[int, int] = (0, 0)
               ) -> None:
        if mode != 0 and not stat.S_ISDIR(mode):
            for parent in reversed(Path(path).parents):
                self.folder(str(parent))
        self._entries += 1
        name = path.encode() + b"\0"
        fields = (self._entries, mode, 0, 0, 1, 0, len(content), 0, 0, *device, len(name), 0)
        header = b"070701" + b"".join(b"%08x" % field for field in fields)
        self._padded(header + name)
        self._padded(content)

    def _padded(self, data: bytes) -> None:
        self._stream.write(data + bytes(-len(data) % 4))
