# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""The daemon as a process that a test starts itself, and the lines of its life."""
from __future__ import annotations

import os
import re
import signal
import subprocess
from pathlib import Path
from typing import Sequence

from tests.harness import waiting
from tests.harness.log_socket import ERROR, INFO, USER, WARNING, Entry, Line, LogSocket
from tests.harness.paths import ARCHIVE, DAEMON, SYSLOG

NAME = "vandis-moraine"
SCRATCH = Path("/scratch")
STAND_INS = SCRATCH / "bin"
SANITIZER_REPORT = SCRATCH / "sanitizer"

CYCLE_US = 10_000_000
STATUS_AFTER = {signal.SIGTERM: 0, signal.SIGHUP: 1, signal.SIGINT: 2, signal.SIGQUIT: 3}


class Like:
    """Equal to every text that the pattern matches as a whole."""

    def __init__(self, pattern: str) -> None:
        self.pattern = pattern

    def __eq__(self, text: object) -> bool:
        return isinstance(text, str) and bool(re.fullmatch(self.pattern, text, re.DOTALL))

    def __repr__(self) -> str:
        return f"Like({self.pattern!r})"


def error(text: str | Like) -> Line:
    return Line(ERROR, text)


def warning(text: str | Like) -> Line:
    return Line(WARNING, text)


def info(text: str | Like) -> Line:
    return Line(INFO, text)


# The lines of an undisturbed life.
INITIALIZING = info("vandis-moraine initializing.")
ARCHIVE_SIZE = info(Like(r"Archive directory size is \d+\.\d{3} (bytes|kiB|MiB|GiB)\."))
EMPTY_ARCHIVE = info("Archive directory size is 0.000 bytes.")
RUNNING = info("vandis-moraine running.")
START_UP_FAILED = error(
    "vandis-moraine could not initialize logging rotation subsystem and will now exit.")


def caught(number: int) -> Line:
    return info(f"vandis-moraine Caught signal {int(number)}, shutting down...")


def exiting(status: int) -> Line:
    return info(f"vandis-moraine exiting with code: {status}")


def archived(source: str, boot: int = 1) -> Line:
    """`source`: the bare name of a file of the syslog folder."""
    return info(Like(
        rf"Archived '{SYSLOG}/{re.escape(source)}' to '{ARCHIVE}/messages\.{boot:03}"
        r"\.1970-\d\d-\d\d\.\d\d:\d\d:\d\d\.txt\.xz' in \d+\.\d seconds\."))


START = [INITIALIZING, EMPTY_ARCHIVE, RUNNING]
END = [caught(signal.SIGTERM), exiting(0)]


def xz_failed(path: str, wait_status: int | str) -> Line:
    """`wait_status`: a number, or a pattern."""
    return error(Like(rf"Unable to 'xz -fk {re.escape(path)}'\.  Result: {wait_status}, "
                      r"Error: '[^']*'"))


def start_settings(fast_sleep: float) -> str:
    """What /etc/default makes of `daemon_environment`, for a daemon that its init script starts."""
    environment = {**daemon_environment(fast_sleep), "PATH": f"{STAND_INS}:{os.environ['PATH']}"}
    return "".join(f"export {name}='{value}'\n" for name, value in environment.items())


def daemon_environment(fast_sleep: float = 0) -> dict[str, str]:
    """`fast_sleep`: how many times faster than 10 seconds one cycle follows another."""
    build = os.environ["MORAINE_BUILD"]
    return {
        "LD_PRELOAD": f"{build}/tests/harness/libfast_sleep.so",
        "SLEEP_US": str(int(CYCLE_US / fast_sleep)) if fast_sleep else "",
        # The preloaded library comes before the sanitizers' own.
        "ASAN_OPTIONS": f"verify_asan_link_order=0:detect_leaks=1:log_path={SANITIZER_REPORT}",
        "UBSAN_OPTIONS": f"print_stacktrace=1:log_path={SANITIZER_REPORT}",
    }


class DaemonLog(LogSocket):
    """What the daemon writes to /dev/log."""

    @staticmethod
    def _is_own(entry: Entry) -> bool:
        return entry.facility == USER and entry.tag == NAME

    def all(self) -> list[Line]:
        """Returns the lines so far, those that have been sent but not yet read included."""
        return [entry.line for entry in self.entries() if entry.line and self._is_own(entry)]

    @property
    def unexpected(self) -> list[bytes]:
        """What came from elsewhere, or in another form."""
        return [entry.datagram for entry in self.entries() if not self._is_own(entry)]

    def wait_for(self, line: Line, count: int = 1) -> None:
        """Waits until this line has come `count` times."""
        if not self.wait_for_entry(lambda entry: entry.line == line, count):
            raise AssertionError(
                f"no line {line} after {waiting.limit:.0f} s, but {self.all()[-20:]}")


class Daemon:
    """The daemon, started by hand: its process id and exit status are seen directly."""

    def __init__(self, fast_sleep: float = 0, strace: Sequence[str] = (),
                 path: str | None = None, late_signal: int = 0) -> None:
        environment = {**os.environ, **daemon_environment(fast_sleep)}
        if late_signal:
            environment["LATE_SIGNAL"] = str(int(late_signal))
        environment["PATH"] = path or f"{STAND_INS}:{os.environ['PATH']}"
        command = [DAEMON]
        if strace:
            # -D: the daemon, not strace, is the child.
            command = ["strace", "-D", "-o", str(SCRATCH / "strace"), *strace, *command]
            environment["ASAN_OPTIONS"] += ":detect_leaks=0"  # That would need ptrace itself.
        with (SCRATCH / "stderr").open("ab") as stderr:
            self._process = subprocess.Popen(command, env=environment, stdin=subprocess.DEVNULL,
                                             stdout=stderr, stderr=stderr, start_new_session=True)
        self.pid = self._process.pid

    def signal(self, number: int) -> None:
        os.kill(self.pid, number)

    def wait(self) -> int:
        """The exit status, once it has ended; -N if signal N killed it."""
        return self._process.wait(waiting.limit)

    @property
    def is_running(self) -> bool:
        return self._process.poll() is None

    @property
    def handles_signals(self) -> bool:
        return all(self._is_in("SigCgt", number) for number in STATUS_AFTER)

    def blocks(self, number: int) -> bool:
        return self._is_in("SigBlk", number)

    def has_pending(self, number: int) -> bool:
        """Whether a signal has been sent but not yet delivered."""
        return self._is_in("ShdPnd", number)

    def _is_in(self, signal_set: str, number: int) -> bool:
        found = re.search(rf"^{signal_set}:\s*(\w+)$", self._proc("status"), re.MULTILINE)
        return bool(found) and int(found[1], 16) & 1 << number - 1 != 0

    @property
    def waits(self) -> bool:
        """For time, for a child, or for /dev/log: whichever of them there is just then."""
        return self._proc("stat").rpartition(")")[2].split()[:1] == ["S"]

    def _proc(self, name: str) -> str:
        try:
            return Path(f"/proc/{self.pid}/{name}").read_text()
        except (FileNotFoundError, ProcessLookupError):
            return ""

    def end(self) -> None:
        """And what it runs, whatever they are at."""
        if self.is_running:
            os.killpg(self.pid, signal.SIGKILL)
            self._process.wait()
