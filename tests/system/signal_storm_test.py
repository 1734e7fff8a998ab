# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Thousands of mixed stop signals from several senders, from the moment the daemon catches them to
its end."""
from __future__ import annotations

import collections
import lzma
import subprocess
import sys

from tests.harness import case, waiting
from tests.harness.case import BlackBoxCase, archive, write
from tests.harness.daemon import (ARCHIVE_SIZE, INITIALIZING, RUNNING, STATUS_AFTER, archived,
                                  caught, error, exiting)
from tests.harness.log_socket import Line
from tests.harness.paths import ARCHIVE, archive_name

RUNS = 20
SENDERS = 4
# Start-up logs three times for each that it does not know it: it is busy in the C library's syslog.
STRAYS = [f"stray{number}" for number in range(700)]

# Reads a process ID from standard input, sends to it, and prints at the end how many it sent.
SENDER = f"""
import os, random, sys
draw = random.Random(sys.argv[1]).choice
pid, count = int(sys.stdin.readline()), 0
try:
    while True:
        os.kill(pid, draw({[int(number) for number in STATUS_AFTER]}))
        count += 1
except ProcessLookupError:
    print(count)
"""


class Storm(BlackBoxCase):

    def test_storm(self) -> None:
        """No hang, no line but the daemon's own, and the status follows the last caught line."""
        for stray in STRAYS:
            write(ARCHIVE / stray)
        write(ARCHIVE / archive_name(1), lzma.compress(b"run 0"))
        sent = noted = 0
        for run in range(1, RUNS + 1):
            write("messages.txt.0", f"run {run}")
            count, lines = self.run_in_storm(run)
            sent += count
            noted += self.check_lines(lines, run + 1)
        print(f"{sent} signals sent, {noted} caught", end=" ", file=sys.stderr, flush=True)

        self.assertGreater(noted, 5 * RUNS, "that was no storm")
        self.assertEqual([text for _, text in archive(except_for=STRAYS)],
                         [f"run {run}" for run in range(RUNS + 1)])

    def run_in_storm(self, run: int) -> tuple[int, list[Line]]:
        """Returns the number of signals sent and the daemon's lines."""
        before = len(self.log.all())
        senders = [self.start_sender(f"{run} {number}") for number in range(SENDERS)]
        daemon = self.start()
        self.wait_until(lambda: daemon.handles_signals, "the daemon catches signals")
        for sender in senders:
            print(daemon.pid, file=sender.stdin, flush=True)
        self.status = self.wait(daemon)
        sent = sum(int(sender.communicate(timeout=waiting.limit)[0]) for sender in senders)
        return sent, self.log.all()[before:]

    def start_sender(self, seed: str) -> subprocess.Popen:
        sender = subprocess.Popen([sys.executable, "-c", SENDER, seed], stdin=subprocess.PIPE,
                                  stdout=subprocess.PIPE, text=True)
        self.addCleanup(sender.kill)
        return sender

    def check_lines(self, lines: list[Line], boot: int) -> int:
        """Returns how many signals were caught."""
        statuses = {caught(number): STATUS_AFTER[number] for number in STATUS_AFTER}
        signals = [line for line in lines if line in statuses]
        others = [line for line in lines if line not in statuses]
        strays = {error(f"{stray} is not a logging archive file.") for stray in STRAYS}
        self.assertEqual([line for line in others if line not in strays], [
            INITIALIZING, ARCHIVE_SIZE, RUNNING, archived("messages.txt.0", boot),
            exiting(self.status)])
        self.assertEqual(collections.Counter(line for line in others if line in strays),
                         dict.fromkeys(strays, 3))
        self.assertEqual(self.status, statuses[signals[-1]], f"after {signals[-1]}")
        self.assertEqual(lines[-1], exiting(self.status))
        return len(signals)


if __name__ == "__main__":
    case.main()
