# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Waiting for events, never for a time."""
from __future__ import annotations

import time
from typing import Callable

# Of every wait that has no timeout of its own, in seconds. Generous: only a defect uses it up.
limit = 180.0


def wait_until(condition: Callable[[], object], timeout: float | None = None) -> bool:
    """Returns whether `condition` came true in time."""
    deadline = time.monotonic() + (limit if timeout is None else timeout)
    while not condition():
        if time.monotonic() > deadline:
            return False
        time.sleep(0.02)
    return True
