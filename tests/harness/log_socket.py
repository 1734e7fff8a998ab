# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""A reader of /dev/log: severity, facility, tag and text of each line as a syslogd would get them.
"""
from __future__ import annotations

import re
import select
import socket
import threading
import time
from typing import Callable, NamedTuple

from tests.harness import waiting
from tests.harness.paths import LOG_SOCKET

ERROR, WARNING, INFO = 3, 4, 6
USER = 1  # the facility

FORM = re.compile(rb"<(\d+)>\w{3} [ \d]\d \d\d:\d\d:\d\d ([^:]*): (.*)", re.DOTALL)
FILLING = b"<15>filling"


class Line(NamedTuple):
    severity: int
    text: str


class Entry(NamedTuple):
    """A datagram that came. `line` is None if it is not an entry of the system log."""

    time: float  # of its arrival, by time.perf_counter()
    datagram: bytes
    facility: int = -1
    tag: str = ""
    line: Line | None = None

    @classmethod
    def of(cls, datagram: bytes) -> Entry:
        now = time.perf_counter()
        match = FORM.fullmatch(datagram)
        if not match:
            return cls(now, datagram)
        facility, severity = divmod(int(match[1]), 8)
        line = Line(severity, match[3].decode(errors="surrogateescape"))
        return cls(now, datagram, facility, match[2].decode(errors="replace"), line)


class LogSocket(threading.Thread):
    """/dev/log, read all the time: a full socket would stop the daemon."""

    def __init__(self) -> None:
        super().__init__(daemon=True)
        LOG_SOCKET.unlink(missing_ok=True)
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.bind(str(LOG_SOCKET))
        self._ended = threading.Event()
        self._reading = threading.Lock()
        self._is_blocked = False
        self._arrival = threading.Condition()
        self._entries: list[Entry] = []
        self.start()

    def close(self) -> None:
        if self._is_blocked:  # by a test that failed before it could unblock
            self.unblock()
        self._ended.set()
        self.join()
        self._receive()
        self._socket.close()
        LOG_SOCKET.unlink()

    def run(self) -> None:
        while not self._ended.is_set():
            if select.select([self._socket], [], [], 0.05)[0]:
                with self._reading:
                    self._receive()

    def _receive(self) -> None:
        with self._arrival:
            try:
                while True:
                    self._add(self._socket.recv(65536, socket.MSG_DONTWAIT))
            except BlockingIOError:
                self._arrival.notify_all()

    def _add(self, datagram: bytes) -> None:
        if datagram != FILLING:
            self._entries.append(Entry.of(datagram))

    def entries(self) -> list[Entry]:
        """Returns all so far, those that have been sent but not yet read included."""
        if not self._ended.is_set():
            with self._reading:
                self._receive()
        with self._arrival:
            return list(self._entries)

    def take(self) -> list[Entry]:
        """Returns the same and forgets them."""
        entries = self.entries()
        with self._arrival:
            del self._entries[:len(entries)]
        return entries

    def wait_for_entry(self, is_wanted: Callable[[Entry], bool], count: int = 1,
                       timeout: float | None = None) -> Entry | None:
        """Waits for the entry number `count` of those that are wanted. Returns None if it does not
        come in time."""
        def found() -> Entry | None:
            wanted = (entry for entry in self._entries if is_wanted(entry))
            return next((entry for number, entry in enumerate(wanted, 1) if number == count), None)

        with self._arrival:
            return self._arrival.wait_for(found, waiting.limit if timeout is None else timeout)

    def block(self, after: int = 0) -> None:
        """From here on, `after` so many lines, who writes one has to wait in the middle of it."""
        self._reading.acquire()
        self._is_blocked = True
        sent = True
        while sent:  # One socket must not have too much under way: it takes several.
            sent = False
            with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as filler:
                filler.connect(str(LOG_SOCKET))
                try:
                    while True:
                        filler.send(FILLING, socket.MSG_DONTWAIT)
                        sent = True
                except BlockingIOError:
                    pass
        for _ in range(after):
            self._add(self._socket.recv(65536, socket.MSG_DONTWAIT))

    def unblock(self) -> None:
        self._is_blocked = False
        self._reading.release()
