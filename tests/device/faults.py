# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""A disk that is full, turns read-only, or is not there: the daemon ends, the init script's status
says so, and nothing is lost."""
from __future__ import annotations

import re

from tests.device.fixture import LOG, Device, Fixture, check
from tests.harness.numbered import logged, ranges

ROTATION_LINES = 2000
SERVICE = "etc/init.d/S90vandis-moraine"
PREPARE = "etc/init.d/S50prepare"

ROTATION = "root/rotation"
ADD_ROTATION = f"cp /{ROTATION} {LOG}/messages.txt.0"
UNTIL_ENDED = "while pidof vandis-moraine >/dev/null; do sleep 0.5; done"
# Also what is reserved for root, to the last block.
FILL = """
size=2048
while [ "$size" -gt 0 ]; do
	fallocate -l "${size}M" "/perm/filler.$size" 2>/dev/null || rm -f "/perm/filler.$size"
	size=$((size / 2))
done
dd if=/dev/zero of=/perm/filler bs=4k 2>/dev/null
"""


def full_disk(fixture: Fixture) -> str:
    fixture.make_disk()
    script = f'#!/bin/sh\n[ "$1" = start ] || exit 0\n{ADD_ROTATION}\nsync\n{FILL}\ntrue\n'
    with fixture.boot({PREPARE: script.encode(), ROTATION: logged(1, ROTATION_LINES)}) as device:
        _wait_until_ended(device)
        check(device.run(f"ls {LOG}").count(".xz") == 0, "a compressed file is left over")
        device.run("rm /perm/filler*")
        device.run(f"/{SERVICE} start")
        device.wait_for(f"ls {LOG}/archive/*.xz && [ ! -e {LOG}/messages.txt.0 ]")
        device.power_off()
    _check_nothing_lost(fixture)
    return "the daemon ended, and went on when there was room again"


def read_only_in_flight(fixture: Fixture) -> str:
    fixture.make_disk()
    with fixture.boot({ROTATION: logged(1, ROTATION_LINES)}) as device:
        # Without a pause: compressing takes less than a second.
        device.run(f"{ADD_ROTATION}; sync; until [ -e {LOG}/messages.txt.0.xz ]; do :; done; "
                   "echo u >/proc/sysrq-trigger")
        _wait_until_ended(device)
        device.run(f"ls {LOG}/*.xz")  # what is left over cannot be taken away
        _check_start_fails(device)
        device.cut()
    with fixture.boot() as device:
        device.wait_for(f"ls {LOG}/archive/*.xz && [ ! -e {LOG}/messages.txt.0 ]")
        device.power_off()
    check(not device.failed_services(), str(device.failed_services()))
    _check_nothing_lost(fixture)
    return "the daemon ended, and went on after the next boot"


def missing_disk(fixture: Fixture) -> str:
    with fixture.boot(with_disk=False) as device:
        failed = device.failed_services()
        check(any(re.search("S01syslogd-moraine start: status 1$", line) for line in failed),
              f"init reports {failed}")
        _check_start_fails(device)
        check(device.run("ls /perm") == "", "something was written to the folder /perm")
        device.power_off()
    check(len(device.failed_services()) == len(failed),
          f"what was not started does not stop: {device.failed_services()}")
    return "syslogd and the daemon refused to start, and wrote nothing"


def _check_start_fails(device: Device) -> None:
    """The script gives the daemon a moment to fail. On a busy machine that may be too short, but not
    each time."""
    start = f"/{SERVICE} start; status=$?; {UNTIL_ENDED}; (exit $status)"
    check(any(device.status(start)[0] == 1 for _ in range(10)), "ten starts that must fail did not")


def _wait_until_ended(device: Device) -> None:
    device.run(UNTIL_ENDED)


def _check_nothing_lost(fixture: Fixture) -> None:
    found = fixture.look()
    lost = found.lost(range(1, ROTATION_LINES + 1))
    check(not lost, f"lost lines {ranges(lost)}")
    check(not found.empty + found.corrupt, f"damaged: {found.empty + found.corrupt}")
    check(found.duplicated == 0, f"{found.duplicated} lines are there twice")
