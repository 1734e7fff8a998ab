# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Check cycles: which file is next, the last rotation, the live log, and what may happen to a file
while it is compressed."""
from __future__ import annotations

import os
import signal
from signal import SIGHUP, SIGINT, SIGTERM

from tests.harness import case, services
from tests.harness.case import BlackBoxCase, Gate, archive, content_of, write, write_sparse
from tests.harness.daemon import (ARCHIVE_SIZE, END, INITIALIZING, RUNNING, SCRATCH, STAND_INS, START,
                                  STATUS_AFTER, Like, archived, caught, error, exiting, info,
                                  warning, xz_failed)
from tests.harness.log_socket import Line
from tests.harness.paths import LIVE_LOG, SYSLOG

SYSLOGD_PID_FILE = services.syslogd.pid_file
TEN_MIB = 10 * 1024 * 1024
ABOVE_THE_LIMIT = f"[{TEN_MIB + 1} zeros]"
LAST = str(SYSLOG / "messages.txt.9")
MESSAGES_LOST = error("Syslog had to be stopped to deal with its last possible rotation.  "
                      "Messages were lost.")


def script_failed(action: str, wait_status: int) -> Line:
    return error(Like(rf"Unable to '/etc/init\.d/S01syslogd-moraine {action}'\.  "
                      rf"Result: {wait_status}, Error: '[^']*'"))


class Backlog(BlackBoxCase):

    def test_order(self) -> None:
        """The greatest rotation is the oldest and goes first; a small live log stays."""
        write("messages.txt", "live")
        for number in (0, 3, 8):
            write(f"messages.txt.{number}", f"rotation {number}")
        daemon = self.start(fast_sleep=50)

        self.log.wait_for(archived("messages.txt.0"))
        self.assertEqual(self.stop(daemon), 0)

        self.assertEqual(self.log.all(), [
            *START, archived("messages.txt.8"), archived("messages.txt.3"),
            archived("messages.txt.0"), *END])
        self.assertEqual(archive(), [(1, "rotation 8"), (1, "rotation 3"), (1, "rotation 0")])
        self.assertEqual(content_of(SYSLOG), {"messages.txt": "live", "archive/": ""})

    def test_one_file_in_a_cycle(self) -> None:
        """One cycle archives one file, whatever waits."""
        for number in (0, 1, 2):
            write(f"messages.txt.{number}", f"rotation {number}")

        self.assertEqual(self.run_once(), [*START, caught(SIGTERM), archived("messages.txt.2"),
                                           exiting(0)])
        self.assertEqual(content_of(SYSLOG), {
            "messages.txt": "", "messages.txt.0": "rotation 0", "messages.txt.1": "rotation 1",
            "archive/": ""})

    def test_rotation_goes_before_a_large_live_log(self) -> None:
        """A live log of more than 10 MiB waits while there is a rotation."""
        write_sparse(LIVE_LOG, TEN_MIB + 1)
        write("messages.txt.0", "rotation")

        self.assertEqual(self.run_once(), [*START, caught(SIGTERM), archived("messages.txt.0"),
                                           exiting(0)])
        self.assertEqual(LIVE_LOG.stat().st_size, TEN_MIB + 1)


class LastRotation(BlackBoxCase):
    """messages.txt.9: syslogd has no further name and is stopped meanwhile."""

    def setUp(self) -> None:
        super().setUp()
        write("messages.txt.9", "last")
        write("messages.txt.8", "last but one")
        self.calls = SCRATCH / "calls"

    def check(self, lines: list[Line], calls: str, syslog: dict[str, str]) -> None:
        self.stand_in("xz", f'echo xz >>{self.calls}; exec /usr/bin/xz "$@"')
        self.assertEqual(self.run_once(), [*START, *lines])
        self.assertEqual(self.calls.read_text().split(), calls.split())
        self.assertEqual(content_of(SYSLOG), {
            "messages.txt": "", "messages.txt.8": "last but one", "archive/": "", **syslog})

    def test_order(self) -> None:
        """syslogd stops, the file is archived, syslogd starts, and the Error line says so."""
        self.init_script('echo "$1" >>/scratch/calls')
        self.check([caught(SIGTERM), archived("messages.txt.9"), MESSAGES_LOST, exiting(0)],
                   "stop xz start", {})
        self.assertEqual(self.status, 0)
        self.assertEqual(archive(), [(1, "last")])

    def test_stop_fails(self) -> None:
        """A syslogd that does not stop: archived all the same."""
        self.init_script('echo "$1" >>/scratch/calls; [ "$1" != stop ]')
        self.check([caught(SIGTERM), script_failed("stop", 256), archived("messages.txt.9"),
                    MESSAGES_LOST, exiting(0)], "stop xz start", {})
        self.assertEqual(self.status, 0)

    def test_start_fails(self) -> None:
        """A syslogd that does not start again: status 1."""
        self.init_script('echo "$1" >>/scratch/calls; [ "$1" != start ]')
        self.check([caught(SIGTERM), archived("messages.txt.9"), script_failed("start", 256),
                    exiting(1)], "stop xz start", {})
        self.assertEqual(self.status, 1)

    def test_no_script(self) -> None:
        """An init script that is not executable: stopping does not matter, starting does."""
        self.init_script("")
        (SCRATCH / "init-script").chmod(0o644)
        self.check([caught(SIGTERM), script_failed("stop", 32256), archived("messages.txt.9"),
                    script_failed("start", 32256), exiting(1)], "xz", {})

    def test_archiving_fails(self) -> None:
        """syslogd stays stopped, the file stays, and the status is 1."""
        self.init_script('echo "$1" >>/scratch/calls')
        self.stand_in("xz", "exit 1")
        self.assertEqual(self.run_once(), [*START, caught(SIGTERM), xz_failed(LAST, 256),
                                           exiting(1)])
        self.assertEqual(self.status, 1)
        self.assertEqual(self.calls.read_text(), "stop\n")
        self.assertEqual(content_of(SYSLOG), {
            "messages.txt": "", "messages.txt.8": "last but one", "messages.txt.9": "last",
            "archive/": ""})

    def check_signal_while_syslogd_stops(self, number: signal.Signals) -> None:
        gate = Gate("stop")
        self.init_script(f'[ "$1" = start ] || {{ {gate.script}\n}}')
        daemon = self.start(fast_sleep=50)
        self.wait_until(lambda: gate.is_reached, "syslogd is being stopped")

        daemon.signal(number)
        gate.open()

        status = STATUS_AFTER[number]
        self.assertEqual(self.wait(daemon), status)
        self.assertEqual(self.log.all(), [*START, caught(number), archived("messages.txt.9"),
                                          MESSAGES_LOST, exiting(status)])
        self.assertTrue((SYSLOG / "messages.txt.8").exists(), "there was a further cycle")

    def test_sigterm_while_syslogd_stops(self) -> None:
        """SIGTERM while the init script runs: syslogd is started again before the end."""
        self.check_signal_while_syslogd_stops(SIGTERM)

    def test_sigint_while_syslogd_stops(self) -> None:
        """SIGINT while the init script runs: the same, status 2."""
        self.check_signal_while_syslogd_stops(SIGINT)


class SighupCounter:
    """This process as syslogd."""

    def __init__(self, test: BlackBoxCase) -> None:
        self.count = 0
        before = signal.signal(SIGHUP, self._add)
        test.addCleanup(signal.signal, SIGHUP, before)

    def _add(self, *_: object) -> None:
        self.count += 1


class LiveLog(BlackBoxCase):

    def setUp(self) -> None:
        super().setUp()
        self.sighups = SighupCounter(self)
        SYSLOGD_PID_FILE.write_text(f"{os.getpid()}\n")

    def test_at_the_limit(self) -> None:
        """A live log of exactly 10 MiB stays."""
        write_sparse(LIVE_LOG, TEN_MIB)

        self.assertEqual(self.run_once(), [*START, *END])
        self.assertEqual(LIVE_LOG.stat().st_size, TEN_MIB)
        self.assertEqual(self.sighups.count, 0)

    def test_above_the_limit(self) -> None:
        """One byte more: it is renamed, syslogd gets one SIGHUP, and it is archived."""
        write_sparse(LIVE_LOG, TEN_MIB + 1)

        self.assertEqual(self.run_once(), [*START, caught(SIGTERM), archived("messages.txt"),
                                           exiting(0)])
        self.assertEqual(self.sighups.count, 1)
        self.assertEqual(archive(), [(1, ABOVE_THE_LIMIT)])
        self.assertEqual(content_of(SYSLOG), {"archive/": ""})

    def test_rotation_sends_no_signal(self) -> None:
        """A rotation is archived without a word to syslogd."""
        write("messages.txt.0", "rotation")
        self.assertIn(archived("messages.txt.0"), self.run_once())
        self.assertEqual(self.sighups.count, 0)

    def test_compression_fails(self) -> None:
        """The renamed live log stays for the next start, which archives it."""
        write_sparse(LIVE_LOG, TEN_MIB + 1)
        self.stand_in("xz", "exit 1")
        self.assertEqual(self.run_once(), [*START, caught(SIGTERM), xz_failed(
            "/perm/logs/syslog/messages.txt.tmp", 256), exiting(1)])
        self.assertEqual(self.status, 1)

        (STAND_INS / "xz").unlink()
        write(LIVE_LOG, "new")
        self.assertEqual(self.run_once(), [INITIALIZING, archived("messages.txt.tmp"),
                                           ARCHIVE_SIZE, RUNNING, *END])
        self.assertEqual(archive(), [(1, ABOVE_THE_LIMIT)])
        self.assertEqual(content_of(SYSLOG), {"messages.txt": "new", "archive/": ""})

    def test_interrupted_one_is_not_replaced(self) -> None:
        """An interrupted live log goes before the live log that would take its name."""
        daemon = self.start_and_wait(fast_sleep=50)
        write("messages.txt.tmp", "interrupted")
        write_sparse(LIVE_LOG, TEN_MIB + 1)

        self.log.wait_for(archived("messages.txt"))
        write(LIVE_LOG)  # as syslogd would
        self.assertEqual(self.stop(daemon), 0)

        self.assertEqual(archive(), [(1, "interrupted"), (1, ABOVE_THE_LIMIT)])
        self.assertEqual(content_of(SYSLOG), {"messages.txt": "", "archive/": ""})

    def test_line_when_all_is_done(self) -> None:
        """syslogd may still write to the renamed live log when xz has long ended."""
        write_sparse(LIVE_LOG, TEN_MIB + 1)
        written = SCRATCH / "written"
        # syslogd opens its new file at the next full second.
        self.stand_in("xz", f"""/usr/bin/xz "$@"
[ -e {written} ] && exit
touch {written}
(exec 9>>{LIVE_LOG}.tmp; sleep 0.3; echo "late line" >&9) &""")
        self.assertEqual(self.run_once(), [*START, caught(SIGTERM), archived("messages.txt"),
                                           exiting(0)])
        self.assertEqual(archive(), [(1, f"{ABOVE_THE_LIMIT}late line\n")])

    def test_late_lines(self) -> None:
        """What syslogd still writes to the renamed live log while xz runs is archived."""
        write_sparse(LIVE_LOG, TEN_MIB + 1)
        daemon = self.start_and_wait()
        gate = self.held_xz()
        with LIVE_LOG.open("a") as live_log:  # open, as syslogd has it
            daemon.signal(SIGTERM)
            self.wait_until(lambda: gate.is_reached, "xz has compressed the log")
            live_log.write("late line\n")
        gate.open()

        self.assertEqual(self.wait(daemon), 0)
        self.assertEqual(self.log.all(), [*START, caught(SIGTERM), archived("messages.txt"),
                                          exiting(0)])
        self.assertEqual(archive(), [(1, f"{ABOVE_THE_LIMIT}late line\n")])


class PidFile(BlackBoxCase):
    """Whatever it holds: the live log is taken, and no other process gets a signal."""

    def setUp(self) -> None:
        super().setUp()
        self.sighups = SighupCounter(self)
        self.stand_in("xz", "exit 1")  # only the signal matters

    def check(self, sighups: int, *lines: Line) -> None:
        """`lines`: besides those of a live log whose compression fails."""
        self.sighups.count = 0
        write_sparse(LIVE_LOG, TEN_MIB + 1)
        came = self.run_once()
        (SYSLOG / "messages.txt.tmp").unlink()
        self.assertEqual(came, [*START, caught(SIGTERM), *lines, xz_failed(
            "/perm/logs/syslog/messages.txt.tmp", 256), exiting(1)])
        self.assertEqual(self.sighups.count, sighups)

    def test_number(self) -> None:
        """A number, with blanks before it or anything behind it, is syslogd's."""
        for content in ("PID", "PID\n", "  PID ", "\nPID", "+PID", "PIDabc\n", "PID\n1\n"):
            with self.subTest(content=content):
                SYSLOGD_PID_FILE.write_text(content.replace("PID", str(os.getpid())))
                self.check(1)

    def test_rubbish(self) -> None:
        """No number, or none that a process can have: no signal, and no word about it."""
        for content in (b"", b"\n", b"-", b"syslogd\n", b"\0" + str(os.getpid()).encode(),
                        b"99999999999999999999999\n", b"2147483648\n", b"-2147483649\n",
                        b"4294967297\n", b"\xff\xfe\x80", b"x" * 1000000, b"9" * 1000000):
            with self.subTest(content=content[:30]):
                SYSLOGD_PID_FILE.write_bytes(content)
                self.check(0)

    def test_nobody(self) -> None:
        """A process that does not exist: no signal, and no word about it."""
        SYSLOGD_PID_FILE.write_text("2147483647\n")
        self.check(0)

    def test_zero(self) -> None:
        """0, or a number with that before a letter, is the daemon's own process group."""
        for content in ("0\n", "0x1f\n"):
            with self.subTest(content=content):
                SYSLOGD_PID_FILE.write_text(content)
                self.check(0, caught(SIGHUP))

    def test_everybody(self) -> None:
        """-1 is everybody but the daemon. A device whose pid file says so gets what it asks for."""
        SYSLOGD_PID_FILE.write_text("-1\n")
        self.check(1)

    def test_no_file(self) -> None:
        """No pid file, a folder, or a link to nowhere or to itself: a warning."""
        absent = warning("Attempt to read file /var/run/syslogd.pid, which does not exist.")
        self.check(0, absent)
        SYSLOGD_PID_FILE.mkdir()
        self.check(0, absent)
        SYSLOGD_PID_FILE.rmdir()
        SYSLOGD_PID_FILE.symlink_to("nowhere")
        self.check(0, absent)
        SYSLOGD_PID_FILE.unlink()
        SYSLOGD_PID_FILE.symlink_to(SYSLOGD_PID_FILE.name)
        self.check(0, absent)


class WhileXzRuns(BlackBoxCase):
    """syslogd knows nothing of the daemon: it may rename and write at any moment."""

    MOVED = info("'/perm/logs/syslog/messages.txt.0' was moved while it was compressed.  A later "
                 "cycle will archive it.")

    def rotate(self) -> None:
        (SYSLOG / "messages.txt.0").rename(SYSLOG / "messages.txt.1")
        LIVE_LOG.rename(SYSLOG / "messages.txt.0")
        write(LIVE_LOG, "third")

    def check_rotation(self, gate: Gate) -> None:
        write("messages.txt.0", "first")
        write(LIVE_LOG, "second")
        daemon = self.start(fast_sleep=50)
        self.wait_until(lambda: gate.is_reached, "xz runs")

        self.rotate()
        gate.open()

        self.log.wait_for(archived("messages.txt.0"))
        self.assertEqual(self.stop(daemon), 0)
        self.assertEqual(self.log.all(), [*START, self.MOVED, archived("messages.txt.1"),
                                          archived("messages.txt.0"), *END])
        self.assertEqual(archive(), [(1, "first"), (1, "second")])
        self.assertEqual(content_of(SYSLOG), {"messages.txt": "third", "archive/": ""})

    def test_rotation_before_xz_reads(self) -> None:
        """syslogd rotates just before xz opens the file: xz compresses the wrong one."""
        self.check_rotation(self.slow_xz())

    def test_rotation_after_xz_has_read(self) -> None:
        """syslogd rotates while xz compresses: the name is another file's by now."""
        self.check_rotation(self.held_xz())

    def check_moved_away(self, gate: Gate, *lines: Line) -> None:
        write("messages.txt.0", "first")
        daemon = self.start(fast_sleep=50)
        self.wait_until(lambda: gate.is_reached, "xz runs")

        (SYSLOG / "messages.txt.0").rename(SYSLOG / "messages.txt.1")
        gate.open()

        self.log.wait_for(archived("messages.txt.1"))
        self.assertEqual(self.stop(daemon), 0)
        self.assertEqual(self.log.all(), [*START, *lines, self.MOVED, archived("messages.txt.1"),
                                          *END])
        self.assertEqual(archive(), [(1, "first")])

    def test_moved_away_before_xz_reads(self) -> None:
        """The file is renamed and no other has its name: xz fails, the daemon does not."""
        self.check_moved_away(self.slow_xz(),
                              xz_failed("/perm/logs/syslog/messages.txt.0", 256))

    def test_moved_away_after_xz_has_read(self) -> None:
        """The same after xz has compressed it: archived under its new name."""
        self.check_moved_away(self.held_xz())

    def test_written_to(self) -> None:
        """A rotation that grows after xz has read it is compressed again."""
        rotation = write("messages.txt.0", "early ")
        gate = self.held_xz()
        daemon = self.start(fast_sleep=50)
        self.wait_until(lambda: gate.is_reached, "xz has compressed the rotation")

        with rotation.open("a") as file:
            file.write("late")
        gate.open()

        self.log.wait_for(archived("messages.txt.0"))
        self.assertEqual(self.stop(daemon), 0)
        self.assertEqual(self.log.all(), [*START, archived("messages.txt.0"), *END])
        self.assertEqual(archive(), [(1, "early late")])

    def test_written_to_without_end(self) -> None:
        """A rotation that never stops growing stays for a later cycle; the daemon goes on."""
        write("messages.txt.0", "0")
        self.stand_in("xz", '/usr/bin/xz "$@"; printf . >>/perm/logs/syslog/messages.txt.0')

        self.assertEqual(self.run_once(), [*START, caught(SIGTERM), info(
            "'/perm/logs/syslog/messages.txt.0' was written to while it was compressed.  A later "
            "cycle will archive it."), exiting(0)])
        self.assertEqual(self.status, 0)
        self.assertEqual(content_of(SYSLOG), {
            "messages.txt": "", "messages.txt.0": Like(r"0\.+"), "archive/": ""})

    def test_deleted(self) -> None:
        """A rotation that someone deletes meanwhile is in the archive all the same."""
        rotation = write("messages.txt.0", "deleted")
        gate = self.held_xz()
        daemon = self.start(fast_sleep=50)
        self.wait_until(lambda: gate.is_reached, "xz has compressed the rotation")

        rotation.unlink()
        gate.open()

        self.log.wait_for(archived("messages.txt.0"))
        self.assertEqual(self.stop(daemon), 0)
        self.assertEqual(archive(), [(1, "deleted")])


if __name__ == "__main__":
    case.main()
