# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""The init scripts refuse settings that would leave the device without its log, and name them."""
from __future__ import annotations

import os
import subprocess

from tests.harness import case, services
from tests.harness.case import SandboxCase, write
from tests.harness.init_case import InitCase, kill, processes, programs_of
from tests.harness.paths import SYSLOG


class SettingsCase(SandboxCase):

    def setUp(self) -> None:
        super().setUp()
        for service in (services.syslogd, services.daemon):
            self.addCleanup(self.end, service)

    def end(self, service: services.Service) -> None:
        self.set(service, "")
        service.stop()

    def set(self, service: services.Service, line: str) -> None:
        service.settings.write_text(f"{line}\n")

    def assert_accepted(self, service: services.Service, line: str) -> None:
        with self.subTest(line):
            self.set(service, line)
            service.start()
            self.assertIsNotNone(service.pid)
            service.stop()

    def assert_refused(self, service: services.Service, line: str, text: str) -> None:
        with self.subTest(line):
            self.set(service, line)
            done = subprocess.run([service.script, "start"], stdout=subprocess.PIPE, text=True)
            self.assertEqual((done.returncode, done.stdout), (1, f"{service.settings}: {text}\n"))
            self.assertIsNone(service.pid)


def may_lower_niceness() -> bool:
    niceness = os.getpriority(os.PRIO_PROCESS, 0)
    try:
        os.setpriority(os.PRIO_PROCESS, 0, niceness - 1)
    except PermissionError:
        return False
    os.setpriority(os.PRIO_PROCESS, 0, niceness)
    return True


class Syslogd(SettingsCase):

    def check(self, name: str, accepted: list[str], refused: list[str], allowed: str) -> None:
        for value in accepted:
            self.assert_accepted(services.syslogd, f"{name}={value}")
        for value in refused:
            self.assert_refused(
                services.syslogd, f"{name}={value}", f"{name}={value}, but it must be {allowed}")

    def test_rotation_size(self) -> None:
        self.check("ROTATION_KB", ["1", "1048576"],
                   ["", "abc", "0", "-1", "1k", "2000000", "10000000"], "1 to 1999999")

    def test_rotations(self) -> None:
        self.check("ROTATIONS", ["1", "10"], ["", "abc", "0", "-1", "11", "100"], "1 to 10")

    def test_groups(self) -> None:
        for name in ("LOG_GROUP", "SOCKET_GROUP"):
            for group in ("nosuch", ".*"):
                self.assert_refused(services.syslogd, f"{name}={group}",
                                    f"{name}={group}, but there is no such group")

    def test_what_runs_can_be_stopped_but_not_started_anew(self) -> None:
        for service, wrong in ((services.syslogd, "ROTATIONS=x"), (services.daemon, "NICE_LEVEL=x")):
            with self.subTest(wrong):
                services.syslogd.start()
                self.set(service, "")
                service.start()
                self.set(service, wrong)
                self.assertEqual(subprocess.run([service.script, "restart"],
                                                stdout=subprocess.DEVNULL).returncode, 1)
                self.assertIsNotNone(service.pid)
                service.stop()
                self.assertIsNone(service.pid)
                self.set(service, "")


class Restarts(SettingsCase):

    def test_numbers(self) -> None:
        for service, names in ((services.syslogd, ("RESTART_SECONDS", "RESTART_MAX_SECONDS")),
                               (services.daemon, ("RESTART_SECONDS", "RESTART_MAX_SECONDS",
                                                  "XZ_TIMEOUT", "PROGRESS_SECONDS"))):
            for name in names:
                for value in ("", "0", "-1", "1.5", "x", "1000000"):
                    self.assert_refused(service, f"{name}={value}",
                                        f"{name}={value}, but it must be 1 to 999999")

    def test_limits(self) -> None:
        self.assert_refused(services.daemon, "RESTART_SECONDS=3; RESTART_MAX_SECONDS=2",
                            "RESTART_SECONDS=3, but RESTART_MAX_SECONDS=2")


class Daemon(SettingsCase):

    def test_niceness(self) -> None:
        services.syslogd.start()
        for value in ("0", "9", "10", "19"):
            self.assert_accepted(services.daemon, f"NICE_LEVEL={value}")
        for value in ("", "x", "-", "20", "-21", "100", "1.5"):
            self.assert_refused(
                services.daemon, f"NICE_LEVEL={value}",
                f"NICE_LEVEL={value}, but it must be -20 to 19")

    def test_negative_niceness(self) -> None:
        """An ordinary user may not have it: then nice says so, not the script."""
        for value in ("-1", "-9", "-10", "-20"):
            if may_lower_niceness():
                self.assert_accepted(services.daemon, f"NICE_LEVEL={value}")
                continue
            with self.subTest(value):
                self.set(services.daemon, f"NICE_LEVEL={value}")
                done = subprocess.run([services.daemon.script, "start"], stdout=subprocess.PIPE,
                                      text=True)
                self.assertNotIn("but it must be", done.stdout)
                services.daemon.stop()


WRONG = ("RESTART_SECONDS=x", "RESTART_SECONDS='", "RESTART_SECONDS=1\r")


class SettingsThatHaveBecomeWrong(InitCase):
    """What runs already is kept running, with the defaults."""

    def set_wrong(self, line: str = "ROTATION_KB=x NICE_LEVEL=x") -> None:
        for service in (services.syslogd, services.daemon):
            service.settings.write_text(f"{line}\n")

    def test_killed(self) -> None:
        self.start_both()
        self.set_wrong()
        for service in (services.syslogd, services.daemon):
            pid = programs_of(service)[0]
            kill(pid)
            self.wait_for_another(service, pid)
        self.assertIn("-s 1024 ", next(line for pid, line in processes()
                                       if pid in programs_of(services.syslogd)))
        self.wait_for_line(r"^/etc/default/vandis-moraine: NICE_LEVEL=x, but it must be -20 to 19\.  "
                           r"The defaults are used\.$")
        self.assertIn(" syslogd-moraine: /etc/default/syslogd-moraine: ROTATION_KB=x, but it must be "
                      "1 to 1999999.  The defaults are used.\n",
                      (SYSLOG / "messages.txt").read_text())
        self.assert_one_of_each()

    def test_last_rotation(self) -> None:
        """The daemon stops syslogd, and gets it back."""
        self.start_both()
        pid = programs_of(services.syslogd)[0]
        self.set_wrong()
        write("messages.txt.9", "text\n")
        self.wait_for_line("^Syslog had to be stopped")
        self.wait_for_another(services.syslogd, pid)
        self.assert_one_of_each()

    def test_stop(self) -> None:
        for line in WRONG:
            with self.subTest(line):
                self.start_both()
                self.set_wrong(line)
                for service in (services.daemon, services.syslogd):
                    pid = programs_of(service)
                    for action in ("start", "restart"):
                        status, output = self.call(service, action)
                        self.assertEqual(status, 1)
                        self.assertIn(f"{service.settings}: ", output)
                        self.assertEqual(programs_of(service), pid)
                    self.assertEqual(self.call(service, "stop")[0], 0)
                    self.assertEqual(programs_of(service), [])
                    self.set(service)


if __name__ == "__main__":
    case.main()
