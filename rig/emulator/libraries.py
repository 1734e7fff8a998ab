# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""What the command `moraine` needs to be built for 64-bit Arm, and the cross compiler's packages do
not have: liblzma, static and shared, below build/aarch64-libraries, where
cmake/aarch64-linux-gnu.cmake looks for it.

Usage: python3 -m rig.emulator.libraries
"""
from __future__ import annotations

import fcntl
import sys
from pathlib import Path

from rig.emulator.packages import FetchError, Packages

BUILD = Path(__file__).resolve().parents[2] / "build"
LIBRARIES = BUILD / "aarch64-libraries"


def fetch() -> None:
    """What is there is not fetched again."""
    if LIBRARIES.exists():
        return
    folder = BUILD / "aarch64-packages"
    folder.mkdir(parents=True, exist_ok=True)
    with (folder / "lock").open("w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if not LIBRARIES.exists():
            print("Fetching liblzma for 64-bit Arm", flush=True)
            packages = Packages(folder)
            packages.update()
            packages.unpack(["liblzma-dev", "liblzma5"], LIBRARIES)


if __name__ == "__main__":
    try:
        fetch()
    except FetchError as error:
        sys.exit(f"install-packages: {error}")
