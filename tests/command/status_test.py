# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""`moraine status`: each reason for a device that is not healthy, and the figures."""
from __future__ import annotations

import os
import re
import shutil
import subprocess
from pathlib import Path
from typing import Any

from tests.command.command import CommandCase, line, snapshot, write_archive, write_log
from tests.harness import case, services
from tests.harness.daemon import SCRATCH, start_settings
from tests.harness.paths import ARCHIVE, BUSYBOX, SYSLOG

SYSLOGD_PID, DAEMON_PID = services.syslogd.pid_file, services.daemon.pid_file


class HealthyCase(CommandCase):
    """syslogd and the daemon run, by their init scripts."""

    def setUp(self) -> None:
        super().setUp()
        services.daemon.settings.write_text(start_settings(0))
        services.syslogd.start()
        self.addCleanup(services.syslogd.stop)
        services.daemon.start()
        self.addCleanup(services.daemon.stop)

    def status(self, status: int) -> dict[str, Any]:
        return self.check("status", "--json", status=status).json

    def check_reasons(self, *patterns: str) -> dict[str, Any]:
        """Requires exactly these reasons, in both forms."""
        found = self.status(1)
        self.assertFalse(found["healthy"])
        self.assertEqual(len(found["reasons"]), len(patterns), found["reasons"])
        text = self.check("status", status=1).lines
        for pattern, reason in zip(patterns, found["reasons"]):
            self.assertRegex(reason, pattern)
            self.assertEqual(sum(reason in text_line for text_line in text), 1)
        return found


class Health(HealthyCase):
    def test_healthy(self) -> None:
        found = self.status(0)
        self.assertTrue(found["healthy"])
        self.assertEqual(found["reasons"], [])
        self.assertEqual(found["daemon"], {"pid": services.daemon.pid})
        self.assertEqual(found["syslogd"], {"pid": services.syslogd.pid})
        self.assertLess(len(self.check("status").lines), 15)

    def test_the_daemon_is_not_running(self) -> None:
        services.daemon.stop()
        found = self.check_reasons(r"daemon is not running.*S90vandis-moraine start")
        self.assertIsNone(found["daemon"])

    def test_a_stale_pid_file_of_the_daemon(self) -> None:
        services.daemon.stop()
        DAEMON_PID.write_text("99999\n")
        self.check_reasons("daemon is not running")

    def test_a_daemon_without_a_pid_file(self) -> None:
        pid = services.daemon.pid
        DAEMON_PID.rename("/tmp/pid")
        self.assertEqual(self.status(0)["daemon"], {"pid": pid})
        Path("/tmp/pid").rename(DAEMON_PID)

    def test_a_daemon_in_a_container_is_another(self) -> None:
        services.daemon.stop()
        root = SCRATCH / "container"
        root.mkdir()
        shutil.copy(BUSYBOX, root / "vandis-moraine")
        other = subprocess.Popen(["busybox", "sleep", "1000"], executable="/vandis-moraine",
                                 preexec_fn=lambda: os.chroot(root))
        try:
            self.assertEqual(Path(f"/proc/{other.pid}/comm").read_text(), "vandis-moraine\n")
            self.check_reasons("daemon is not running")
        finally:
            other.kill()
            other.wait()

    def test_syslogd_is_not_running(self) -> None:
        services.syslogd.stop()
        found = self.check_reasons(r"syslogd is not running.*S01syslogd-moraine start")
        self.assertIsNone(found["syslogd"])

    def test_its_pid_file_names_another_process(self) -> None:
        own = SYSLOGD_PID.read_text()
        other = subprocess.Popen(["sleep", "1000"])
        try:
            SYSLOGD_PID.write_text(f"{other.pid}\n")
            found = self.check_reasons(rf"syslogd\.pid.*another process.*sleep.*{other.pid}")
            self.assertIsNone(found["syslogd"])
        finally:
            SYSLOGD_PID.write_text(own)
            other.kill()
            other.wait()

    def test_ten_rotations_are_waiting(self) -> None:
        for number in range(9):
            write_log(f"messages.txt.{number}", "x")
        self.status(0)
        write_log("messages.txt.9", "x")
        self.check_reasons("10 rotations are waiting")

    def test_the_archive_folder_is_missing(self) -> None:
        ARCHIVE.rmdir()
        self.check_reasons("archive.*missing")

    def test_no_room_for_the_next_rotation(self) -> None:
        filler = Path("/perm/filler")
        room = os.statvfs("/perm")
        with filler.open("wb") as file:
            os.posix_fallocate(file.fileno(), 0, room.f_bavail * room.f_frsize - (512 << 10))
        self.check_reasons("no room for the next rotation")
        filler.unlink()
        self.status(0)

    def test_foreign_files_in_the_archive(self) -> None:
        (ARCHIVE / "notes.txt").touch()
        self.check_reasons(r"1 foreign file in .*notes\.txt")
        (ARCHIVE / "messages.x.txt.xz").touch()
        (ARCHIVE / "messages.001.1970-01-01.00:00:01.txt.xz").mkdir()
        self.check_reasons("3 foreign files in ")

    def test_several_reasons(self) -> None:
        services.daemon.stop()
        (ARCHIVE / "notes.txt").touch()
        self.check_reasons("daemon", "foreign")


class Figures(HealthyCase):
    def test_what_is_kept(self) -> None:
        for boot in (3, 4, 7):
            write_archive(boot, line("app: text"), minute=1)
            write_archive(boot, line("app: text"), minute=2)
        write_log("messages.txt.0", "x" * 1000)
        write_log("messages.txt.1", "x" * 500)
        found = self.status(0)
        self.assertEqual(found["archive"], {
            "files": 6, "bytes": sum(path.stat().st_size for path in ARCHIVE.iterdir()),
            "limit_bytes": 1 << 30, "boots": 3, "oldest_boot": 3, "newest_boot": 7})
        self.assertEqual(found["waiting"], {"rotations": 2, "bytes": 1500})
        self.assertEqual(found["live_log_bytes"], (SYSLOG / "messages.txt").stat().st_size)
        room = os.statvfs("/perm")
        self.assertAlmostEqual(found["free_bytes"], room.f_bavail * room.f_frsize, delta=1 << 20)

    def test_an_empty_archive(self) -> None:
        archive = self.status(0)["archive"]
        self.assertEqual((archive["files"], archive["bytes"], archive["boots"]), (0, 0, 0))
        self.assertIsNone(archive["oldest_boot"])

    def test_the_keys_in_their_order(self) -> None:
        self.assertEqual(list(self.status(0)), ["healthy", "reasons", "daemon", "syslogd", "archive",
                                                "waiting", "live_log_bytes", "free_bytes"])

    def test_nothing_is_written(self) -> None:
        self.wait_until(lambda: re.search("running", (SYSLOG / "messages.txt").read_text()),
                        "the daemon has logged that it runs")
        before = snapshot(SYSLOG)
        self.check("status")
        self.assertEqual(snapshot(SYSLOG), before)


class WithoutADevice(CommandCase):
    def test_nothing_at_all(self) -> None:
        ARCHIVE.rmdir()
        SYSLOG.rmdir()
        found = self.check("status", "--json", status=1).json
        self.assertEqual(len(found["reasons"]), 3)
        self.assertEqual(found["archive"]["files"], 0)

    def test_usage_errors(self) -> None:
        self.refuse("status", "-D", ".")
        self.refuse("status", "now")
        self.refuse("status", "--json=yes")


if __name__ == "__main__":
    case.main()
