# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""A program that logs like a device: several programs and severities, routine and bursts, and now
and then a fault that ends a boot. `history` fills an archive with earlier boots, `Chatter` goes on
logging through /dev/log.
"""
from __future__ import annotations

import lzma
import os
import random
import socket
import threading
import time
from pathlib import Path
from typing import Iterator, NamedTuple

from tests.harness.paths import archive_name

SEVERITIES = ("emerg", "alert", "crit", "err", "warning", "notice", "info", "debug")
FACILITIES = {"kern": 0, "user": 1, "daemon": 3, "auth": 4, "cron": 9, "local0": 16}
HOST = "pump-17"


class Message(NamedTuple):
    facility: str
    severity: str
    tag: str
    text: str

    @property
    def priority(self) -> int:
        return FACILITIES[self.facility] * 8 + SEVERITIES.index(self.severity)


def start_up() -> Iterator[Message]:
    for text in ("Linux version 6.1.55 (aarch64-linux-gnu-gcc 12.2.0) #1 SMP PREEMPT",
                 "Machine model: Pump controller rev C",
                 "Memory: 239620K/262144K available",
                 "mmc0: new HS200 MMC card at address 0001",
                 "EXT4-fs (mmcblk0p4): recovery complete",
                 "EXT4-fs (mmcblk0p4): mounted filesystem with ordered data mode"):
        yield Message("kern", "info", "kernel", text)
    yield Message("daemon", "notice", "networkd[412]", "eth0: link is up, 100 Mbit/s full duplex")
    yield Message("user", "notice", "pumpd[530]", "version 4.2.1 started, last stop was not clean")


def routine(rng: random.Random) -> Message:
    return rng.choice((
        lambda: Message("user", "info", "pumpd[530]",
                        f"pressure {rng.randrange(380, 420)} kPa, flow {rng.randrange(90, 130)} l/h, "
                        f"valve {rng.randrange(8)} at {rng.randrange(101)} %"),
        lambda: Message("user", "debug", "pumpd[530]",
                        f"control loop took {rng.randrange(180, 260)} us"),
        lambda: Message("user", "debug", "sensord[544]",
                        f"sensor {rng.randrange(32)}: raw {rng.randrange(4096):#05x}"),
        lambda: Message("daemon", "info", "ntpd[498]",
                        f"offset {rng.uniform(-3, 3):+.3f} ms, jitter {rng.uniform(0, 1):.3f} ms"),
        lambda: Message("daemon", "info", "networkd[412]",
                        f"dhcp: lease of 10.20.0.{rng.randrange(2, 250)} renewed for 3600 s"),
        lambda: Message("auth", "info", "dropbear[1203]",
                        f"Child connection from 10.20.0.{rng.randrange(2, 250)}:{rng.randrange(30000, 60000)}"),
        lambda: Message("cron", "info", "crond[601]", "USER root pid 2214 cmd /usr/bin/report-state"),
        lambda: Message("user", "notice", "pumpd[530]",
                        f"set point changed to {rng.randrange(380, 420)} kPa by operator"),
        lambda: Message("user", "warning", "sensord[544]",
                        f"sensor {rng.randrange(32)} answered late: {rng.randrange(100, 400)} ms")
        if rng.random() < 0.3 else Message("user", "debug", "watchdog[333]", "fed"),
        lambda: Message("daemon", "err", "modemd[711]", "no carrier, trying again in 30 s")
        if rng.random() < 0.08 else Message("daemon", "debug", "modemd[711]", "signal -71 dBm"),
    ))()


def burst(rng: random.Random) -> Iterator[Message]:
    """A sensor that has come loose."""
    sensor = rng.randrange(32)
    for attempt in range(1, rng.randrange(20, 120)):
        yield Message("user", "warning", "sensord[544]", f"sensor {sensor}: checksum error, attempt {attempt}")
    yield Message("user", "err", "sensord[544]", f"sensor {sensor} given up, its last value stays in use")


def death(rng: random.Random) -> list[Message]:
    """What the last lines of a boot may be; none if the power went away."""
    return rng.choice((
        [],
        [],
        [Message("user", "notice", "pumpd[530]", "stopping on request"),
         Message("daemon", "notice", "init", "The system is going down NOW!")],
        [Message("user", "warning", "pumpd[530]", "allocation of 4194304 bytes failed, report is cut short"),
         Message("kern", "warning", "kernel", "pumpd invoked oom-killer: gfp_mask=0xcc0, order=0"),
         Message("kern", "err", "kernel", "Out of memory: Killed process 530 (pumpd) total-vm:241332kB, anon-rss:187220kB"),
         Message("user", "crit", "watchdog[333]", "pumpd does not feed me, rebooting in 10 s"),
         Message("kern", "emerg", "kernel", "watchdog: watchdog0: watchdog did not stop!")],
        [Message("kern", "err", "kernel", "mmcblk0: error -110 sending stop command"),
         Message("kern", "crit", "kernel", "EXT4-fs error (device mmcblk0p4): ext4_find_entry:1455: inode #131: comm pumpd"),
         Message("kern", "emerg", "kernel", "Kernel panic - not syncing: EXT4-fs: panic forced after error")]))


def line(moment: float, message: Message) -> str:
    stamp = time.strftime("%b %e %H:%M:%S", time.localtime(moment))
    return f"{stamp} {HOST} {message.facility}.{message.severity} {message.tag}: {message.text}\n"


def history(archive: Path, boots: int, lines: int = 4000, seed: int = 17) -> None:
    """Fills an empty archive with the boots 1 to `boots`, of about `lines` lines each, the last one of
    which ended a minute ago."""
    rng = random.Random(seed)
    archive.mkdir(parents=True, exist_ok=True)
    spans = [rng.uniform(0.1, 1) ** 2 * 3 * 86400 / 2 for _ in range(boots)]
    begin = time.time() - 60 - sum(spans) - 90 * boots
    for boot, span in enumerate(spans, 1):
        number = max(60, int(lines * span / 86400))
        messages = [*start_up()]
        while len(messages) < number:
            messages += burst(rng) if rng.random() < 0.001 else [routine(rng)]
        messages += death(rng)
        write_boot(archive, boot, begin, span, messages)
        begin += span + 90


def write_boot(archive: Path, boot: int, begin: float, span: float, messages: list[Message]) -> None:
    size = max(1, -(-len(messages) // 12), 2500)
    step = span / len(messages)
    for first in range(0, len(messages), size):
        part = messages[first:first + size]
        text = "".join(line(begin + (first + i) * step, message) for i, message in enumerate(part))
        up_time = (first + len(part)) * step
        path = archive / archive_name(boot, up_time)
        path.write_bytes(lzma.compress(text.encode(), preset=1))
        os.utime(path, (begin + up_time,) * 2)


def send(text: str) -> None:
    """Logs a line, as syslog(3) does; waits while syslogd is away."""
    while True:
        try:
            with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as log:
                log.connect("/dev/log")
                log.send(text.encode())
                return
        except OSError:
            time.sleep(0.05)


class Chatter(threading.Thread):
    """Logs `rate` lines a second on average through /dev/log, until `stop`."""

    def __init__(self, rate: float = 5) -> None:
        super().__init__(daemon=True)
        self._rate = rate
        self._stopping = threading.Event()

    def stop(self) -> None:
        self._stopping.set()
        self.join()

    def run(self) -> None:
        rng = random.Random()
        for message in start_up():
            send(f"<{message.priority}>{message.tag}: {message.text}")
        while not self._stopping.wait(rng.expovariate(self._rate)):
            for message in burst(rng) if rng.random() < 0.002 else [routine(rng)]:
                send(f"<{message.priority}>{message.tag}: {message.text}")
