# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Where things are."""
from __future__ import annotations

import time
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
BUSYBOX = ROOT / "build/busybox/busybox"  # made by rig/build-busybox

# In a sandbox, as on a device.
DAEMON = "/usr/sbin/vandis-moraine"
SYSLOG = Path("/perm/logs/syslog")
ARCHIVE = SYSLOG / "archive"
FOREIGN = SYSLOG / "foreign"
LIVE_LOG = SYSLOG / "messages.txt"
LOG_SOCKET = Path("/dev/log")
BOOT_NUMBER = Path("/var/run/vandis-moraine.boot")
NOBODY = 65534  # a user, and a group
SIZE_LIMIT = 1 << 30  # of the archive, in bytes


def archive_name(boot: int, seconds: float = 1) -> str:
    """Of a file that was archived so long after its boot."""
    return time.strftime(f"messages.{boot:03}.%Y-%m-%d.%H:%M:%S.txt.xz", time.gmtime(seconds))
