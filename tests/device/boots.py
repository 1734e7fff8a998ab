# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Boots and shutdowns in good order, with log traffic."""
from __future__ import annotations

from tests.device import limits, prepared
from tests.device.fixture import LOG, Device, Fixture, check
from tests.device.found import Found
from tests.harness.numbered import message, ranges

LINES_PER_BOOT = 1500
# Small rotations, so that few lines make several.
SETTINGS = {"etc/default/syslogd-moraine": b"ROTATION_KB=64\n"}


def clean_boots(fixture: Fixture, boots: int = 3) -> str:
    fixture.make_disk()
    for boot in range(1, boots + 1):
        _boot_and_log(fixture, boot)
        found = fixture.look()
        check(max(limits.boot_numbers(found), default=0) == boot,
              f"boot {boot} archived as boot {limits.boot_numbers(found)[-1:]}")
        _check_shutdowns(found, boot)
    return f"{boots} boots, {boots * LINES_PER_BOOT} lines, each kept once"


def past_the_last_boot_number(fixture: Fixture) -> str:
    last = limits.MAX_BOOT - 2
    fixture.make_disk(prepared.boots(1, last))
    for boot in range(3):
        _boot_and_log(fixture, boot + 1)
    found = fixture.look()
    _check_shutdowns(found, 3)
    # The third of these boots found all numbers in use.
    deleted = limits.BOOTS_DELETED_AT_ONCE
    check(prepared.kept_lines(found) == [
        prepared.FIRST_LINE + boot for boot in range(deleted + 1, last + 1)],
        f"{len(prepared.kept_lines(found))} prepared files are left, or not in their old order")
    wanted = set(range(1, limits.MAX_BOOT - deleted + 2))
    check(set(limits.boot_numbers(found)) == wanted,
          f"the boot numbers are {ranges(set(limits.boot_numbers(found)))}")
    return f"boot numbers 998, 999, then {deleted} boots deleted and the rest renumbered"


def past_the_size_limit(fixture: Fixture) -> str:
    count = 97
    fixture.make_disk(limits.files_below_size_limit(count))
    _boot_and_log(fixture, 1)
    found = fixture.look()
    _check_shutdowns(found, 1)
    deleted = limits.files_to_delete(count)
    check(prepared.kept_lines(found) == [
        prepared.FIRST_LINE + boot for boot in range(deleted + 1, count + 1)],
        f"{len(prepared.kept_lines(found))} of {count} prepared files are left, "
        f"and {deleted} were to be deleted")
    return f"the {deleted} oldest of {count} files deleted"


def _boot_and_log(fixture: Fixture, boot: int) -> None:
    """A cycle archives a rotation, and the shutdown another one."""
    numbers = range((boot - 1) * LINES_PER_BOOT + 1, boot * LINES_PER_BOOT + 1)
    text = "".join(f"{message(number)}\n" for number in numbers).encode()
    with fixture.boot({**SETTINGS, "root/lines": text}) as device:
        wait_until_running(device)
        # A second earlier: find compares whole seconds, and the first rotation may take less than one.
        device.run("touch -d @$(($(date +%s) - 1)) /tmp/began && logger -t pump </root/lines")
        # Else syslogd still rotates while the shutdown has the daemon archive.
        device.wait_for(f"grep -qF '{message(numbers[-1])}' {LOG}/messages.txt*")
        device.wait_for(f"find {LOG}/archive -name '*:*' -newer /tmp/began | grep -q .")
        device.power_off()
    check(not device.failed_services(), str(device.failed_services()))


def wait_until_running(device: Device) -> None:
    """A stop signal that comes earlier does not count."""
    device.wait_for(f"grep -q 'vandis-moraine running' {LOG}/messages.txt*")


def _check_shutdowns(found: Found, boots: int) -> None:
    """Each was in good order, and each line of the boots is kept once."""
    check(found.daemon_lines.count("vandis-moraine exiting with code: 0") == boots,
          f"after {boots} shutdowns the log has the daemon's lines {found.daemon_lines}")
    check(not found.leftovers, f"left over after a shutdown: {found.leftovers}")
    count = boots * LINES_PER_BOOT
    check(not found.empty + found.corrupt, f"damaged: {found.empty + found.corrupt}")
    lost = found.lost(range(1, count + 1))
    check(not lost, f"lost lines {ranges(lost)}")
    check(found.duplicated == 0, f"{found.duplicated} duplicated lines")
