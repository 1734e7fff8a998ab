# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""The emulator's command line."""
from __future__ import annotations

from pathlib import Path

from rig.emulator.image import Image

MEMORY_MIB = 256


def command(image: Image, initramfs: Path | None, disk: Path | None, serial: str = "stdio",
            memory_mib: int = MEMORY_MIB) -> list[str]:
    """`disk` None: a device whose disk is missing. Writes of the guest reach the host's cache at
    once: what the guest had written stays when the emulator is killed, what it still held in its
    own memory is gone. That is a power cut."""
    drive = [] if disk is None else [
        "-drive", f"if=none,id=disk,format=raw,cache=writeback,file={disk}",
        "-device", "virtio-blk-device,drive=disk"]
    initrd = [] if initramfs is None else ["-initrd", str(initramfs)]
    return ["qemu-system-aarch64", "-machine", "virt", "-cpu", "cortex-a53",
            "-m", str(memory_mib), "-nodefaults", "-display", "none", "-no-reboot",
            "-serial", serial, *drive,
            "-kernel", str(image.kernel), *initrd,
            "-append", f"console=ttyAMA0 quiet {image.arguments}"]
