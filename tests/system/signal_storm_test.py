"""Thousands of mixed stop signals from several senders, from the moment the daemon catches them to
its end."""
from __future__ import annotations

import lzma
import subprocess
import sys

import harness
from harness import (ARCHIVE, INITIALIZING, RUNNING, STATUS_AFTER, BlackBoxCase, Line, archive,
                     archive_name, archived, caught, error, exiting, write)

RUNS = 20
SENDERS = 4
STRAYS = [f"stray{number}" for number in range(50)]

# Tells at its end how many signals it sent.
SENDER = f"""
import os, random, sys
pid, count = int(sys.argv[1]), 0
draw = random.Random(sys.argv[2]).choice
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
        for stray in STRAYS:  # Start-up is busy logging that it does not know them.
            write(ARCHIVE / stray)
        write(ARCHIVE / archive_name(1), lzma.compress(b"run 0"))
        sent = 0
        for run in range(1, RUNS + 1):
            write("messages.txt.0", f"run {run}")
            sent += self.run_in_storm(run)
        print(f"{sent} signals sent", end=" ", file=sys.stderr, flush=True)

        self.assertGreater(sent, 1000 * RUNS)
        self.assertEqual([text for _, text in archive(except_for=STRAYS)],
                         [f"run {run}" for run in range(RUNS + 1)])

    def run_in_storm(self, run: int) -> int:
        before = len(self.log.all())
        daemon = self.start()
        self.wait_until(lambda: daemon.handles_signals, "the daemon catches signals")
        senders = [self.start_sender(daemon.pid, f"{run} {number}") for number in range(SENDERS)]
        status = self.wait(daemon)
        sent = sum(int(sender.communicate(timeout=harness.limit)[0]) for sender in senders)
        self.check_lines(self.log.all()[before:], run + 1, status)
        return sent

    def start_sender(self, pid: int, seed: str) -> subprocess.Popen:
        sender = subprocess.Popen([sys.executable, "-c", SENDER, str(pid), seed],
                                  stdout=subprocess.PIPE, text=True)
        self.addCleanup(sender.kill)
        return sender

    def check_lines(self, lines: list[Line], boot: int, status: int) -> None:
        signals = {caught(number): STATUS_AFTER[number] for number in STATUS_AFTER}
        others = [line for line in lines if line not in signals]
        strays = [error(f"{stray} is not a logging archive file.") for stray in STRAYS]
        self.assertEqual(sorted(line for line in others if line in strays), sorted(strays * 3))
        self.assertEqual([line for line in others if line not in strays], [
            INITIALIZING, harness.ARCHIVE_SIZE, RUNNING, archived("messages.txt.0", boot),
            exiting(status)])
        last = [line for line in lines if line in signals][-1]
        self.assertEqual(status, signals[last])
        self.assertEqual(lines[-1], exiting(status))


if __name__ == "__main__":
    harness.main()
