# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Boots an image that Buildroot has built, and uses the product on it. See --help."""
from __future__ import annotations

import argparse
import subprocess
import sys
import tempfile
from pathlib import Path

from rig.emulator import image as images
from rig.emulator.emulator import Emulator, EmulatorError

DESCRIPTION = """\
Boots the image in DIR, output/images of a Buildroot tree, from a copy of its disk: logs 3000 lines
through syslogd, waits for the daemon to archive them, looks for each in the archive and the live log,
packs a download as the library does, powers off, and looks again in a second boot."""

LINES = 3000
# Emulated, on a machine that may be busy.
PATIENCE = 300
LOG = "/perm/logs/syslog"
SETTINGS = "/etc/default/syslogd-moraine"


class Device:
    """A shell on the image's serial console."""

    def __init__(self, emulator: Emulator) -> None:
        self._emulator = emulator
        self._commands = 0

    def log_in(self) -> None:
        self._emulator.expect("Starting vandis-moraine: OK", PATIENCE)
        # The prompt has no end of line, so it arrives with what is typed next.
        self._type_until("", "login:")
        self._emulator.send("root")
        self._type_until("echo @ready $((1 + 1))", "@ready 2")
        # Without echo, a command's own text is not taken for its result.
        self._emulator.send("stty -echo; PS1=; PS2=")
        self.run("true")

    def _type_until(self, line: str, answer: str) -> None:
        """What is typed before a program reads the console may be dropped: types it again."""
        for attempt in range(PATIENCE // 10):
            self._emulator.send(line)
            try:
                self._emulator.expect(answer, 10)
                return
            except EmulatorError:
                if attempt == PATIENCE // 10 - 1:
                    raise

    def run(self, command: str) -> str:
        """What the command prints. Fails if it does not succeed."""
        self._commands += 1
        since = len(self._emulator.lines)
        self._emulator.send(f"{{ {command}; }} 2>&1; echo \"@{self._commands} status $?\"")
        match = self._emulator.expect(f"@{self._commands} status ([0-9]+)", PATIENCE, since)
        lines = self._emulator.lines[since:]
        end = next(i for i, line in enumerate(lines) if f"@{self._commands} status" in line)
        output = "\n".join(lines[:end])
        if match[1] != "0":
            raise SystemExit(f"FAILED: {command}: status {match[1]}\n{output}")
        return output

    def wait_until(self, condition: str) -> None:
        self.run(f"n=0; until {condition} || [ $n -ge 600 ]; do n=$((n + 1)); sleep 0.5; done; "
                 f"{condition}")

    def power_off(self) -> None:
        self._emulator.send("poweroff")
        self._emulator.wait_until_off(PATIENCE)


def ok(claim: str) -> None:
    print(f"ok: {claim}", flush=True)


def check_every_line(device: Device) -> None:
    """Compares the numbers of all numbered lines, in the archive and beside it, with 1 to LINES."""
    device.run(
        f"{{ for f in {LOG}/archive/*.xz; do xzcat $f; done; cat {LOG}/messages.txt*; }} | "
        "sed -n 's/.*numbered: line \\([0-9]*\\).*/\\1/p' | sort -n >/tmp/kept; "
        f"seq {LINES} | cmp - /tmp/kept")
    ok(f"each of {LINES} lines is in the archive or in the log, once")


def check_first_boot(device: Device) -> None:
    device.run("mountpoint -q /perm")
    ok("/perm is a partition of its own")
    device.run("[ -S /dev/log ] && ! [ -e /etc/init.d/S01syslogd ]")
    ok("one syslogd keeps the log")
    device.run("tar --version | grep -q GNU && xz --version >/dev/null")
    ok("tar and xz are there")

    # All of the burst has to find room in ten rotations.
    device.run(f"echo ROTATION_KB=64 >>{SETTINGS} && /etc/init.d/S01syslogd-moraine restart")
    device.run(f"seq {LINES} | sed 's/.*/line & ..................................................../'"
               " | logger -t numbered")
    device.wait_until(f"ls {LOG}/archive/*.xz >/dev/null 2>&1 && ! [ -e {LOG}/messages.txt.0 ]")
    check_every_line(device)
    device.run(f'[ "$(moraine -c -t numbered)" -eq {LINES} ]')
    ok("moraine finds each of them, too")

    # As the library's download does: the archive's files are appended to a tar file.
    device.run(f"cd {LOG}/archive && tar -cf /tmp/download.tar -T /dev/null && "
               "for f in *.xz; do tar -rf /tmp/download.tar $f || break; done && "
               "ls *.xz >/tmp/names && tar -tf /tmp/download.tar | cmp - /tmp/names")
    ok("its tar appends to a download")

    pid = device.run("cat /var/run/vandis-moraine.pid").strip()
    memory = device.run(f"sed -n 's/^VmRSS:[^0-9]*//p' /proc/{pid}/status").strip()
    size = device.run("wc -c </usr/sbin/vandis-moraine").strip()
    print(f"(the daemon: {size} bytes on the disk, {memory} resident)")


def check_second_boot(device: Device) -> None:
    check_every_line(device)
    ended = device.run(f"for f in {LOG}/archive/*.xz; do xzcat $f; done | cat - {LOG}/messages.txt* | "
                       "grep -c 'vandis-moraine exiting with code: 0'").strip()
    if int(ended) < 1:
        raise SystemExit("FAILED: the daemon did not end in good order")
    ok("the daemon ended in good order before the power went")


def main() -> int:
    parser = argparse.ArgumentParser(prog="python3 -m tests.packaging.boot_image",
                                     description=DESCRIPTION)
    parser.add_argument("images", metavar="DIR", type=Path)
    options = parser.parse_args()
    image = images.built_by_buildroot(options.images)
    with tempfile.TemporaryDirectory(prefix="image-") as folder:
        disk = Path(folder) / "disk.img"
        subprocess.run(["cp", "--sparse=always", str(options.images / "disk.img"), str(disk)],
                       check=True)
        for check in (check_first_boot, check_second_boot):
            with Emulator(image, disk, Path(folder)) as emulator:
                device = Device(emulator)
                device.log_in()
                check(device)
                device.power_off()
    return 0


if __name__ == "__main__":
    sys.exit(main())
