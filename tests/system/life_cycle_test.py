# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""The life of the daemon: its lines and its exit status, from the first to the last, whenever a
stop signal comes."""
from __future__ import annotations

import signal
from signal import SIGHUP, SIGINT, SIGPIPE, SIGQUIT, SIGTERM

from tests.harness import case
from tests.harness.case import BlackBoxCase, Gate, archive, content_of, write
from tests.harness.daemon import (ARCHIVE_SIZE, INITIALIZING, RUNNING, START, START_UP_FAILED,
                                  STATUS_AFTER, archived, caught, error, exiting, xz_failed)
from tests.harness.paths import SYSLOG

ROTATION = "/perm/logs/syslog/messages.txt.0"


def for_each_stop_signal(case_class: type[BlackBoxCase]) -> type[BlackBoxCase]:
    """Adds the tests test_sigterm, test_sighup ..., which call `check` with the signal."""
    for number in STATUS_AFTER:
        def test(self: BlackBoxCase, number: signal.Signals = number) -> None:
            self.check(number)
        test.__doc__ = f"{number.name}, {(case_class.__doc__ or '').splitlines()[0]}"
        setattr(case_class, f"test_{number.name.lower()}", test)
    return case_class


@for_each_stop_signal
class SignalInSleep(BlackBoxCase):
    """One last cycle follows at once, then the exit line."""

    def check(self, number: signal.Signals) -> None:
        daemon = self.start_and_wait()
        write("messages.txt.0", "last")

        status = self.stop(daemon, number)

        self.assertEqual(self.log.all(), [*START, caught(number), archived("messages.txt.0"),
                                          exiting(STATUS_AFTER[number])])
        self.assertEqual(status, STATUS_AFTER[number])
        self.assertEqual(archive(), [(1, "last")])


@for_each_stop_signal
class SignalWhileXzRuns(BlackBoxCase):
    """The cycle is completed, and no other follows."""

    def check(self, *numbers: signal.Signals) -> None:
        write("messages.txt.0", "newer")
        write("messages.txt.1", "older")
        xz = self.slow_xz()
        daemon = self.start(fast_sleep=50)
        self.wait_until(lambda: xz.is_reached, "xz runs")

        self.deliver(daemon, *numbers[:-1])
        daemon.signal(numbers[-1])
        xz.open()
        status = self.wait(daemon)

        last = STATUS_AFTER[numbers[-1]]
        self.assertEqual(self.log.all(), [*START, *map(caught, numbers),
                                          archived("messages.txt.1"), exiting(last)])
        self.assertEqual(status, last)
        self.assertEqual(archive(), [(1, "older")])
        self.assertEqual(content_of(SYSLOG), {"messages.txt": "", "messages.txt.0": "newer",
                                              "archive/": ""})

    def test_second_signal_overrides(self) -> None:
        """A second stop signal has its line, too, and decides the status."""
        self.check(SIGHUP, SIGTERM)

    def test_second_signal_overrides_with_a_status(self) -> None:
        """The other way round: SIGHUP after SIGTERM gives status 1."""
        self.check(SIGTERM, SIGHUP)


@for_each_stop_signal
class SignalWhileALineIsWritten(BlackBoxCase):
    """The signal arrives inside the C library's syslog, which holds its lock."""

    def check(self, number: signal.Signals) -> None:
        write("messages.txt.0", "newer")
        write("messages.txt.1", "older")
        xz = self.slow_xz()
        daemon = self.start(fast_sleep=50)
        self.wait_until(lambda: xz.is_reached, "xz runs")
        self.log.block()
        xz.open()
        self.wait_until(lambda: not (SYSLOG / "messages.txt.1").exists() and daemon.waits,
                        "the daemon waits for /dev/log")

        self.deliver(daemon, number)
        self.log.unblock()
        status = self.wait(daemon)

        self.assertEqual(self.log.all(), [*START, archived("messages.txt.1"), caught(number),
                                          exiting(STATUS_AFTER[number])])
        self.assertEqual(status, STATUS_AFTER[number])
        self.assertEqual(content_of(SYSLOG), {"messages.txt": "", "messages.txt.0": "newer",
                                              "archive/": ""})


class SignalInTheLastLine(BlackBoxCase):

    def test_sighup(self) -> None:
        """A stop signal while the exit line is written comes too late: it is not caught."""
        write("messages.txt.0", "last")
        xz = self.slow_xz()
        daemon = self.start(fast_sleep=50)
        self.wait_until(lambda: xz.is_reached, "xz runs")
        self.deliver(daemon, SIGTERM)
        self.log.block(after=2)
        xz.open()
        self.wait_until(lambda: not (SYSLOG / "messages.txt.0").exists() and daemon.waits,
                        "the daemon waits for /dev/log")

        self.assertTrue(all(map(daemon.blocks, STATUS_AFTER)))
        daemon.signal(SIGHUP)
        self.log.unblock()

        self.assertEqual(self.wait(daemon), 0)
        self.assertEqual(self.log.all(), [*START, caught(SIGTERM), archived("messages.txt.0"),
                                          exiting(0)])


class SignalInStartUp(BlackBoxCase):
    """It is logged but does not stop the daemon, which starts up completely and runs on."""

    def setUp(self) -> None:
        super().setUp()
        write("messages.txt.tmp", "leftover")
        self.xz = self.slow_xz()
        self.daemon = self.start(fast_sleep=50)
        self.wait_until(lambda: self.xz.is_reached, "xz runs")

    def check_that_it_runs_on(self) -> None:
        self.log.wait_for(RUNNING)
        write("messages.txt.0", "later")
        self.log.wait_for(archived("messages.txt.0"))
        self.assertEqual(self.stop(self.daemon), 0)
        self.assertEqual(archive(), [(1, "leftover"), (1, "later")])

    def test_while_xz_runs(self) -> None:
        """Stop signals while start-up archives a leftover: a line for each, and it runs on."""
        numbers = (SIGTERM, SIGHUP, SIGINT)
        self.deliver(self.daemon, *numbers[:-1])
        self.daemon.signal(numbers[-1])
        self.xz.open()

        self.check_that_it_runs_on()
        self.assertEqual(self.log.all(), [
            INITIALIZING, *map(caught, numbers), archived("messages.txt.tmp"), ARCHIVE_SIZE,
            RUNNING, archived("messages.txt.0"), caught(SIGTERM), exiting(0)])

    def test_while_a_line_is_written(self) -> None:
        """All four stop signals inside a log call of start-up: four lines, and it runs on."""
        numbers = (SIGQUIT, SIGTERM, SIGINT, SIGHUP)
        self.log.block()
        self.xz.open()
        self.wait_until(lambda: not (SYSLOG / "messages.txt.tmp").exists() and self.daemon.waits,
                        "the daemon waits for /dev/log")
        self.deliver(self.daemon, *numbers)
        self.log.unblock()

        self.check_that_it_runs_on()
        self.assertEqual(self.log.all(), [
            INITIALIZING, archived("messages.txt.tmp"), *map(caught, numbers), ARCHIVE_SIZE,
            RUNNING, archived("messages.txt.0"), caught(SIGTERM), exiting(0)])


class Failure(BlackBoxCase):

    def test_failed_cycle(self) -> None:
        """A failed cycle ends the daemon with status 1."""
        daemon = self.start_and_wait(fast_sleep=50)
        self.stand_in("xz", "exit 1")
        write("messages.txt.0", "kept")

        self.assertEqual(self.wait(daemon), 1)

        self.assertEqual(self.log.all(), [*START, xz_failed(ROTATION, 256),
                                          exiting(1)])

    def test_failed_cycle_after_a_signal(self) -> None:
        """SIGTERM, but the last cycle fails: status 1, not 0."""
        daemon = self.start_and_wait()
        self.stand_in("xz", "exit 1")
        write("messages.txt.0", "kept")

        self.assertEqual(self.stop(daemon, SIGTERM), 1)

        self.assertEqual(self.log.all(), [*START, caught(SIGTERM),
                                          xz_failed(ROTATION, 256),
                                          exiting(1)])

    def test_signal_after_a_failed_cycle(self) -> None:
        """SIGTERM between a failed cycle and the exit: its line, and status 1 all the same."""
        daemon = self.start_and_wait(fast_sleep=50, late_signal=SIGTERM)
        self.stand_in("xz", "exit 1")
        write("messages.txt.0", "kept")

        self.assertEqual(self.wait(daemon), 1)

        self.assertEqual(self.log.all(), [*START, xz_failed(ROTATION, 256), caught(SIGTERM),
                                          exiting(1)])

    def test_signal_before_the_exit(self) -> None:
        """SIGQUIT after the last cycle: its line, and the status that belongs to it."""
        daemon = self.start_and_wait(late_signal=SIGQUIT)

        self.assertEqual(self.stop(daemon, SIGTERM), 3)

        self.assertEqual(self.log.all(), [*START, caught(SIGTERM), caught(SIGQUIT), exiting(3)])

    def test_failed_start_up(self) -> None:
        """A failed start-up: status 1 and no "running" line."""
        self.remount("size=1288486912")

        lines = self.run_once()

        self.assertEqual(self.status, 1)
        self.assertEqual(lines, [INITIALIZING, error(
            "Required archive capacity is 1.200 GiB. File system (/perm/logs/syslog) is too "
            "small: 1.200 GiB."), START_UP_FAILED])

    def test_signal_in_a_start_up_that_fails(self) -> None:
        """SIGTERM during a start-up that then fails: its line, and status 1."""
        write("messages.txt.tmp", "leftover")
        gate = Gate("xz")
        self.stand_in("xz", f"{gate.script}\nexit 1")
        daemon = self.start()
        self.wait_until(lambda: gate.is_reached, "xz runs")

        daemon.signal(SIGTERM)
        gate.open()

        self.assertEqual(self.wait(daemon), 1)
        self.assertEqual(self.log.all(), [INITIALIZING, caught(SIGTERM), xz_failed(
            "/perm/logs/syslog/messages.txt.tmp", 256), START_UP_FAILED])


class OtherSignals(BlackBoxCase):

    def test_sigpipe(self) -> None:
        """SIGPIPE is ignored: the next cycle comes as if nothing had been."""
        daemon = self.start_and_wait(fast_sleep=50)

        daemon.signal(SIGPIPE)
        write("messages.txt.0", "next")
        self.log.wait_for(archived("messages.txt.0"))

        self.assertEqual(self.stop(daemon), 0)
        self.assertEqual(self.log.all(), [*START, archived("messages.txt.0"), caught(SIGTERM),
                                          exiting(0)])


if __name__ == "__main__":
    case.main()
