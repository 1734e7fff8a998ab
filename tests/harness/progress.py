# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""A status line: rewritten in place on a terminal, printed now and then elsewhere."""
from __future__ import annotations

import os
import shutil
import sys
import time
from typing import TextIO

SECONDS_BETWEEN_LINES = 10


class Progress:
    def __init__(self, stream: TextIO = sys.stdout) -> None:
        self._stream = stream
        self._is_live = stream.isatty() and os.environ.get("TERM", "dumb") != "dumb"
        self._has_colour = self._is_live and not os.environ.get("NO_COLOR")
        self._start = time.monotonic()
        self._last_status = float("-inf")

    @property
    def seconds(self) -> float:
        return time.monotonic() - self._start

    def status(self, text: str) -> None:
        if self._is_live:
            width = shutil.get_terminal_size().columns - 1
            print(f"\r\033[K{text[:width]}", end="", file=self._stream, flush=True)
        elif self.seconds - self._last_status >= SECONDS_BETWEEN_LINES:
            self._last_status = self.seconds
            print(text, file=self._stream, flush=True)

    def line(self, text: str, colour: str = "") -> None:
        """Prints a line that stays."""
        if colour and self._has_colour:
            text = f"\033[{colour}m{text}\033[0m"
        self.clear()
        print(text, file=self._stream, flush=True)

    def clear(self) -> None:
        if self._is_live:
            print("\r\033[K", end="", file=self._stream, flush=True)
