# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Where things are."""
from __future__ import annotations

from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
BUSYBOX = ROOT / "build/busybox/busybox"  # made by rig/build-busybox

# In a sandbox, as on a device.
DAEMON = "/usr/sbin/vandis-moraine"
SYSLOG = Path("/perm/logs/syslog")
ARCHIVE = SYSLOG / "archive"
LIVE_LOG = SYSLOG / "messages.txt"
LOG_SOCKET = Path("/dev/log")
