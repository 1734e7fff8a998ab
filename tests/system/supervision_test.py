# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""What ended without being asked to is started again, by itself, and syslogd runs whenever the daemon
does."""
from __future__ import annotations

import contextlib
import os
import re
import signal
import subprocess
from pathlib import Path
from typing import Callable, Iterator

from tests.harness import case
from tests.harness.case import log_lines
from tests.harness.init_case import InitCase, kill, processes, programs_of, supervisors_of
from tests.harness.paths import SYSLOG
from tests.harness.services import daemon, syslogd

STOP_SIGNALS = (signal.SIGTERM, signal.SIGHUP, signal.SIGINT, signal.SIGQUIT)


class Restart(InitCase):

    def test_daemon_killed(self) -> None:
        self.start_both()
        for _ in range(3):
            pid = programs_of(daemon)[0]
            kill(pid)
            self.wait_for_another(daemon, pid)
        self.wait_for_line(r"^vandis-moraine ended with status 137\.  "
                           r"It is started again in 1 seconds\.$")
        self.wait_until(lambda: daemon.pid == programs_of(daemon)[0], "the PID file is right")
        self.assert_one_of_each()

    def test_daemon_signalled_by_somebody(self) -> None:
        self.start_both()
        for number in STOP_SIGNALS:
            pid = programs_of(daemon)[0]
            self.wait_until(lambda: log_lines().count("vandis-moraine running.") ==
                            STOP_SIGNALS.index(number) + 1, "the daemon runs")
            kill(pid, number)
            self.wait_for_another(daemon, pid)
        self.assert_one_of_each()

    def test_failed_cycle(self) -> None:
        """xz fails once."""
        self.stand_in("xz", f"[ -e {SYSLOG}/fail ] || exec /usr/bin/xz \"$@\"\n"
                            f"rm {SYSLOG}/fail; exit 1")
        self.start_both()
        pid = programs_of(daemon)[0]
        (SYSLOG / "fail").touch()
        (SYSLOG / "messages.txt.0").write_text("text\n")
        self.wait_for_another(daemon, pid)
        self.wait_for_line(r"^Archived '.*messages\.txt\.0'")

    def test_syslogd_killed(self) -> None:
        """Its first restart is immediate."""
        self.set(syslogd, "RESTART_SECONDS=1000", "RESTART_MAX_SECONDS=1000")
        self.start_both()
        pid = programs_of(syslogd)[0]
        kill(pid)
        self.wait_for_another(syslogd, pid)
        self.wait_until(lambda: Path("/dev/log").is_socket(), "it listens")
        self.wait_until(lambda: "syslogd ended with status 137.  It has been started again."
                        in (SYSLOG / "messages.txt").read_text(), "it says so")
        self.assert_one_of_each()

    def test_syslogd_again_and_again(self) -> None:
        self.start_both()
        for number in (signal.SIGKILL, signal.SIGTERM, signal.SIGKILL):
            pid = programs_of(syslogd)[0]
            kill(pid, number)
            self.wait_until(lambda: programs_of(syslogd) != [pid] or kill(pid, number), "it ended")
            self.wait_for_another(syslogd, pid)
        self.assert_one_of_each()

    def test_stopped_by_its_script(self) -> None:
        self.start_both()
        self.assertEqual(self.call(daemon, "stop"), (0, "Stopping vandis-moraine: OK\n"))
        self.assertEqual(self.call(syslogd, "stop"), (0, "Stopping syslogd-moraine: OK\n"))
        self.assertEqual([line for _, line in processes() if "moraine" in line or "syslogd" in line
                          if "python" not in line and "sandbox" not in line], [])
        self.assertEqual([path.name for path in Path("/var/run").glob("*.pid")], [])

    def test_started_while_its_supervisor_waits(self) -> None:
        self.set(daemon, "RESTART_SECONDS=1000", "RESTART_MAX_SECONDS=1000")
        self.start_both()
        kill(programs_of(daemon)[0])
        self.wait_for_line("It is started again in 1000 seconds")
        self.assertEqual(self.call(daemon, "start"), (0, "Starting vandis-moraine: OK\n"))
        self.assert_one_of_each()

    def test_without_its_supervisor(self) -> None:
        """A start makes good that the supervisor was killed."""
        self.start_both()
        for service in (syslogd, daemon):
            kill(supervisors_of(service)[0])
            self.assertEqual(self.call(service, "start")[0], 0)
        self.assert_one_of_each()

    def test_start_that_fails(self) -> None:
        """The supervisor goes on trying."""
        self.mount("-t", "tmpfs", "-o", "size=1m", "tmpfs", "/perm")
        syslogd.start()
        self.assertEqual(self.call(daemon, "start"),
                         (1, "Starting vandis-moraine: FAIL (see the system log; is /perm mounted?)\n"))
        subprocess.run(["mount", "-o", "remount,size=2g", "tmpfs", "/perm"], check=True)
        self.wait_for_line("^vandis-moraine running")
        self.assert_one_of_each()

    def test_no_descriptor_left_over(self) -> None:
        """A lock that a daemon holds would be there until it ends."""
        self.start_both()
        pid = programs_of(syslogd)[0]
        kill(pid)
        self.wait_for_another(syslogd, pid)
        for pid in (*programs_of(syslogd), *programs_of(daemon), *supervisors_of(syslogd),
                    *supervisors_of(daemon)):
            held = [os.readlink(link) for link in Path(f"/proc/{pid}/fd").iterdir()]
            self.assertEqual([path for path in held if ".lock" in path and "S" in path], [], held)


class Forks(InitCase):

    @contextlib.contextmanager
    def failing_forks(self, pid: int, which: str) -> Iterator[Callable[[], list[str]]]:
        """Makes forks of a process fail. Yields a function that returns what came so far: "INJECTED"
        for such a fork, and the milliseconds of each wait."""
        trace = Path("/scratch/trace")
        tracer = subprocess.Popen(
            ["strace", "-qq", "-o", str(trace), "-p", str(pid),
             "-e", "trace=fork,vfork,clone,poll",
             "-e", f"inject=fork,vfork,clone:error=EAGAIN:when={which}"], stderr=subprocess.DEVNULL)
        try:
            self.wait_until(lambda: f"TracerPid:\t{tracer.pid}" in
                            Path(f"/proc/{pid}/status").read_text(), "the tracer is there")
            yield lambda: re.findall(r"INJECTED(?=\)$)|\d{3,4}(?=\) += 0 \(Timeout\)$)",
                                     trace.read_text(), re.MULTILINE)
        finally:
            tracer.terminate()
            tracer.wait()

    def test_supervisor_cannot_fork(self) -> None:
        """It goes on with the program that it has, and starts another one when that is needed."""
        self.set(daemon, "PROGRESS_SECONDS=10")
        self.start_both()
        supervisor, pid = supervisors_of(daemon)[0], programs_of(daemon)[0]
        kill(pid, signal.SIGSTOP)  # so that it has to look at the archive
        with self.failing_forks(supervisor, "1..2") as events:
            (SYSLOG / "messages.txt.0").write_text("text\n")
            self.wait_until(lambda: events().count("INJECTED") == 2, "two forks failed")
        # It may be about to run a command, which has its command line until then.
        self.wait_until(lambda: supervisors_of(daemon) == [supervisor], "no other supervisor")
        self.assertEqual(programs_of(daemon), [pid])
        kill(pid)
        self.wait_for_another(daemon, pid)
        self.assertEqual(supervisors_of(daemon), [supervisor])
        self.wait_for_line(r"^Archived '.*messages\.txt\.0'")


    def test_supervisor_cannot_fork_for_long(self) -> None:
        """It tries again once a second, not all the time."""
        self.set(daemon, "PROGRESS_SECONDS=10")
        self.start_both()
        supervisor, pid = supervisors_of(daemon)[0], programs_of(daemon)[0]
        kill(pid, signal.SIGSTOP)
        with self.failing_forks(supervisor, "1+") as events:
            (SYSLOG / "messages.txt.0").write_text("text\n")
            self.wait_until(lambda: events().count("INJECTED") >= 4, "four forks failed")
        self.assertNotIn("INJECTED INJECTED", " ".join(events()))
        self.assertEqual(supervisors_of(daemon), [supervisor])


class SyslogdRunsWithTheDaemon(InitCase):

    def test_started_by_the_daemons_script(self) -> None:
        daemon.start()
        self.assert_one_of_each()

    def test_not_without_syslogd(self) -> None:
        """A syslogd that does not come up is no reason to report OK."""
        self.set(syslogd, "SYSLOGD_ARGS=--wrong")
        self.assertEqual(self.call(daemon, "start")[0], 1)
        self.assertEqual(programs_of(daemon), [])
        self.set(syslogd)
        self.wait_until(lambda: programs_of(daemon), "the daemon is started")
        self.assert_one_of_each()

    def test_daemon_killed_while_syslogd_is_stopped(self) -> None:
        """Between the stop and the start around messages.txt.9. The last rotation is not overwritten
        by the lines that come then."""
        gate = self.slow_xz()
        self.set(daemon, "RESTART_SECONDS=1000", "RESTART_MAX_SECONDS=1000")
        syslogd.start()
        for number in range(10):
            (SYSLOG / f"messages.txt.{number}").write_text(f"rotation {number}\n")
        daemon.start()
        self.wait_until(lambda: gate.is_reached, "xz runs")
        self.assertEqual(programs_of(syslogd), [])

        kill(programs_of(daemon)[0])
        self.wait_until(lambda: programs_of(syslogd), "syslogd is back")
        self.wait_until(lambda: not any("xz -fk" in line for _, line in processes()), "xz is gone")
        self.assertEqual((SYSLOG / "messages.txt.tmp").read_text(), "rotation 9\n")
        self.assertFalse((SYSLOG / "messages.txt.9").exists())
        self.assertEqual(programs_of(daemon), [])

        gate.open()
        self.assertEqual(self.call(daemon, "start")[0], 0)
        self.wait_for_line(r"^Archived '.*messages\.txt\.tmp'")
        self.assertEqual(case.archive()[0], (1, "rotation 9\n"))

    def test_daemon_stopped_while_syslogd_is_stopped(self) -> None:
        """The daemon ends in the middle of its last cycle."""
        self.stand_in("xz", "exit 1")
        self.set(daemon, "RESTART_SECONDS=1000", "RESTART_MAX_SECONDS=1000")
        self.fast_sleep = 0
        self.start_both()
        (SYSLOG / "messages.txt.9").write_text("rotation 9\n")
        self.assertEqual(self.call(daemon, "stop")[0], 0)
        self.assertEqual(len(programs_of(syslogd)), 1)
        self.assertEqual((programs_of(daemon), supervisors_of(daemon)), ([], []))


class Costs(InitCase):

    def test_idle(self) -> None:
        """Two processes, hardly any memory of their own, and no wake-up in several cycles."""
        before = {line for _, line in processes()}
        self.start_both()
        more = [line for _, line in processes() if line not in before]
        self.assertEqual(len(more), 4, more)  # with syslogd and the daemon
        supervisors = supervisors_of(syslogd) + supervisors_of(daemon)
        for pid in supervisors:
            rollup = Path(f"/proc/{pid}/smaps_rollup").read_text()
            private = sum(int(size) for size in re.findall(r"Private_\w+: +(\d+) kB", rollup))
            self.assertLess(private, 700)

        wake_ups = self.wake_ups(supervisors)
        for number in range(2):
            (SYSLOG / "messages.txt.0").write_text(f"{number}\n")
            self.wait_until(lambda: len(case.archive()) == number + 1, "a cycle has passed")
        self.assertEqual(self.wake_ups(supervisors), wake_ups)

    def wake_ups(self, pids: list[int]) -> list[str]:
        status = [Path(f"/proc/{pid}/status").read_text() for pid in pids]
        return [re.findall(r"^voluntary_ctxt_switches:\t(\d+)$", text, re.MULTILINE)[0]
                for text in status]


class OtherShell(InitCase):
    """With the machine's own shell and tools."""

    def use_busybox(self) -> None:
        pass

    test_daemon_killed = Restart.test_daemon_killed
    test_syslogd_killed = Restart.test_syslogd_killed
    test_start_that_fails = Restart.test_start_that_fails
    test_stopped_by_its_script = Restart.test_stopped_by_its_script


if __name__ == "__main__":
    case.main()
