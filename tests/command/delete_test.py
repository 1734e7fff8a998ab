# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""`moraine delete`: which files go, who is asked, and that the daemon is stopped and started."""
from __future__ import annotations

import os
import signal
import subprocess
from pathlib import Path

from tests.command.command import (CommandCase, environment, line, program, snapshot, write_archive,
                                   write_log)
from tests.harness import case, services, waiting
from tests.harness.case import write_script
from tests.harness.daemon import SCRATCH, start_settings
from tests.harness.paths import ARCHIVE, SYSLOG
from tests.harness.terminal import Terminal

SCRIPT = Path("/etc/init.d/S90vandis-moraine")


class DeleteCase(CommandCase):
    """Two files each of the boots 1, 2 and 4, and a stand-in for the daemon's script that notes its
    calls and the archive at each of them."""

    def setUp(self) -> None:
        super().setUp()
        for boot in (1, 2, 4):
            for minute in (1, 2):
                write_archive(boot, f"boot {boot}, minute {minute}\n", minute=minute)
        write_log("messages.txt", line("app: live"))
        self.calls = SCRATCH / "calls"
        self.replace_script("exit 0")

    def replace_script(self, rest: str) -> None:
        script = SCRATCH / "S90"
        write_script(script, f'echo "$1 $(ls {ARCHIVE} | wc -l)" >>{self.calls}\n{rest}')
        self.mount("--bind", str(script), str(SCRIPT))

    @property
    def called(self) -> list[str]:
        return self.calls.read_text().splitlines() if self.calls.exists() else []

    @property
    def left(self) -> list[str]:
        """Boots and minutes."""
        return [f"{path.name[11]}-{path.name[28]}" for path in sorted(ARCHIVE.glob("messages.*"))]


class Choice(DeleteCase):
    ALL = ["1-1", "1-2", "2-1", "2-2", "4-1", "4-2"]

    def check_left(self, expected: list[str], *arguments: str) -> None:
        names = {path.name: path.stat().st_size for path in ARCHIVE.iterdir()}
        result = self.check("delete", "--yes", *arguments)
        self.assertEqual(self.left, expected)
        for name, size in names.items():
            if not (ARCHIVE / name).exists():
                self.assertRegex(result.text, rf"(?m)^.*\b{size}\b.*{name}.*$")
            else:
                self.assertNotIn(name, result.text)

    def test_oldest(self) -> None:
        self.check_left(self.ALL[3:], "--oldest", "--files", "3")
        self.check_left(self.ALL[4:], "--oldest", "--boots", "1")

    def test_newest(self) -> None:
        self.check_left(self.ALL[:5], "--newest", "--files=1")
        self.check_left(self.ALL[:2], "--newest", "--boots", "2")

    def test_both_limits(self) -> None:
        self.check_left(self.ALL[1:], "--oldest", "--files", "1", "--boots", "2")
        self.check_left(self.ALL[2:], "--oldest", "--files", "5", "--boots", "1")

    def test_boots(self) -> None:
        self.check_left(["1-1", "1-2", "4-1", "4-2"], "-b", "2")
        self.check_left(["1-1", "1-2"], "-b", "-1")

    def test_a_range(self) -> None:
        self.check_left(["4-1", "4-2"], "--boot=1..3")

    def test_the_last_one_of_an_option_counts(self) -> None:
        self.check_left(["1-1", "2-1", "2-2", "4-1", "4-2"],
                        "-b", "1..2", "--newest", "--files", "3", "--boots", "1", "-b", "1..1",
                        "--files", "1")

    def test_all(self) -> None:
        self.check_left([], "--oldest", "--files", "65536")

    def test_foreign_files_and_waiting_logs_are_kept(self) -> None:
        kept = [ARCHIVE / "notes.txt", ARCHIVE / "messages.x.txt.xz", SYSLOG / "messages.txt",
                SYSLOG / "messages.txt.0"]
        for path in kept:
            path.write_text("")
        self.check("delete", "--yes", "--oldest", "--boots", "99")
        self.assertTrue(all(path.exists() for path in kept))
        self.assertEqual(len(list(ARCHIVE.iterdir())), 2)

    def test_boots_are_ordered_as_numbers(self) -> None:
        write_archive(1000, "")
        self.check("delete", "--yes", "--newest", "--files", "1")
        self.assertEqual(self.left, self.ALL)


class Asking(DeleteCase):
    def test_nothing_goes_without_yes(self) -> None:
        before = snapshot(SYSLOG)
        self.refuse("delete", "--oldest", "--files", "1", naming="--yes")
        self.assertEqual(snapshot(SYSLOG), before)
        self.assertEqual(self.called, [])

    def test_dry_run_prints_only(self) -> None:
        before = snapshot(SYSLOG)
        result = self.check("delete", "--oldest", "--files", "2", "--dry-run")
        self.assertEqual(len(result.lines), 2)
        self.assertEqual(snapshot(SYSLOG), before)
        self.assertEqual(self.called, [])

    def answer(self, text: str) -> tuple[int, str]:
        """On a terminal. Returns the status and what it printed."""
        terminal = Terminal()
        self.addCleanup(terminal.close)
        process = subprocess.Popen([program(), "delete", "--oldest", "--files", "1"],
                                   stdin=terminal.slave, stdout=terminal.slave,
                                   stderr=terminal.slave, env=environment())
        os.close(terminal.slave)
        os.write(terminal.master, text.encode())
        printed = terminal.read_all()
        return process.wait(waiting.limit), printed

    def test_yes_on_a_terminal(self) -> None:
        status, printed = self.answer("y\n")
        self.assertEqual(status, 0)
        self.assertIn("messages.001.1970-01-01.00:01:00.txt.xz", printed)
        self.assertEqual(len(self.left), 5)

    def test_no_on_a_terminal(self) -> None:
        for text in ("n\n", "\n", "maybe\n", "\x04"):
            status, _ = self.answer(text)
            self.assertEqual(status, 1)
        self.assertEqual(len(self.left), 6)
        self.assertEqual(self.called, [])

    def test_usage_errors(self) -> None:
        for arguments in ([], ["--oldest"], ["--newest"], ["--files", "1"], ["--boots", "1"],
                          ["--oldest", "--newest", "--files", "1"], ["--oldest", "--files", "-1"],
                          ["--oldest", "--files", "x"], ["-b", "3..1"], ["-b", "x"],
                          ["--oldest", "--files", "1", "-D", "."], ["all"]):
            self.refuse("delete", "--yes", *arguments)
        self.assertEqual(len(self.left), 6)
        self.assertEqual(self.called, [])


class TheDaemon(DeleteCase):
    def test_it_is_stopped_before_and_started_after(self) -> None:
        self.check("delete", "--yes", "--oldest", "--files", "2")
        self.assertEqual(self.called, ["stop 6", "start 4"])

    def test_nothing_to_delete_is_status_1_and_leaves_it_alone(self) -> None:
        for arguments in (["-b", "3"], ["--oldest", "--files", "0"], ["--newest", "--boots", "0"]):
            self.check("delete", "--yes", *arguments, status=1)
        self.assertEqual(self.called, [])

    def test_if_it_does_not_stop_nothing_goes_and_it_is_started(self) -> None:
        self.replace_script('[ "$1" != stop ] || { echo "process 7 does not end"; exit 1; }')
        result = self.check("delete", "--yes", "--oldest", "--files", "2", status=2)
        self.assertIn("process 7 does not end", result.error)
        self.assertEqual(result.out, b"")
        self.assertEqual(self.called, ["stop 6", "start 6"])

    def test_a_script_that_fails_silently(self) -> None:
        for end, reason in (("exit 3", "ended with status 3"),
                            ("kill -KILL $$", "was killed by signal 9")):
            self.replace_script(f'[ "$1" != stop ] || {end}')
            result = self.check("delete", "--yes", "--oldest", "--files", "2", status=2)
            self.assertIn(f"{SCRIPT} stop: {reason}\n", result.error)

    def test_a_file_that_goes_while_the_daemon_stops_is_not_counted(self) -> None:
        first, second = sorted(ARCHIVE.iterdir())[:2]
        self.replace_script(f"rm -f {first}")
        result = self.check("delete", "--yes", "--oldest", "--files", "2")
        self.assertEqual([line.split()[-1] for line in result.lines], [second.name])
        self.assertIn("Deleted 1 file, ", result.error)

    def test_if_it_does_not_start_the_message_says_so(self) -> None:
        self.replace_script('[ "$1" != start ] || { echo "no daemon"; exit 1; }')
        result = self.check("delete", "--yes", "--oldest", "--files", "2", status=2)
        self.assertIn("no daemon", result.error)
        self.assertEqual(len(self.left), 4)

    def test_an_interrupt_meanwhile_does_not_leave_it_stopped(self) -> None:
        # The signal comes while the script stops the daemon.
        self.replace_script('[ "$1" != stop ] || kill -INT "$PPID"')
        self.check("delete", "--yes", "--oldest", "--files", "2", status=130)
        self.assertEqual(self.called, ["stop 6", "start 6"])

    def test_a_closed_standard_error_does_not_leave_it_stopped(self) -> None:
        self.replace_script('[ "$1" != stop ] || { echo "process 7 does not end"; exit 1; }')
        reader, writer = os.pipe()
        os.close(reader)
        self.addCleanup(os.close, writer)
        self.check("delete", "--yes", "--oldest", "--files", "2", status=-signal.SIGPIPE,
                   stderr=writer)
        self.assertEqual(self.called, ["stop 6", "start 6"])

    def test_a_file_that_cannot_be_deleted(self) -> None:
        stuck = sorted(ARCHIVE.iterdir())[0]
        self.mount("--bind", str(stuck), str(stuck))
        result = self.check("delete", "--yes", "--oldest", "--files", "2", status=2)
        self.assertIn(stuck.name, result.error)
        self.assertNotIn(stuck.name, result.text)
        self.assertEqual(self.called, ["stop 6", "start 5"])


class TheRealDaemon(CommandCase):
    def test_its_size_is_measured_anew(self) -> None:
        services.daemon.settings.write_text(start_settings(0))
        write_archive(1, line("app: text"))
        write_archive(1, line("app: text"), minute=1)
        services.syslogd.start()
        self.addCleanup(services.syslogd.stop)
        services.daemon.start()
        self.addCleanup(services.daemon.stop)
        before = services.daemon.pid
        self.check("delete", "--yes", "--oldest", "--files", "1")
        self.assertFalse((ARCHIVE / "messages.001.1970-01-01.00:00:00.txt.xz").exists())
        self.assertIsNotNone(services.daemon.pid)
        self.assertNotEqual(services.daemon.pid, before)

    def test_it_is_started_if_it_did_not_run(self) -> None:
        services.daemon.settings.write_text(start_settings(0))
        write_archive(1, line("app: text"))
        self.check("delete", "--yes", "--oldest", "--files", "1")
        self.addCleanup(services.daemon.stop)
        self.assertIsNotNone(services.daemon.pid)


if __name__ == "__main__":
    case.main()
