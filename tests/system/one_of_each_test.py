# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""There is never more than one syslogd and one daemon, and never an OK without them."""
from __future__ import annotations

import os
import shutil
import subprocess
from pathlib import Path

from tests.harness import case
from tests.harness.paths import DAEMON, NOBODY
from tests.harness.init_case import (LIBRARY, InitCase, kill, processes, programs_of,
                                     supervisors_of)
from tests.harness.services import Service, daemon, syslogd

SYSLOGD = ["/sbin/syslogd", "-n", "-O", "/perm/logs/syslog/messages.txt"]


class OneOfEach(InitCase):

    def start_both_and_check(self) -> None:
        for service in (syslogd, daemon):
            self.assertEqual(self.call(service, "start")[0], 0)
        self.assert_one_of_each()

    def impostor(self, argv: list[str], user: int = NOBODY) -> int:
        """A process that only looks like this command. Returns its ID."""
        process = subprocess.Popen(argv, executable="/scratch/impostor", user=user)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        self.wait_until(lambda: (process.pid, " ".join(argv)) in list(processes()),
                        "it has its name")
        return process.pid

    def make_impostor(self) -> None:
        """A program that waits, whatever its arguments are."""
        source = Path("/scratch/impostor.c")
        source.write_text("#include <unistd.h>\nint main(void) { for (;;) pause(); }\n")
        subprocess.run(["cc", "-o", "/scratch/impostor", str(source)], check=True)
        Path("/scratch").chmod(0o755)


class ConcurrentCalls(OneOfEach):

    def race(self, service: Service, *actions: str) -> None:
        calls = [subprocess.Popen([service.script, action], stdout=subprocess.PIPE, text=True)
                 for action in actions]
        for call in calls:
            output, _ = call.communicate()
            self.assertEqual(call.returncode, 0, output)

    def test_two_starts(self) -> None:
        for _ in range(30):
            self.race(syslogd, "start", "start")
            self.assertEqual((len(programs_of(syslogd)), len(supervisors_of(syslogd))), (1, 1))
            self.race(syslogd, "stop", "stop")
            self.assertEqual((programs_of(syslogd), supervisors_of(syslogd)), ([], []))

    def test_two_starts_of_the_daemon(self) -> None:
        self.fast_sleep = 100
        self.set(daemon)
        for _ in range(30):
            self.race(daemon, "start", "start")
            self.assert_one_of_each()
            self.race(daemon, "stop", "stop")
            self.assertEqual((programs_of(daemon), supervisors_of(daemon)), ([], []))

    def test_all_at_once(self) -> None:
        self.start_both()
        for _ in range(5):
            self.race(daemon, "start", "restart", "start")
            self.race(syslogd, "restart", "start", "restart")
            self.assert_one_of_each()


class PidFiles(OneOfEach):

    def test_somebody_elses_process(self) -> None:
        """Of nobody, with the right name, and in the PID file."""
        self.make_impostor()
        for service, argv in ((syslogd, SYSLOGD), (daemon, [DAEMON])):
            pid = self.impostor(argv)
            service.pid_file.write_text(f"{pid}\n")
            self.assertEqual(self.call(service, "start")[0], 0)
            self.assertEqual(len(programs_of(service)), 2)
            self.assertEqual(int(service.pid_file.read_text()) in programs_of(service), True)
            self.assertNotEqual(int(service.pid_file.read_text()), pid)
            self.assertEqual(self.call(service, "stop")[0], 0)
            self.assertEqual(programs_of(service), [pid])

    def test_process_of_root_with_another_name(self) -> None:
        self.make_impostor()
        for service in (syslogd, daemon):
            pid = self.impostor(["/usr/sbin/other"], user=0)
            service.pid_file.write_text(f"{pid}\n")
            self.assertEqual(self.call(service, "start")[0], 0)
            service.pid_file.write_text(f"{pid}\n")
            self.assertEqual(self.call(service, "stop")[0], 0)
            self.assertTrue(Path(f"/proc/{pid}").exists())
            self.assertEqual(programs_of(service), [])

    def test_other_programs_with_our_names(self) -> None:
        """Of root, of nobody, and a set-user-ID program that nobody runs: neither trusted nor
        signalled, and in nobody's way."""
        self.make_impostor()
        Path("/scratch/impostor").chmod(0o4755)
        self.set(syslogd, "LOG_GROUP=root")
        commands = (SYSLOGD[:1], SYSLOGD, [DAEMON], [f"{LIBRARY}/supervise"])
        others = {self.impostor(command, user) for user in (0, NOBODY) for command in commands}
        for _ in range(2):
            for service in (syslogd, daemon):
                self.assertEqual(self.call(service, "start")[0], 0)
                self.assertEqual(len(set(programs_of(service)) - others), 1)
            for service in (daemon, syslogd):
                self.assertEqual(self.call(service, "stop")[0], 0)
                self.assertEqual(set(programs_of(service)) - others, set())
        self.assertEqual([pid for pid in others if "State:\tZ" in
                          Path(f"/proc/{pid}/status").read_text()], [])

    def test_set_user_id_program_without_command_line(self) -> None:
        """Is not waited for: forty of them kept a start busy for minutes."""
        self.make_impostor()
        Path("/scratch/impostor").chmod(0o4755)
        self.impostor([""])
        search = (f". {LIBRARY}/functions; sleep() {{ echo waits; }}; "
                  "find_processes /usr/sbin/nothing")
        found = subprocess.run(["sh", "-c", search], stdout=subprocess.PIPE, check=True)
        self.assertEqual(found.stdout, b"")

    def test_replaced_while_it_runs(self) -> None:
        """By another version of the program."""
        copies = [Path("/scratch/old"), Path("/scratch/new")]
        for copy in copies:
            shutil.copy(DAEMON, copy)
        self.mount("--bind", str(copies[0]), DAEMON)
        self.start_both()
        pid = programs_of(daemon)[0]
        copies[0].unlink()
        subprocess.run(["umount", "--lazy", DAEMON], check=True)
        subprocess.run(["mount", "--bind", str(copies[1]), DAEMON], check=True)
        self.start_both_and_check()
        self.assertEqual(programs_of(daemon), [pid])
        self.assertEqual(self.call(daemon, "restart")[0], 0)
        self.assert_one_of_each()
        self.assertNotEqual(programs_of(daemon), [pid])

    def test_nonsense(self) -> None:
        for content in ("", "\n", "1\n", "-1\n", "0\n", "99999999999\n", "x\n", "1 2\n"):
            with self.subTest(content):
                for service in (syslogd, daemon):
                    service.pid_file.write_text(content)
                self.start_both_and_check()

    def test_emptied(self) -> None:
        self.start_both()
        for _ in range(3):
            subprocess.run("rm -rf /run/*", shell=True, check=True)
            self.start_both_and_check()
            # The daemon finds syslogd by this file.
            self.assertEqual(syslogd.pid, programs_of(syslogd)[0])
            self.assertEqual(daemon.pid, programs_of(daemon)[0])
        for service in (daemon, syslogd):
            service.pid_file.unlink()
            service.stop()
            self.assertEqual(programs_of(service), [])

    def test_read_only(self) -> None:
        self.mount("-t", "tmpfs", "-o", "ro", "tmpfs", "/run")
        for _ in range(3):
            self.start_both_and_check()
        pid = programs_of(daemon)[0]
        kill(pid)
        self.wait_for_another(daemon, pid)
        for service in (daemon, syslogd):
            service.stop()
            self.assertEqual((programs_of(service), supervisors_of(service)), ([], []))

    def test_read_only_and_two_starts(self) -> None:
        self.mount("-t", "tmpfs", "-o", "ro", "tmpfs", "/run")
        for _ in range(10):
            calls = [subprocess.Popen([syslogd.script, "start"], stdout=subprocess.DEVNULL)
                     for _ in range(3)]
            self.assertEqual([call.wait() for call in calls], [0, 0, 0])
            self.assertEqual(len(programs_of(syslogd)), 1)
            syslogd.stop()

    def test_lock_is_roots(self) -> None:
        """Who could open the file could keep everybody else waiting."""
        self.start_both()
        locks = list(Path("/var/run").glob("S*.lock"))
        self.assertEqual(len(locks), 2)
        for lock in locks:
            self.assertEqual((lock.stat().st_mode & 0o777, lock.stat().st_uid), (0o600, 0))


class OtherSyslogd(OneOfEach):

    def test_is_no_reason_for_ok(self) -> None:
        """One that writes elsewhere would take our place at /dev/log."""
        other = subprocess.Popen(["/sbin/syslogd", "-n", "-O", "/scratch/log"])
        self.addCleanup(other.wait)
        self.addCleanup(other.kill)
        self.wait_until(lambda: Path("/dev/log").is_socket(), "it listens")
        self.assertEqual(self.call(syslogd, "start"),
                         (1, "Starting syslogd-moraine: FAIL (another syslogd is running)\n"))
        self.assertEqual(self.call(daemon, "start")[0], 1)
        os.kill(other.pid, 15)
        other.wait()
        self.start_both_and_check()


if __name__ == "__main__":
    case.main()
