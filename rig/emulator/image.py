# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""What the emulator boots: a kernel, and a root file system that holds BusyBox, xz, tar and the
product. All of it is made below build/device and kept there; what is there is not made again.
"""
from __future__ import annotations

import dataclasses
import fcntl
import io
import lzma
import re
import subprocess
from pathlib import Path
from typing import Callable, Iterator, Sequence

from rig.emulator import cpio, product
from rig.emulator.packages import Packages
from tests.harness.paths import ROOT

FOLDER = ROOT / "build/device"
SKELETON = Path(__file__).parent / "root"
BUSYBOX = ROOT / "build/busybox-aarch64-linux-gnu/busybox"

TOOLS = "aarch64-linux-gnu-"
PROGRAMS = {"xz-utils": "usr/bin/xz", "tar": "bin/tar"}
MODULES = ("virtio_ring", "virtio", "virtio_mmio", "virtio_blk")

Say = Callable[[str], None]


def say(what: str) -> None:
    print(f"device: {what}", flush=True)


@dataclasses.dataclass
class Image:
    """`initramfs` None: the root file system is on the disk."""
    kernel: Path
    initramfs: Path | None
    arguments: str = "rdinit=/sbin/init"


def make(source: Path = ROOT, name: str = "aarch64") -> Image:
    """The device with the product of the folder `source`, which is built in build/`name`."""
    FOLDER.mkdir(parents=True, exist_ok=True)
    with (FOLDER / "lock").open("w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        _fetch_packages()
        subprocess.run([str(ROOT / "rig/build-busybox"), "--cross", TOOLS, str(BUSYBOX.parent)],
                       check=True)
        build = ROOT / "build" / name
        if not (build / "build.ninja").exists():
            say("building the daemon for 64-bit Arm")
        product.install(source, build, FOLDER / name)
        initramfs = FOLDER / f"{name}.cpio"
        with initramfs.open("wb") as file:
            _write_root(cpio.Writer(file), FOLDER / name)
    return Image(_kernel(), initramfs)


def built_by_buildroot(folder: Path) -> Image:
    """What packaging/buildroot's example makes in output/images; the disk stands beside it."""
    return Image(folder / "Image", None, "root=/dev/vda1 rw")


def overlay(files: dict[str, bytes]) -> bytes:
    """More of a root file system, for the emulator to add to an image's: executable files."""
    stream = io.BytesIO()
    writer = cpio.Writer(stream)
    for path, content in files.items():
        writer.file(path, content, 0o755)
    writer.end()
    return stream.getvalue()


def _fetch_packages() -> None:
    packages = Packages(FOLDER / "packages")
    wanted = FOLDER / "programs", FOLDER / "kernel"
    if all(folder.exists() for folder in wanted):
        return
    say("fetching the kernel, xz, tar and their libraries (about 30 MB)")
    packages.update()
    packages.unpack(packages.with_dependencies(["libstdc++6", *PROGRAMS]), wanted[0])
    kernel = packages.dependency("linux-image-cloud-arm64", "linux-image-")
    packages.unpack([kernel], wanted[1])


def _kernel() -> Path:
    return next((FOLDER / "kernel/boot").glob("vmlinuz-*"))


def _write_root(root: cpio.Writer, installed: Path) -> None:
    for folder in ("dev", "perm", "proc", "root", "run", "sys", "tmp", "var"):
        root.folder(folder)
    root.link("var/run", "../run")
    root.character_device("dev/console", 5, 1)  # needed before /dev is mounted
    root.tree(SKELETON)

    root.file("bin/busybox", BUSYBOX.read_bytes(), 0o755)
    root.link("bin/sh", "busybox")
    root.link("sbin/init", "../bin/busybox")

    root.tree(installed)
    programs = [_unpacked(path) for path in PROGRAMS.values()]
    for program in programs:
        root.file(f"usr/bin/{program.name}", program.read_bytes(), 0o755)
    root.link("bin/tar", "../usr/bin/tar")  # or BusyBox would put its own there
    for path, content in libraries([*programs, *installed.rglob("sbin/*")]).items():
        root.file(path, content, 0o755)

    for module in MODULES:
        for file in (FOLDER / "kernel").rglob(f"{module}.ko*"):
            content = file.read_bytes()
            root.file(f"lib/modules/{module}.ko",
                      lzma.decompress(content) if file.suffix == ".xz" else content)
    root.end()


def libraries(programs: Sequence[Path]) -> dict[str, bytes]:
    """The libraries that the programs need, and that those need, and the loader: by their paths in
    the device."""
    found: dict[str, bytes] = {}
    unseen = list(programs)
    while unseen:
        for name in _needed(unseen.pop()):
            path = f"lib/{name}"
            if path not in found:
                library = _library(name)
                found[path] = library.read_bytes()
                unseen.append(library)
    return found


def _needed(file: Path) -> Iterator[str]:
    done = subprocess.run([f"{TOOLS}readelf", "-d", str(file)], check=True, text=True,
                          stdout=subprocess.PIPE)
    return (match[1] for match in re.finditer(r"\(NEEDED\).*\[(.*)\]", done.stdout))


def _library(name: str) -> Path:
    return next(_unpacked(folder) / name for folder in ("lib/aarch64-linux-gnu",
                                                        "usr/lib/aarch64-linux-gnu", "lib")
                if (_unpacked(folder) / name).exists())


def _unpacked(path: str) -> Path:
    """A file of the packages; where it is depends on whether the release has merged /usr."""
    folder = FOLDER / "programs"
    return folder / path if (folder / path).exists() else folder / "usr" / path
