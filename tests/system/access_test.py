# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Who may read the log and write to it, and what the scripts ask of the device."""
from __future__ import annotations

import os
import socket
import stat
import subprocess
from pathlib import Path

from tests.harness import case
from tests.harness.case import write, write_script
from tests.harness.init_case import InitCase, kill, programs_of
from tests.harness.paths import (ARCHIVE, FOREIGN, LIVE_LOG, LOG_SOCKET, NOBODY, SYSLOG,
                                 archive_name)
from tests.harness.services import daemon, syslogd

GROUP = 4


def rights(path: Path) -> tuple[str, int]:
    status = path.stat()
    return f"{stat.S_IMODE(status.st_mode):04o}", status.st_gid


class AccessCase(InitCase):

    def setUp(self) -> None:
        super().setUp()
        groups = Path("/etc/group").read_text()
        Path("/etc/group").write_text(f"{groups}\nviewers:x:{GROUP}:\n")
        self.addCleanup(Path("/etc/group").write_text, groups)

    def fill(self) -> None:
        """With files as another version of this system, or another syslogd, has left them."""
        for path in (ARCHIVE / archive_name(1), SYSLOG / "messages.txt.0", LIVE_LOG):
            write(path, "text\n").chmod(0o644)
        SYSLOG.chmod(0o755)
        ARCHIVE.chmod(0o755)
        write("x.tmp", "foreign").chmod(0o644)

    def archive_two(self) -> None:
        """One rotation that was there and one of this syslogd."""
        self.wait_until(lambda: len(list(ARCHIVE.iterdir())) == 2, "the rotation is archived")
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as log:
            log.connect(str(LOG_SOCKET))
            while len(list(ARCHIVE.iterdir())) == 2 and not (SYSLOG / "messages.txt.0").exists():
                log.send(b"<14>filler: " + b"x" * 200)
        self.wait_until(lambda: len(list(ARCHIVE.iterdir())) == 3, "the new one is archived")

    def as_nobody(self, *command: str, group: int = NOBODY) -> int:
        return subprocess.run(command, user=NOBODY, group=group, extra_groups=[],
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode


class Rights(AccessCase):

    def check(self, folder: str, file: str, group: int) -> None:
        self.fill()
        self.start_both()
        self.archive_two()
        for path in (SYSLOG, ARCHIVE, FOREIGN):
            self.assertEqual(rights(path), (folder, group), path)
        for path in (*ARCHIVE.iterdir(), LIVE_LOG):
            self.assertEqual(rights(path), (file, group), path)

    def test_root_alone(self) -> None:
        self.check("0700", "0600", 0)
        self.assertNotEqual(self.as_nobody("cat", str(LIVE_LOG)), 0)
        self.assertNotEqual(self.as_nobody("ls", str(ARCHIVE)), 0)

    def test_group(self) -> None:
        self.set(syslogd, "LOG_GROUP=viewers")
        self.check("0750", "0640", GROUP)
        self.assertEqual(self.as_nobody("cat", str(LIVE_LOG), group=GROUP), 0)
        self.assertEqual(self.as_nobody("ls", str(ARCHIVE), group=GROUP), 0)
        self.assertNotEqual(self.as_nobody("touch", str(SYSLOG / "x"), group=GROUP), 0)
        self.assertNotEqual(self.as_nobody("cat", str(LIVE_LOG)), 0)

    def test_first_start(self) -> None:
        """The daemon's first start makes the archive."""
        self.set(syslogd, "LOG_GROUP=viewers")
        self.start_both()
        self.assertEqual(rights(ARCHIVE), ("0750", GROUP))

    def test_group_after_a_restart(self) -> None:
        self.set(syslogd, "LOG_GROUP=viewers")
        self.start_both()
        LIVE_LOG.unlink()
        pid = programs_of(syslogd)[0]
        kill(pid)
        self.wait_for_another(syslogd, pid)
        self.wait_until(LIVE_LOG.exists, "it has opened its log")
        self.assertEqual(rights(LIVE_LOG), ("0640", GROUP))

    def test_no_more_group(self) -> None:
        self.set(syslogd, "LOG_GROUP=viewers")
        self.start_both()
        daemon.stop()
        syslogd.stop()
        self.set(syslogd)
        self.start_both()
        self.assertEqual((rights(SYSLOG)[0], rights(LIVE_LOG)[0]), ("0700", "0600"))

    def test_pid_files_are_for_all(self) -> None:
        self.start_both()
        for service in (syslogd, daemon):
            self.assertEqual(rights(service.pid_file)[0], "0644")

    def test_folders_above_are_not_the_logs(self) -> None:
        SYSLOG.rmdir()
        SYSLOG.parent.rmdir()
        syslogd.start()
        self.assertEqual((rights(SYSLOG.parent)[0], rights(SYSLOG)[0]), ("0755", "0700"))


class Socket(AccessCase):
    SEND = ("import socket; s = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM); "
            "s.connect('/dev/log'); s.send(b'<14>x: y')")

    def test_open_to_all(self) -> None:
        syslogd.start()
        self.assertEqual(rights(LOG_SOCKET)[0], "0666")
        self.assertEqual(self.as_nobody("python3", "-c", self.SEND), 0)

    def check_group(self) -> None:
        self.wait_until(lambda: rights(LOG_SOCKET) == ("0660", GROUP), "it has its rights")
        self.assertTrue(stat.S_ISSOCK(LOG_SOCKET.stat().st_mode))
        self.assertEqual(self.as_nobody("python3", "-c", self.SEND, group=GROUP), 0)
        self.assertNotEqual(self.as_nobody("python3", "-c", self.SEND), 0)
        # While syslogd starts, its socket is open to all for a moment, but the folder is not.
        folder = Path(os.path.realpath(LOG_SOCKET)).parent
        self.assertEqual(rights(folder), ("0750", GROUP))

    def test_group(self) -> None:
        self.set(syslogd, "SOCKET_GROUP=viewers")
        syslogd.start()
        self.assertEqual(rights(LOG_SOCKET), ("0660", GROUP))
        self.check_group()
        for _ in range(2):
            pid = programs_of(syslogd)[0]
            kill(pid)
            self.wait_for_another(syslogd, pid)
            self.wait_until(LOG_SOCKET.is_socket, "it listens")
            self.check_group()

    def test_no_more_group(self) -> None:
        self.set(syslogd, "SOCKET_GROUP=viewers")
        syslogd.start()
        syslogd.stop()
        self.set(syslogd)
        syslogd.start()
        self.assertFalse(LOG_SOCKET.is_symlink())
        self.assertEqual(rights(LOG_SOCKET)[0], "0666")


class ProtectedLinks(InitCase):

    def settings(self, **values: str) -> dict[str, str]:
        """The values of files in place of the machine's own, after a start."""
        files = {name: Path(f"/scratch/{name}") for name in values}
        for name, file in files.items():
            file.write_text(f"{values[name]}\n")
            self.mount("--bind", str(file), f"/proc/sys/fs/protected_{name}")
        self.start_both()
        return {name: file.read_text().strip() for name, file in files.items()}

    def test_kernels_default(self) -> None:
        self.assertEqual(self.settings(symlinks="0", regular="0", fifos="0"),
                         {"symlinks": "1", "regular": "2", "fifos": "2"})

    def test_not_lowered(self) -> None:
        self.assertEqual(self.settings(symlinks="1", regular="1", fifos="3"),
                         {"symlinks": "1", "regular": "2", "fifos": "3"})

    def test_not_writable(self) -> None:
        """As it is in a sandbox."""
        self.start_both()
        self.assert_one_of_each()


class FixedFiles(InitCase):
    """tmpfs has these attributes since Linux 6.6."""

    def check(self, name: str, attribute: str) -> None:
        path = write(name, "text\n")
        self.set_attribute(path, attribute)
        self.assertEqual(self.call(syslogd, "start"), (1, (
            f"Starting syslogd-moraine: FAIL ({path} is immutable: syslogd would delete its log; "
            "see chattr -ia)\n")))
        self.assertEqual(programs_of(syslogd), [])
        self.clear_attribute(path, attribute)
        syslogd.start()

    def set_attribute(self, path: Path, attribute: str) -> None:
        """Or, where the file system or the user cannot, a stand-in that prints it."""
        done = subprocess.run(["chattr", f"+{attribute}", str(path)], stderr=subprocess.DEVNULL)
        self.is_real = done.returncode == 0
        if self.is_real:
            self.addCleanup(subprocess.run, ["chattr", "-ia", str(path)], stderr=subprocess.DEVNULL)
            return
        lsattr = Path("/usr/sbin/lsattr")
        lsattr.unlink()
        write_script(lsattr, f"[ $2 = {path} ] && echo ----{attribute}---- $2 || echo -------- $2")

    def clear_attribute(self, path: Path, attribute: str) -> None:
        if self.is_real:
            subprocess.run(["chattr", f"-{attribute}", str(path)], check=True)
        else:
            write_script(Path("/usr/sbin/lsattr"), "echo -------- $2")

    def test_immutable_rotation(self) -> None:
        self.check("messages.txt.0", "i")

    def test_any_rotation(self) -> None:
        self.check("messages.txt.7", "i")

    def test_append_only(self) -> None:
        self.check("messages.txt", "a")


if __name__ == "__main__":
    case.main()
