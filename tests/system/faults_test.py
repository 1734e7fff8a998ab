# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Faults of the file system and the kernel: one line that says what failed, the right status, and
the source is kept."""
from __future__ import annotations

import os
import re
from signal import SIGTERM

from tests.harness import case
from tests.harness.case import BlackBoxCase, archive, content_of, write, write_sparse
from tests.harness.daemon import (END, INITIALIZING, SCRATCH, STAND_INS, START, START_UP_FAILED,
                                  Like, archived, caught, error, exiting, info, xz_failed)
from tests.harness.log_socket import Line
from tests.harness.paths import ARCHIVE, LIVE_LOG, SYSLOG, archive_name

ROTATION = SYSLOG / "messages.txt.0"
COMPRESSED = SYSLOG / "messages.txt.0.xz"
TAKEN = SYSLOG / "messages.txt.tmp"  # a rotation that is being removed
# Of which calls the C library makes use depends on the processor.
RENAME = "?rename,?renameat,?renameat2"
UNLINK = "?unlink,?unlinkat"
MKDIR = "?mkdir,?mkdirat"
FORK = "?clone3,?clone,?vfork"

# Signal 9 if the shell itself has become xz, else the status with which the shell says so: 137.
KILLED = "(9|35072)"

RENAME_FAILED = error(Like("Rename failure, reason: .+"))


def fail(call: str, error_name: str, *paths: object, when: int | str | None = None) -> list[str]:
    """Options of strace. `paths`: only calls that concern one of them. `when`: only that one."""
    which = "" if when is None else f":when={when}"
    return [*(f"--trace-path={path}" for path in paths), f"--trace={call}",
            f"--inject={call}:error={error_name}{which}"]


class Archiving(BlackBoxCase):

    def setUp(self) -> None:
        super().setUp()
        write(ROTATION, "kept")

    def check(self, strace: list[str], lines: list[Line], *, leaves: dict[str, str],
              archives: int = 0) -> None:
        """The cycle fails with these lines; then a start without the fault makes it good."""
        daemon = self.start_and_wait(strace=strace)
        self.assertEqual(self.stop(daemon), 1)
        self.assertEqual(self.log.all(), [*START, caught(SIGTERM), *lines, exiting(1)])
        self.assertEqual(content_of(SYSLOG), {"messages.txt": "", "archive/": "", **leaves})
        self.assertEqual([text for _, text in archive()], ["kept"] * archives)

        known = info(Like(r".+ is in the archive already, as 'messages\.001\..+'\."))
        self.assertIn(known if archives else archived(ROTATION.name), self.run_once())
        self.assertEqual(self.status, 0)
        self.assertEqual([text for _, text in archive()], ["kept"])
        self.assertEqual(content_of(SYSLOG), {"messages.txt": "", "archive/": ""})

    def test_sync_of_the_file(self) -> None:
        """The compressed file cannot be synced: it does not come into the archive."""
        self.check(fail("fsync", "EIO", COMPRESSED),
                   [error(f"Unable to sync {COMPRESSED}: Input/output error")],
                   leaves={ROTATION.name: "kept", COMPRESSED.name: Like(".+")})

    def test_sync_of_the_archive(self) -> None:
        """The archive folder cannot be synced: the rotation stays, and the next start removes it."""
        self.check(fail("fsync", "EIO", ARCHIVE),
                   [error(f"Unable to sync {ARCHIVE}: Input/output error")],
                   leaves={ROTATION.name: "kept"}, archives=1)

    def test_opening_for_the_sync(self) -> None:
        """The compressed file cannot even be opened for that."""
        self.check(fail("openat", "EACCES", COMPRESSED),
                   [error(f"Unable to sync {COMPRESSED}: Permission denied")],
                   leaves={ROTATION.name: "kept", COMPRESSED.name: Like(".+")})

    def test_opening_the_source(self) -> None:
        """The rotation cannot be opened, so it cannot be identified: it stays."""
        self.check(fail("openat", "EMFILE", ROTATION),
                   [error(f"Unable to open {ROTATION}: Too many open files")],
                   leaves={ROTATION.name: "kept", COMPRESSED.name: Like(".+")})

    def test_rename(self) -> None:
        """The compressed file cannot be moved into the archive."""
        self.check(fail(RENAME, "EDQUOT", COMPRESSED), [RENAME_FAILED],
                   leaves={ROTATION.name: "kept", COMPRESSED.name: Like(".+")})

    def test_no_compressed_file(self) -> None:
        """An xz that reports success but made nothing: the rename fails."""
        self.stand_in("xz", "exit 0")
        daemon = self.start_and_wait()
        self.assertEqual(self.stop(daemon), 1)
        self.assertEqual(self.log.all(), [*START, caught(SIGTERM), RENAME_FAILED, exiting(1)])
        self.assertEqual(content_of(SYSLOG), {"messages.txt": "", ROTATION.name: "kept",
                                              "archive/": ""})

    def test_removal(self) -> None:
        """The rotation cannot be removed."""
        self.check(fail(UNLINK, "EPERM", TAKEN), [error(Like(f"Remove failure for {TAKEN}: .+"))],
                   leaves={TAKEN.name: "kept"}, archives=1)

    def test_no_processes(self) -> None:
        """No process can be made for xz."""
        self.check(fail(FORK, "EAGAIN"), [xz_failed(str(ROTATION), 127 << 8)],
                   leaves={ROTATION.name: "kept"})

    def test_xz_is_missing(self) -> None:
        """xz is not installed: the shell's status, and the rotation stays."""
        daemon = self.start_and_wait(path=str(STAND_INS))
        self.assertEqual(self.stop(daemon), 1)
        self.assertEqual(self.log.all(), [*START, caught(SIGTERM), xz_failed(
            str(ROTATION), 127 << 8), exiting(1)])
        self.assertEqual(content_of(SYSLOG), {"messages.txt": "", ROTATION.name: "kept",
                                              "archive/": ""})

    def test_xz_is_killed(self) -> None:
        """The kernel kills xz for want of memory: the rotation stays."""
        self.stand_in("xz", "kill -KILL $$")
        daemon = self.start_and_wait()
        self.assertEqual(self.stop(daemon), 1)
        self.assertEqual(self.log.all()[-2:], [xz_failed(str(ROTATION), KILLED), exiting(1)])
        self.assertEqual(ROTATION.read_text(), "kept")

    def test_full(self) -> None:
        """No room for the compressed file: it is archived once there is."""
        ROTATION.unlink()
        daemon = self.start_and_wait()
        noise = os.urandom(1 << 16).hex()
        write(ROTATION, noise)
        self.remount(f"size={len(noise) + 4096}")

        self.assertEqual(self.stop(daemon), 1)
        self.assertEqual(self.log.all(), [*START, caught(SIGTERM), xz_failed(str(ROTATION), 256),
                                          exiting(1)])
        self.assertEqual(content_of(ARCHIVE), {})
        self.assertEqual(ROTATION.read_text(), noise)

        self.remount("size=2147483648")
        self.assertIn(archived(ROTATION.name), self.run_once())
        self.assertEqual([text for _, text in archive()], [noise])

    def test_read_only(self) -> None:
        """/perm has become read-only: status 1, the rotation stays."""
        daemon = self.start_and_wait()
        self.remount("ro")
        self.assertEqual(self.stop(daemon), 1)
        self.assertEqual(self.log.all(), [*START, caught(SIGTERM), xz_failed(str(ROTATION), 256),
                                          exiting(1)])
        self.remount("rw")
        self.assertEqual(ROTATION.read_text(), "kept")

    def test_order(self) -> None:
        """Each step is on the disk before the next one is made."""
        daemon = self.start_and_wait(strace=["--decode-fds=path",
                                             f"--trace=fsync,{RENAME},{UNLINK}"])
        self.assertEqual(self.stop(daemon), 0)
        calls = re.findall(r'^(fsync|rename|unlink)\w*\(.*?(/perm/[^">]+)',
                           (SCRATCH / "strace").read_text(), re.MULTILINE)
        self.assertEqual(calls, [("fsync", str(COMPRESSED)), ("fsync", str(SYSLOG)),
                                 ("rename", str(COMPRESSED)), ("fsync", str(ARCHIVE)),
                                 ("rename", str(ROTATION)), ("unlink", str(TAKEN)),
                                 ("fsync", str(SYSLOG))])


class TakingTheLiveLog(BlackBoxCase):

    def test_rename(self) -> None:
        """The live log cannot be renamed: it is untouched, and syslogd undisturbed."""
        write_sparse(LIVE_LOG, (10 << 20) + 1)
        daemon = self.start_and_wait(strace=fail(RENAME, "EPERM", LIVE_LOG))
        self.assertEqual(self.stop(daemon), 1)
        self.assertEqual(self.log.all(), [*START, caught(SIGTERM), RENAME_FAILED, exiting(1)])
        self.assertEqual(content_of(SYSLOG), {"messages.txt": f"[{(10 << 20) + 1} zeros]",
                                              "archive/": ""})


class Listing(BlackBoxCase):
    """A folder that cannot be read."""

    def test_archive_in_start_up(self) -> None:
        """The archive cannot be opened: the start fails with the reason, there is no abort."""
        self.check_start_up(fail("openat", "EIO", ARCHIVE))

    def test_archive_in_the_middle(self) -> None:
        """The archive cannot be read to its end."""
        self.check_start_up(fail("getdents64", "EIO", ARCHIVE))

    def test_archive_later_in_start_up(self) -> None:
        """The archive cannot be opened a second time, for the boot number."""
        self.check_start_up(fail("openat", "EIO", ARCHIVE, when=2))

    def test_syslog_in_start_up(self) -> None:
        """The syslog folder cannot be searched for leftovers."""
        self.check_start_up(fail("openat", "EIO", SYSLOG))

    def test_syslog_in_the_middle(self) -> None:
        """The syslog folder cannot be read to its end."""
        self.check_start_up(fail("getdents64", "EIO", SYSLOG))

    def check_start_up(self, strace: list[str]) -> None:
        write("messages.txt.tmp", "kept")
        daemon = self.start(strace=strace)
        self.assertEqual(self.wait(daemon), 1)
        self.assertEqual(self.log.all(), [
            INITIALIZING, error(Like("Exception in start-up: .*Input/output error.*")),
            START_UP_FAILED])
        self.assertEqual(content_of(SYSLOG), {"messages.txt": "", "messages.txt.tmp": "kept",
                                              "archive/": ""})

    def test_size_of_the_archive(self) -> None:
        """The archive cannot be measured."""
        daemon = self.start(strace=fail("openat", "EIO", ARCHIVE, when=3))
        self.assertEqual(self.wait(daemon), 1)
        self.assertEqual(self.log.all(), [INITIALIZING, error(Like(
            f"GetDirSize failure on {ARCHIVE}: .+")), START_UP_FAILED])

    def test_capacity(self) -> None:
        """The size of the file system cannot be read."""
        daemon = self.start(strace=fail("statfs", "EIO", SYSLOG))
        self.assertEqual(self.wait(daemon), 1)
        self.assertEqual(self.log.all(), [INITIALIZING, error(Like(
            f"Unable to get {SYSLOG} capacity, reason: .+")), START_UP_FAILED])

    def test_making_the_archive(self) -> None:
        """The archive folder cannot be made."""
        daemon = self.start(strace=fail(MKDIR, "ENOSPC", ARCHIVE))
        self.assertEqual(self.wait(daemon), 1)
        self.assertEqual(self.log.all(), [INITIALIZING, error(Like(
            rf"Exception in CreateDir\({ARCHIVE}\): .+")), START_UP_FAILED])

    def test_syslog_in_a_cycle(self) -> None:
        """The syslog folder cannot be read for two cycles: they are skipped, the third archives."""
        write(ROTATION, "rotation")
        daemon = self.start(fast_sleep=50, strace=fail("openat", "EIO", SYSLOG, when="3..4"))
        self.log.wait_for(archived(ROTATION.name))
        self.assertEqual(self.stop(daemon), 0)
        not_listed = error(Like(rf"Exception in GetFilesInDir\({SYSLOG}\): .+"))
        self.assertEqual(self.log.all(), [*START, not_listed, not_listed, archived(ROTATION.name),
                                          *END])


class Renumbering(BlackBoxCase):

    def test_rename(self) -> None:
        """A rename fails half-way: the start fails, and the next one goes on from there."""
        for boot in (5, 6, 7):
            write(ARCHIVE / archive_name(boot))
        daemon = self.start(strace=fail(RENAME, "EIO", when=2))

        self.assertEqual(self.wait(daemon), 1)
        renumbering = info("Renumbering boot numbers on archived files.")
        self.assertEqual(self.log.all(), [INITIALIZING, renumbering, RENAME_FAILED,
                                          START_UP_FAILED])
        self.assertEqual(set(content_of(ARCHIVE)), set(map(archive_name, (1, 6, 7))))


class Sleep(BlackBoxCase):

    def test_error(self) -> None:
        """The sleep fails: its line, and the cycle comes at once."""
        write(ROTATION, "rotation")
        daemon = self.start(strace=fail("clock_nanosleep", "EINVAL", when=1))
        self.log.wait_for(archived(ROTATION.name))
        self.wait_until(lambda: daemon.waits, "the daemon sleeps")
        self.assertEqual(self.stop(daemon), 0)
        self.assertEqual(self.log.all(), [*START, error("nanosleep error: Invalid argument"),
                                          archived(ROTATION.name), *END])

    def test_other_interruption(self) -> None:
        """Something else than a stop signal interrupts the sleep: the rest is slept."""
        write(ROTATION, "rotation")
        daemon = self.start_and_wait(strace=fail("clock_nanosleep", "EINTR", when=1))
        self.assertEqual(self.stop(daemon), 0)
        self.assertEqual(self.log.all(), [*START, caught(SIGTERM), archived(ROTATION.name),
                                          exiting(0)])


if __name__ == "__main__":
    case.main()
