# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Foreign names neither stop archiving nor delete history: each start moves them to foreign/."""
from __future__ import annotations

import os
import re
import subprocess
from pathlib import Path

from tests.harness import case
from tests.harness.case import content_of, log_lines, write
from tests.harness.init_case import LIBRARY, InitCase
from tests.harness.paths import ARCHIVE, FOREIGN, LIVE_LOG, SYSLOG, archive_name
from tests.harness.services import daemon, syslogd

OWN = ("messages.txt", "messages.txt.tmp", "messages.txt.0", "messages.txt.9", "messages.txt.3.xz",
       "messages.txt.tmp.xz")
OWN_ARCHIVED = (archive_name(1), archive_name(999), archive_name(1000),
                archive_name(7, 365 * 86400 - 1), archive_name(8, 1 << 31))

FOREIGN_NAMES = (
    "messages.txt.10", "messages.txt.0 1", "messages.txt.0\n", "messages.txt.", "messages.txt.a",
    "messages.txt.xz", "messages.txt.tmp.tmp", "messages.txt.3.tmp", "messages.txt.10.xz",
    "Messages.txt.0", "messages.txt.0.xz.1", ".messages.txt.0", "xmessages.txt.0", "messages",
    "x.tmp", "x.xz", "-f", "--help", "*", "?", "$(reboot)", "a'b\"c", "\\", "~", "\t", "\x7f",
    "foreign.1", "lost+found", "archive.old", "\udcff.tmp", "n\u00e4me", "a\nb.tmp", "1")
FOREIGN_IN_ARCHIVE = (
    "messages.2026-11-21.txt.xz", "messages.txt.xz", "messages.xz", "messages.007.txt.xz",
    archive_name(65535), archive_name(10000), archive_name(0), "messages.0007.1970-01-01.00:00:01.txt.xz",
    "messages.7.1970-01-01.00:00:01.txt.xz", "messages.07.1970-01-01.00:00:01.txt.xz",
    "messages.007.1970-01-01.00:00:01.txt", "messages.007.1970-01-01.00:00:01.txt.xz.1",
    "messages.007.1970-01-01.00:00.txt.xz", "messages.007.1970-1-1.00:00:01.txt.xz",
    "messages.007.a.1970-01-01.00:00:01.txt.xz", "messages.00a.1970-01-01.00:00:01.txt.xz",
    " " + archive_name(7), archive_name(7) + " ", archive_name(7) + "\n", "notes", ".hidden", "-rf")


def quarantine() -> None:
    subprocess.run([str(LIBRARY / "quarantine")], check=True)


def names(folder: Path) -> set[str]:
    return {path.name for path in folder.iterdir()}


class Quarantine(InitCase):

    def setUp(self) -> None:
        super().setUp()
        ARCHIVE.mkdir()
        FOREIGN.mkdir()

    def test_own_names_stay(self) -> None:
        for name in OWN:
            write(name, name)
        for name in OWN_ARCHIVED:
            write(ARCHIVE / name, name)
        (SYSLOG / "lost+found").mkdir()
        quarantine()
        self.assertEqual(names(SYSLOG), {*OWN, "archive", "foreign", "lost+found"})
        self.assertEqual(names(ARCHIVE), set(OWN_ARCHIVED))
        self.assertEqual(names(FOREIGN), set())

    def test_foreign_names_go(self) -> None:
        for name in FOREIGN_NAMES:
            write(name, name.encode(errors="surrogateescape"))
        for name in FOREIGN_IN_ARCHIVE:
            write(ARCHIVE / name, name)
        quarantine()
        self.assertEqual((names(SYSLOG), names(ARCHIVE)), ({"archive", "foreign"}, set()))
        found = [path.read_bytes() for path in FOREIGN.rglob("*") if path.is_file()]
        expected = [*(name.encode(errors="surrogateescape") for name in FOREIGN_NAMES),
                    *(name.encode() for name in FOREIGN_IN_ARCHIVE)]
        self.assertEqual(sorted(found), sorted(expected))

    def test_own_names_of_other_types_go(self) -> None:
        kinds = {
            "messages.txt": lambda path: path.mkdir(),
            "messages.txt.0": lambda path: path.mkdir(),
            "messages.txt.1": os.mkfifo,
            "messages.txt.2": lambda path: path.symlink_to(LIVE_LOG),
            "messages.txt.tmp": lambda path: path.symlink_to("nowhere"),
            "messages.txt.3.xz": lambda path: path.mkdir(),
            archive_name(7): lambda path: path.mkdir(),
            archive_name(8): os.mkfifo,
            archive_name(9): lambda path: path.symlink_to("nowhere"),
        }
        for name, make in kinds.items():
            make((SYSLOG if name.startswith("messages.txt") else ARCHIVE) / name)
        write(ARCHIVE / archive_name(7) / "inside", "kept")
        quarantine()
        self.assertEqual((names(SYSLOG), names(ARCHIVE)), ({"archive", "foreign"}, set()))
        self.assertEqual(names(FOREIGN), set(kinds))
        self.assertEqual((FOREIGN / archive_name(7) / "inside").read_text(), "kept")

    def test_nothing_is_replaced(self) -> None:
        for content in ("first", "second", "third"):
            write("x.tmp", content)
            (SYSLOG / "y.tmp").symlink_to(content)  # nowhere
            write(ARCHIVE / "x.tmp", f"{content} of the archive")
            quarantine()
        contents = [path.read_text() for path in FOREIGN.rglob("x.tmp")]
        targets = [os.readlink(path) for path in FOREIGN.rglob("*") if path.is_symlink()]
        self.assertEqual(sorted(contents), sorted(
            f"{content}{place}" for content in ("first", "second", "third")
            for place in ("", " of the archive")))
        self.assertEqual(sorted(targets), ["first", "second", "third"])

    def test_folders_that_are_none(self) -> None:
        ARCHIVE.rmdir()
        FOREIGN.rmdir()
        ARCHIVE.symlink_to("/tmp")
        FOREIGN.symlink_to("/tmp")
        write("x.tmp", "x")
        quarantine()
        self.assertEqual(content_of(FOREIGN), {"foreign.1@": "/tmp", "archive@": "/tmp", "x.tmp": "x"})
        self.assertFalse(Path("/tmp/x.tmp").exists())

    def test_boot_numbers_above_999(self) -> None:
        """The daemon counts up, so it has not written one behind a gap."""
        for numbers, stay in (([1, 150, 1500, 9999], [1, 150]), ([998, 999, 1000, 1001], 4 * [0]),
                              ([999, 1000, 1002], [999, 1000]), ([8, 1000], [8]),
                              ([1500, 1501], 2 * [0])):
            with self.subTest(numbers):
                subprocess.run(["rm", "-rf", str(ARCHIVE), str(FOREIGN)], check=True)
                for number in numbers:
                    write(ARCHIVE / archive_name(number))
                quarantine()
                expected = numbers if 0 in stay else stay
                self.assertEqual(names(ARCHIVE), {archive_name(number) for number in expected})
                self.assertEqual(len(names(FOREIGN)) if FOREIGN.exists() else 0,
                                 len(numbers) - len(expected))

    def test_rights_of_the_new_folder(self) -> None:
        FOREIGN.rmdir()
        SYSLOG.chmod(0o750)
        os.chown(SYSLOG, 0, 4)
        write("x.tmp")
        quarantine()
        self.assertEqual((FOREIGN.stat().st_mode & 0o7777, FOREIGN.stat().st_gid), (0o750, 4))

    def test_100000_strays(self) -> None:
        for number in range(100_000):
            os.close(os.open(SYSLOG / f"stray {number}.tmp", os.O_CREAT))
        self.start_both()
        self.assertEqual(len(names(FOREIGN)), 100_000)
        self.assert_lines(10, 100_000)

    def test_start(self) -> None:
        """The daemon's script does it, also when the supervisor starts the daemon again."""
        write("x.tmp")
        self.start_both()
        self.assert_lines(1, 1)
        self.assertEqual(names(FOREIGN), {"x.tmp"})
        write("messages.txt.1 x", "x")  # the daemon fails on that
        self.wait_until(lambda: names(FOREIGN) == {"x.tmp", "messages.txt.1 x"}, "it is moved")
        write("messages.txt.1", "text\n")
        self.wait_for_line(r"^Archived '.*messages\.txt\.1'")

    def test_before_syslogd_starts(self) -> None:
        """syslogd could not write to its log, and deletes it if it cannot rename it."""
        os.mkfifo(LIVE_LOG)
        (SYSLOG / "messages.txt.0").symlink_to("nowhere")
        (SYSLOG / "messages.txt.9").mkdir()
        write("messages.txt.1", "text\n")
        syslogd.start()
        self.assertEqual(names(FOREIGN), {"messages.txt", "messages.txt.0", "messages.txt.9"})
        self.assertEqual((SYSLOG / "messages.txt.1").read_text(), "text\n")
        self.wait_for_line(f"^Moved to '{FOREIGN}', since they are no files: "
                           rf"{LIVE_LOG} {LIVE_LOG}\.0 {LIVE_LOG}\.9\.$")
        self.assertTrue(LIVE_LOG.is_file())

    def test_history_is_kept(self) -> None:
        """150 boots and a name that makes them look like 65,535."""
        for number in range(1, 151):
            write(ARCHIVE / archive_name(number), "not read")
        write(ARCHIVE / archive_name(65535))
        (ARCHIVE / "messages.1999.old").mkdir()
        self.start_both()
        self.assertEqual(names(ARCHIVE), {archive_name(number) for number in range(1, 151)})

    def assert_lines(self, lines: int, total: int) -> None:
        logged = [line for line in self.log_of_syslogd() if "foreign" in line or "none of" in line]
        self.assertEqual(len(logged), lines + 1, logged)
        self.assertTrue(logged[-1].endswith(
            f"{total} foreign files have been moved to '{FOREIGN}'."), logged)

    def log_of_syslogd(self) -> list[str]:
        return [line for line in log_lines() if not re.match("Archive|vandis", line)]


class UnprintableNames(InitCase):

    def test_lines(self) -> None:
        """Nothing of a name breaks a line of the log."""
        syslogd.start()
        write("a\nb\x1b[31m.tmp")
        daemon.start()
        self.assertIn(f"'{SYSLOG}/a?b?[31m.tmp' is none of the system's files.", log_lines())


if __name__ == "__main__":
    case.main()
