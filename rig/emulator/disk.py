# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""The device's disk: ext4 in a sparse file. It is made and read without mounting it, and so without
root rights."""
from __future__ import annotations

import subprocess
from pathlib import Path

SIZE = "2G"


def make(disk: Path, content: Path | None = None) -> None:
    """`content`: a folder with what the disk holds at first. What is a hole there is one here."""
    disk.unlink(missing_ok=True)
    # A new file reads as zeros: nothing of the journal needs to be written.
    options = "lazy_journal_init=1,root_owner=0:0"
    populate = ["-d", str(content)] if content else []
    subprocess.run(["/sbin/mke2fs", "-q", "-t", "ext4", "-E", options, *populate, str(disk), SIZE],
                   check=True, stdout=subprocess.DEVNULL)


def copy(disk: Path, to: Path) -> None:
    """As the disk would be found after a power cut: what its journal holds is applied."""
    subprocess.run(["cp", "--sparse=always", str(disk), str(to)], check=True)
    done = subprocess.run(["/sbin/e2fsck", "-y", "-E", "journal_only", str(to)],
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    if done.returncode > 1:
        raise RuntimeError(f"e2fsck: {done.stdout}")


def extract(disk: Path, path: str, into: Path) -> None:
    """Copies the folder `path` of the disk into the folder `into`."""
    into.mkdir(parents=True, exist_ok=True)
    # It complains where it may not change owners, and succeeds in any case.
    subprocess.run(["/sbin/debugfs", "-R", f"rdump {path} {into}", str(disk)], check=True,
                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
