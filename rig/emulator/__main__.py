# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""The command ./device."""
from __future__ import annotations

import argparse
import re
import subprocess
import sys
import tempfile
from pathlib import Path

from rig.emulator import disk as disks
from rig.emulator import image as images
from rig.emulator import qemu
from rig.emulator.emulator import Emulator, EmulatorError
from rig.emulator.packages import FetchError
from rig.emulator.product import BuildError

DEFAULT_DISK = images.FOLDER / "perm.img"

DESCRIPTION = """\
Boots an emulated 64-bit Arm device with the product on it: Debian's kernel, BusyBox init, the
product's init scripts, the command moraine, the log page, and a 2 GiB ext4 disk at /perm. Gives a
shell on its serial console.

What it needs is fetched and built on the first call (a few minutes, most of it BusyBox and the
daemon), kept in build/device, and not built again. It installs nothing on this machine but the
packages that rig/install-packages names."""


def parse() -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        prog="./device", description=DESCRIPTION,
        formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--run", metavar="SCRIPT", type=Path,
                        help="run this script in the device, power off, and end with its status")
    parser.add_argument("--disk", metavar="FILE", type=Path, default=DEFAULT_DISK,
                        help="the disk's image; made if it is not there, and kept "
                        "(default: build/device/perm.img)")
    parser.add_argument("--new-disk", action="store_true", help="begin with an empty disk")
    parser.add_argument("--image", metavar="DIR", type=Path,
                        help="boot what Buildroot has built in this folder, output/images of its "
                        "tree, from its own disk; log in as root")
    parser.add_argument("--build-only", action="store_true",
                        help="fetch and build what is needed, and no more")
    options = parser.parse_args()
    # Before anything is built, or the disk made anew.
    if options.run and not options.run.is_file():
        parser.error(f"--run: there is no file {options.run}")
    if options.image and not (options.image / "disk.img").is_file():
        parser.error(f"--image: there is no disk.img in {options.image}")
    if options.image and (options.run or options.new_disk or options.build_only):
        parser.error("--image goes with no option but --disk")
    return options


def shell(image: images.Image, disk: Path) -> int:
    images.say("booting; `poweroff` ends it in good order, Ctrl-A X cuts the power")
    return subprocess.run(qemu.command(image, image.initramfs, disk, "mon:stdio")).returncode


def run(image: images.Image, disk: Path, script: Path) -> int:
    status: list[int] = []

    def show(line: str) -> None:
        match = re.search(r"@device status (\d+)", line)
        if match:
            status.append(int(match[1]))
        else:
            print(line, flush=True)

    with tempfile.TemporaryDirectory(prefix="device-") as folder:
        files = {"root/script": script.read_bytes()}
        with Emulator(image, disk, Path(folder), files, echo=show) as device:
            device.wait_until_off(timeout=24 * 3600)
    if not status:
        raise EmulatorError("the device went off before the script had ended")
    return status[0]


def boot_image(folder: Path, disk: Path) -> int:
    return shell(images.built_by_buildroot(folder),
                 folder / "disk.img" if disk == DEFAULT_DISK else disk)


def main() -> int:
    options = parse()
    if options.image:
        return boot_image(options.image, options.disk)
    image = images.make()
    if options.build_only:
        return 0
    if options.new_disk or not options.disk.exists():
        disks.make(options.disk)
    if options.run:
        return run(image, options.disk, options.run)
    return shell(image, options.disk)


try:
    sys.exit(main())
except KeyboardInterrupt:
    sys.exit(130)
except (BuildError, EmulatorError, FetchError, OSError, subprocess.CalledProcessError) as error:
    sys.exit(f"device: {error}")
