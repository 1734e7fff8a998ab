# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Test cases of the init scripts, with BusyBox as the shell and for all tools, as on a device."""
from __future__ import annotations

import os
import re
import signal
import subprocess
from pathlib import Path
from typing import Iterator, NoReturn

from tests.harness.case import SandboxCase, log_lines, write_script
from tests.harness.daemon import STAND_INS, start_settings
from tests.harness.paths import DAEMON, SYSLOG
from tests.harness.services import Service, daemon, syslogd

LIBRARY = Path("/usr/lib/vandis-moraine")
BUSYBOX = Path("/sbin/syslogd")
# What a test itself needs of the machine, and what BusyBox has under a name but not in full.
KEPT = {"bash", "mount", "python3", "sh", "start-stop-daemon", "syslogd", "umount", "xz"}

SYSLOGD_PROCESS = "/sbin/syslogd -n -O"
SUPERVISOR = {syslogd: f"{LIBRARY}/supervise {syslogd.script}",
              daemon: f"{LIBRARY}/supervise {daemon.script}"}
PROGRAM = {syslogd: SYSLOGD_PROCESS, daemon: DAEMON}


def processes() -> Iterator[tuple[int, str]]:
    """Yields the ID and the command line of all that run, zombies excepted."""
    for folder in Path("/proc").glob("[0-9]*"):
        try:
            words = (folder / "cmdline").read_bytes().split(b"\0")[:-1]
        except (FileNotFoundError, ProcessLookupError):
            continue
        if words:
            yield int(folder.name), b" ".join(words).decode(errors="replace")


def programs_of(service: Service) -> list[int]:
    return [pid for pid, line in processes() if line.startswith(PROGRAM[service])]


def supervisors_of(service: Service) -> list[int]:
    return [pid for pid, line in processes() if SUPERVISOR[service] in line]


def kill(pid: int, number: int = signal.SIGKILL) -> None:
    try:
        os.kill(pid, number)
    except ProcessLookupError:
        pass


class InitCase(SandboxCase):
    """Restarts follow after a second; the daemon's cycles are nine times as fast."""

    fast_sleep = 9.0

    def setUp(self) -> None:
        super().setUp()
        self.use_busybox()
        self.set(syslogd)
        self.set(daemon)
        self.addCleanup(self.end_services)

    def use_busybox(self) -> None:
        self.mount("--bind", str(BUSYBOX), os.path.realpath("/bin/sh"))
        names = subprocess.run(["busybox", "--list"], executable=BUSYBOX, stdout=subprocess.PIPE,
                               text=True, check=True).stdout.split()
        for name in set(names) - KEPT:
            link = Path("/usr/sbin", name)
            link.symlink_to(BUSYBOX)
            self.addCleanup(link.unlink)

    def set(self, service: Service, *settings: str) -> None:
        """In /etc/default, from the next start on."""
        lines = ["RESTART_SECONDS=1", "RESTART_MAX_SECONDS=1", *settings]
        if service is daemon:
            lines.insert(0, start_settings(self.fast_sleep))
        else:
            lines.insert(0, "ROTATION_KB=16")
        service.settings.write_text("\n".join(lines) + "\n")

    def end_services(self) -> None:
        """At once, whatever they are at."""
        for command in (f"{LIBRARY}/", "/etc/init.d/S"):
            for pid, line in processes():
                if command in line:
                    kill(pid)
        for service in (daemon, syslogd):
            for pid in programs_of(service):
                kill(pid, signal.SIGCONT)
                kill(pid)
            self.wait_until(lambda: not programs_of(service), "a killed process has ended")
        for pid, line in processes():
            if "xz -fk" in line:
                kill(pid)

    def call(self, service: Service, action: str) -> tuple[int, str]:
        """Returns the status and the output of an init script."""
        done = subprocess.run([service.script, action], stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, start_new_session=True)
        return done.returncode, done.stdout

    def start_both(self) -> None:
        syslogd.start()
        daemon.start()

    def wait_for_another(self, service: Service, pid: int) -> int:
        """Waits until the service's program is another process, and returns its ID."""
        others: list[int] = []

        def is_there() -> bool:
            others[:] = [other for other in programs_of(service) if other != pid]
            return others != []

        self.wait_until(is_there, f"a process other than {pid}")
        return others[0]

    def wait_for_line(self, pattern: str) -> None:
        self.wait_until(lambda: any(re.search(pattern, line) for line in log_lines()),
                        f"the line {pattern!r}")

    def assert_one_of_each(self) -> None:
        for service in (syslogd, daemon):
            self.assertEqual(len(programs_of(service)), 1, list(processes()))
            self.assertEqual(len(supervisors_of(service)), 1, list(processes()))

    def fail(self, msg: object = None) -> NoReturn:
        """Adds what the sandbox looks like."""
        running = [f"{pid} {line}" for pid, line in processes()]
        files = [f"{path.relative_to(SYSLOG)}" for path in sorted(SYSLOG.rglob("*"))][:50]
        super().fail("\n  ".join([str(msg), *running, *files, *log_lines()[-20:]]))


CLOCK, NAPS = Path("/scratch/uptime"), Path("/scratch/naps")
TICK = f"read -r now _ <{CLOCK}; echo $((now + $1)) 0 >{CLOCK}; echo $1 >>{NAPS}"


class SupervisorCase(SandboxCase):
    """The supervisor of a script of the test's own, by a clock that its sleeping moves, and that takes
    no time."""

    def setUp(self) -> None:
        super().setUp()
        CLOCK.write_text("1000 0\n")
        NAPS.touch()
        self.mount("--bind", str(CLOCK), "/proc/uptime")
        self.stand_in("sleep", TICK)

    def supervise(self, script: str, **settings: str) -> int:
        """Returns the supervisor's ID, which is that of its group, too."""
        write_script(Path("/scratch/script"), script)
        environment = {
            **os.environ, "PATH": f"{STAND_INS}:{os.environ['PATH']}", "FIRST_RESTART": "60",
            "RESTART_SECONDS": "60", "RESTART_MAX_SECONDS": "3600", "PROGRESS_SECONDS": "", **settings}
        supervisor = subprocess.Popen([str(LIBRARY / "supervise"), "/scratch/script"],
                                      env=environment, start_new_session=True)
        self.addCleanup(supervisor.wait)
        self.addCleanup(supervisor.kill)
        return supervisor.pid


def numbers(path: Path) -> list[int]:
    """Of whole lines."""
    return [int(line) for line in path.read_text().split("\n")[:-1]]
