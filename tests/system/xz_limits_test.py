# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""An xz that hangs, a daemon that does not end, and a file that cannot be archived."""
from __future__ import annotations

import os
import signal
import subprocess
from pathlib import Path

from tests.harness import case
from tests.harness.case import content_of, log_lines, write
from tests.harness.init_case import InitCase, kill, processes, programs_of, supervisors_of
from tests.harness.paths import FOREIGN, SYSLOG
from tests.harness.services import daemon, syslogd

HANG = "echo $$ >>/scratch/hung\nexec sleep 1000"
HANG_ONCE = f"[ -e /scratch/hung ] && exec /usr/bin/xz \"$@\"\n{HANG}"


def hung() -> list[int]:
    try:
        return [int(pid) for pid in Path("/scratch/hung").read_text().split()]
    except FileNotFoundError:
        return []


class HangingXz(InitCase):

    def test_is_ended(self) -> None:
        self.set(daemon, "XZ_TIMEOUT=1")
        self.stand_in("xz", HANG_ONCE)
        self.start_both()
        write("messages.txt.0", "text\n")
        self.wait_for_line(r"^Unable to 'xz -fk /perm/logs/syslog/messages\.txt\.0'")
        self.wait_for_line(r"^Archived '.*messages\.txt\.0'")
        self.assertFalse(Path(f"/proc/{hung()[0]}").exists())
        self.assert_one_of_each()
        self.assertFalse(FOREIGN.exists())

    def test_stopped_process(self) -> None:
        """SIGTERM alone would not end it."""
        self.set(daemon, "XZ_TIMEOUT=1")
        self.stand_in("xz", "[ -e /scratch/hung ] || { echo $$ >/scratch/hung; kill -STOP $$; }\n"
                            "exec /usr/bin/xz \"$@\"")
        self.start_both()
        write("messages.txt.0", "text\n")
        self.wait_for_line(r"^Archived '.*messages\.txt\.0'")
        self.assertEqual(len(hung()), 1)
        self.assert_one_of_each()

    def test_killed(self) -> None:
        """The file is not to blame, however often it happens."""
        self.stand_in("xz", "[ $1 = -fk ] && echo $$ >>/scratch/hung\n"
                            "[ $1 = -fk ] && [ $(wc -l </scratch/hung) -le 4 ] && kill -9 $$\n"
                            "exec /usr/bin/xz \"$@\"")
        self.start_both()
        write("messages.txt.0", "text\n")
        self.wait_for_line(r"^Archived '.*messages\.txt\.0'")
        self.assertFalse(FOREIGN.exists())


class Stop(InitCase):

    def start_hanging(self, stand_in: str = HANG) -> None:
        self.stand_in("xz", stand_in)
        self.start_both()
        write("messages.txt.0", "text\n")
        self.wait_until(hung, "xz hangs")

    def use_fast_sleep(self) -> None:
        """BusyBox's `sleep 0.1`, by which the scripts wait, takes no time."""
        link = Path("/usr/sbin/sleep")
        link.unlink()
        case.write_script(link, "exec usleep 2000")

    def test_xz_hangs(self) -> None:
        self.start_hanging()
        self.use_fast_sleep()
        self.assertEqual(self.call(daemon, "stop"),
                         (0, "Stopping vandis-moraine: OK (xz was killed)\n"))
        self.assert_nothing_runs()
        self.assertEqual(len(programs_of(syslogd)), 1)

    def test_daemon_is_stopped(self) -> None:
        self.start_both()
        self.use_fast_sleep()
        kill(programs_of(daemon)[0], signal.SIGSTOP)
        self.assertEqual(self.call(daemon, "stop"), (0, "Stopping vandis-moraine: OK (killed)\n"))
        self.assert_nothing_runs()

    def test_syslogd_is_stopped(self) -> None:
        syslogd.start()
        self.use_fast_sleep()
        kill(programs_of(syslogd)[0], signal.SIGSTOP)
        self.assertEqual(self.call(syslogd, "stop"), (0, "Stopping syslogd-moraine: OK\n"))
        self.assertEqual(programs_of(syslogd), [])

    def test_xz_left_over(self) -> None:
        """Of a daemon that was killed without it."""
        self.start_hanging()
        kill(supervisors_of(daemon)[0])
        kill(programs_of(daemon)[0])
        self.assertEqual(self.call(daemon, "stop")[0], 0)
        self.assert_nothing_runs()

    def test_restart_waits(self) -> None:
        """It does not give up in between, not even when its terminal goes."""
        self.start_hanging(HANG_ONCE)
        pid = programs_of(daemon)[0]
        restart = subprocess.Popen([daemon.script, "restart"], stdout=subprocess.PIPE, text=True)
        self.wait_until(lambda: not supervisors_of(daemon), "the restart is under way")
        for number in (signal.SIGHUP, signal.SIGINT, signal.SIGQUIT, signal.SIGTERM):
            restart.send_signal(number)
        kill(hung()[0])
        output, _ = restart.communicate()
        self.assertEqual((restart.returncode, output),
                         (0, "Stopping vandis-moraine: OK\nStarting vandis-moraine: OK\n"))
        self.wait_for_another(daemon, pid)
        self.assert_one_of_each()

    def test_restart_whose_output_nobody_reads(self) -> None:
        """As with "restart | head -c 1"."""
        self.start_both()
        for service in (syslogd, daemon):
            pid = programs_of(service)[0]
            restart = subprocess.Popen([service.script, "restart"], stdout=subprocess.PIPE,
                                       stderr=subprocess.DEVNULL, text=True)
            assert restart.stdout
            restart.stdout.read(1)
            restart.stdout.close()
            self.assertEqual(restart.wait(), 0)
            self.assertNotIn(programs_of(service), ([], [pid]))
        self.assert_one_of_each()

    def test_restart_of_a_daemon_that_hangs(self) -> None:
        self.start_hanging(HANG_ONCE)
        self.use_fast_sleep()
        self.assertEqual(self.call(daemon, "restart"),
                         (0, "Stopping vandis-moraine: OK (xz was killed)\n"
                             "Starting vandis-moraine: OK\n"))
        self.assert_one_of_each()
        self.wait_for_line(r"^Archived '.*messages\.txt\.0'")

    def assert_nothing_runs(self) -> None:
        self.assertEqual((programs_of(daemon), supervisors_of(daemon)), ([], []))
        self.wait_until(lambda: not [line for _, line in processes() if "xz -fk" in line],
                        "no xz is left")
        for pid in hung():
            self.wait_until(lambda: not Path(f"/proc/{pid}").exists(), "the xz that hung is gone")


class Unarchivable(InitCase):
    """xz fails for one file, as with a block that cannot be read."""

    def setUp(self) -> None:
        super().setUp()
        # Of a test before: its file may have had the same inode.
        Path("/var/run/vandis-moraine.failures").unlink(missing_ok=True)

    def bad(self, text: str) -> str:
        """The start of a stand-in that fails for the file with this text."""
        return (f"for file; do :; done\n"
                f"if grep -q '{text}' \"$file\" 2>/dev/null; then echo >>/scratch/tries; exit 1; fi\n")

    def tries(self) -> int:
        return Path("/scratch/tries").read_text().count("\n")

    def test_third_failure(self) -> None:
        self.stand_in("xz", self.bad("bad") + "exec /usr/bin/xz \"$@\"")
        self.start_both()
        write("messages.txt.3", "bad\n")
        write("messages.txt.1", "good\n")
        self.wait_for_line(rf"^'{SYSLOG}/messages\.txt\.3' could not be archived, three times in a "
                           rf"row, and has been moved to '{FOREIGN}'\.$")
        self.wait_for_line(r"^Archived '.*messages\.txt\.1'")
        self.assertEqual(self.tries(), 3)
        self.assertEqual((FOREIGN / "messages.txt.3").read_text(), "bad\n")
        self.assertEqual([text for _, text in case.archive()][0], "good\n")
        self.assert_one_of_each()

    def test_third_failure_with_a_read_only_var_run(self) -> None:
        self.mount("-t", "tmpfs", "-o", "ro", "tmpfs", "/run")
        self.test_third_failure()
        self.assertEqual(list(Path("/dev").glob("*.failures")), [])

    def test_hangs(self) -> None:
        """As long as it is this file."""
        self.set(daemon, "XZ_TIMEOUT=1")
        self.stand_in("xz", self.bad("bad").replace("exit 1", "exec sleep 1000") +
                      "exec /usr/bin/xz \"$@\"")
        self.start_both()
        write("messages.txt.3", "bad\n")
        write("messages.txt.1", "good\n")
        self.wait_for_line(r"^Archived '.*messages\.txt\.1'")
        self.assertEqual(self.tries(), 3)
        self.assertEqual((FOREIGN / "messages.txt.3").read_text(), "bad\n")

    def test_renamed_in_between(self) -> None:
        """syslogd rotates: the file counts, not its name."""
        self.set(daemon, "RESTART_SECONDS=1000", "RESTART_MAX_SECONDS=1000")
        self.stand_in("xz", self.bad("bad") + "exec /usr/bin/xz \"$@\"")
        syslogd.start()
        write("messages.txt.3", "bad\n")
        for tries in (1, 2):
            daemon.start()
            self.wait_until(lambda: sum("It is started again in 1000 seconds" in line
                                        for line in log_lines()) == tries, "it has failed again")
        os.rename(SYSLOG / "messages.txt.3", SYSLOG / "messages.txt.4")
        daemon.start()
        self.wait_until(lambda: list(FOREIGN.glob("messages.txt.*")), "it is moved")
        self.assertEqual(content_of(FOREIGN), {"messages.txt.4": "bad\n"})
        self.assertEqual(self.tries(), 3)

    def test_full_disk(self) -> None:
        """Not the file's fault, nor that of any other."""
        self.mount("-t", "tmpfs", "-o", "size=1288490188", "tmpfs", "/perm")
        syslogd.start()
        with (SYSLOG / "messages.txt.0").open("wb") as file:
            file.write(os.urandom(1 << 20))
        filler = Path("/perm/filler")
        with filler.open("wb") as file:
            os.posix_fallocate(file.fileno(), 0, os.statvfs("/perm").f_bavail * 4096 - (256 << 10))
        daemon.start()
        self.wait_until(lambda: sum(line.startswith("Unable to 'xz -fk") for line in log_lines()) >= 4,
                        "it has failed four times")
        self.assertFalse(FOREIGN.exists())
        self.assertTrue((SYSLOG / "messages.txt.0").exists())
        filler.unlink()
        self.wait_for_line(r"^Archived '.*messages\.txt\.0'")

    def test_no_xz_works(self) -> None:
        self.stand_in("xz", "echo >>/scratch/tries\nexit 1")
        self.start_both()
        write("messages.txt.0", "text\n")
        self.wait_until(lambda: Path("/scratch/tries").exists() and self.tries() >= 8, "it failed")
        self.assertFalse(FOREIGN.exists())

    def test_not_in_a_row(self) -> None:
        """A success begins the count anew."""
        self.stand_in("xz", "for file; do :; done\n"
                            "if [ \"$(cat \"$file\")\" = bad ] && [ -e /scratch/fail ]; then\n"
                            "  echo >>/scratch/tries; exit 1\nfi\nexec /usr/bin/xz \"$@\"")
        Path("/scratch/fail").touch()
        self.start_both()
        write("messages.txt.0", "bad")
        self.wait_until(lambda: Path("/scratch/tries").exists() and self.tries() == 2, "two failures")
        Path("/scratch/fail").unlink()
        self.wait_for_line(r"^Archived '.*messages\.txt\.0'")
        self.assertFalse(Path("/var/run/vandis-moraine.failures").exists())


if __name__ == "__main__":
    case.main()
