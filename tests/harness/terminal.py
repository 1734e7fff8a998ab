# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""A terminal of its own for a program, inside a sandbox."""
from __future__ import annotations

import fcntl
import os
import struct
import subprocess
import termios
from pathlib import Path


class Terminal:
    """`slave` is for the program, and `read_all` returns what came out until the program had closed it.
    """

    def __init__(self) -> None:
        pts, ptmx = Path("/dev/pts"), Path("/dev/ptmx")
        if not pts.is_mount():  # as in a new sandbox
            pts.mkdir(exist_ok=True)
            subprocess.run(["mount", "-t", "devpts", "-o", "newinstance,ptmxmode=0666,mode=0620",
                            "devpts", str(pts)], check=True)
            ptmx.unlink(missing_ok=True)
            ptmx.symlink_to("pts/ptmx")
        self.master, self.slave = os.openpty()

    def close(self) -> None:
        os.close(self.master)

    def resize(self, columns: int, rows: int) -> None:
        fcntl.ioctl(self.slave, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))

    def read_all(self) -> str:
        printed = b""
        try:
            while chunk := os.read(self.master, 65536):
                printed += chunk
        except OSError:  # the last program has closed it
            pass
        return printed.decode(errors="surrogateescape")
