# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Start-up: folders, capacity, the boot number, what an interrupted run left, and the limits."""
from __future__ import annotations

import lzma
import shutil
import signal

from tests.harness import case
from tests.harness.case import BlackBoxCase, archive, content_of, write, write_sparse
from tests.harness.daemon import (ARCHIVE_SIZE, EMPTY_ARCHIVE, END, INITIALIZING, RUNNING, SCRATCH,
                                  START, START_UP_FAILED, Like, archived, caught, error, exiting,
                                  info, warning, xz_failed)
from tests.harness.log_socket import Line
from tests.harness.paths import ARCHIVE, SYSLOG, archive_name

MIB = 1 << 20
RENUMBERING = info("Renumbering boot numbers on archived files.")
NO_SYSLOG_FOLDER = warning("Path '/perm/logs/syslog' does not exist.  There is a problem with "
                           "syslog, or a mismatch in configurations.")


def no_folder(path: str) -> Line:
    return error(Like(rf"Exception in CreateDir\({path}\): .+"))


class Folders(BlackBoxCase):

    def test_everything_is_there(self) -> None:
        """A device whose syslogd has just begun: the archive folder is made."""
        self.assertEqual(self.run_once(), [*START, *END])
        self.assertEqual(self.status, 0)
        self.assertEqual(content_of(SYSLOG), {"messages.txt": "", "archive/": ""})

    def test_no_syslog_folder(self) -> None:
        """/perm/logs/syslog is missing: a warning, and it is made."""
        shutil.rmtree(SYSLOG)

        lines = self.run_once()

        self.assertEqual(lines, [
            INITIALIZING, NO_SYSLOG_FOLDER, EMPTY_ARCHIVE, RUNNING, caught(signal.SIGTERM),
            error(Like(r"GetFileSize\(/perm/logs/syslog/messages.txt\) exception: .+")),
            exiting(0)])
        self.assertEqual(self.status, 0)
        self.assertEqual(content_of(SYSLOG), {"archive/": ""})

    def test_no_logs_folder(self) -> None:
        """/perm/logs is missing, as on a /perm that is not mounted: the start fails."""
        shutil.rmtree(SYSLOG.parent)

        self.assertEqual(self.run_once(), [INITIALIZING, NO_SYSLOG_FOLDER,
                                           no_folder("/perm/logs/syslog"), START_UP_FAILED])
        self.assertEqual(self.status, 1)

    def test_file_instead_of_syslog_folder(self) -> None:
        """/perm/logs/syslog is a file: the start fails, and the file stays."""
        shutil.rmtree(SYSLOG)
        SYSLOG.write_text("a file")

        self.assertEqual(self.run_once(), [INITIALIZING, NO_SYSLOG_FOLDER,
                                           no_folder("/perm/logs/syslog"), START_UP_FAILED])
        self.assertEqual(self.status, 1)
        self.assertEqual(SYSLOG.read_text(), "a file")

    def test_file_instead_of_archive(self) -> None:
        """The archive is a file: the start fails, and the file stays."""
        write(ARCHIVE, "a file")

        self.assertEqual(self.run_once(), [INITIALIZING, no_folder("/perm/logs/syslog/archive"),
                                           START_UP_FAILED])
        self.assertEqual(self.status, 1)
        self.assertEqual(content_of(SYSLOG), {"messages.txt": "", "archive": "a file"})

    def test_link_instead_of_archive(self) -> None:
        """The archive is a link to a folder elsewhere: as good as the folder."""
        elsewhere = SCRATCH / "elsewhere"
        elsewhere.mkdir()
        ARCHIVE.symlink_to(elsewhere)

        self.assertEqual(self.run_once(), [*START, *END])
        self.assertEqual(self.status, 0)

    def test_dangling_link_instead_of_archive(self) -> None:
        """The archive is a link to nowhere: the start fails."""
        ARCHIVE.symlink_to("nowhere")

        self.assertEqual(self.run_once(), [INITIALIZING, no_folder("/perm/logs/syslog/archive"),
                                           START_UP_FAILED])
        self.assertEqual(self.status, 1)


class FileSystem(BlackBoxCase):

    REQUIRED = 1288490188  # bytes; a tmpfs has whole pages
    PAGE = 4096

    def test_too_small(self) -> None:
        """A /perm of the last size below 1288490188 bytes is too small."""
        self.remount(f"size={self.REQUIRED // self.PAGE * self.PAGE}")

        self.assertEqual(self.run_once(), [INITIALIZING, error(
            "Required archive capacity is 1.200 GiB. File system (/perm/logs/syslog) is too "
            "small: 1.200 GiB."), START_UP_FAILED])
        self.assertEqual(self.status, 1)
        self.assertEqual(content_of(SYSLOG), {"messages.txt": ""})

    def test_just_large_enough(self) -> None:
        """A /perm of the next size is large enough."""
        self.remount(f"size={(self.REQUIRED // self.PAGE + 1) * self.PAGE}")

        self.assertEqual(self.run_once(), [*START, *END])
        self.assertEqual(self.status, 0)

    def test_read_only(self) -> None:
        """A read-only /perm: the archive folder cannot be made, the start fails."""
        self.remount("ro")

        self.assertEqual(self.run_once(), [INITIALIZING, no_folder("/perm/logs/syslog/archive"),
                                           START_UP_FAILED])
        self.assertEqual(self.status, 1)

    def test_read_only_with_nothing_to_do(self) -> None:
        """A read-only /perm with an archive folder: the daemon runs until there is work."""
        ARCHIVE.mkdir()
        self.remount("ro")

        self.assertEqual(self.run_once(), [*START, *END])
        self.assertEqual(self.status, 0)

    def test_full(self) -> None:
        """No room for one more file: the start fails, and the leftover stays for the next one."""
        ARCHIVE.mkdir()
        leftover = write("messages.txt.tmp", "leftover")
        self.remount("nr_inodes=6")  # /perm, logs, syslog, archive and the two files

        self.assertEqual(self.run_once(), [INITIALIZING, xz_failed(str(leftover), 256),
                                           START_UP_FAILED])
        self.assertEqual(self.status, 1)
        self.assertEqual(content_of(SYSLOG), {"messages.txt": "", "messages.txt.tmp": "leftover",
                                              "archive/": ""})

        self.remount("nr_inodes=8")
        self.assertEqual(self.run_once(), [INITIALIZING, archived("messages.txt.tmp"), ARCHIVE_SIZE,
                                           RUNNING, *END])


class Leftovers(BlackBoxCase):

    def test_compressed(self) -> None:
        """A .xz file in the syslog folder is half done: it is deleted, look-alikes are not."""
        write("messages.txt.xz", "half")
        write("messages.txt.4.xz", "half")
        write("something.xz", "half")
        write("messages.txt.xz.1~", "kept")
        write("messages.xzz", "kept")
        write(".xz", "kept")  # a hidden file without an extension

        self.assertEqual(self.run_once(), [*START, *END])
        self.assertEqual(self.status, 0)
        self.assertEqual(content_of(SYSLOG), {
            "messages.txt": "", "messages.txt.xz.1~": "kept", "messages.xzz": "kept",
            ".xz": "kept", "archive/": ""})

    def test_interrupted_live_log(self) -> None:
        """A live log whose archiving was interrupted is archived, under the new boot number."""
        write(ARCHIVE / archive_name(7), lzma.compress(b"older"))
        write(ARCHIVE / archive_name(1), lzma.compress(b"oldest"))
        write("messages.txt.tmp", "leftover")
        write("messages.txt.tmp.xz", "half")

        self.assertEqual(self.run_once(), [
            INITIALIZING, archived("messages.txt.tmp", 8), ARCHIVE_SIZE, RUNNING, *END])
        self.assertEqual(self.status, 0)
        self.assertEqual(archive(), [(1, "oldest"), (7, "older"), (8, "leftover")])
        self.assertEqual(content_of(SYSLOG), {"messages.txt": "", "archive/": ""})

    def test_two(self) -> None:
        """Two leftovers within a second: both are kept, under two names."""
        write("messages.txt.tmp", "one")
        write("another.tmp", "two")

        lines = self.run_once()

        self.assertCountEqual(lines, [
            INITIALIZING, archived("messages.txt.tmp"), archived("another.tmp"), ARCHIVE_SIZE,
            RUNNING, *END])
        self.assertEqual(self.status, 0)
        self.assertCountEqual(archive(), [(1, "one"), (1, "two")])

    def test_same_text_with_another_time(self) -> None:
        """A file with the text of an archive file but another time is archived."""
        write(ARCHIVE / archive_name(1), lzma.compress(b"twice"))
        write("messages.txt.0", "twice")

        self.run_once()

        self.assertEqual(self.status, 0)
        self.assertEqual(archive(), [(1, "twice"), (2, "twice")])

    def test_folders(self) -> None:
        """A folder with the name of a half done file: it goes if it is empty, else the start
        fails."""
        (SYSLOG / "empty.xz").mkdir()
        self.assertEqual(self.run_once(), [*START, *END])
        self.assertEqual(content_of(SYSLOG), {"messages.txt": "", "archive/": ""})

        write("full.xz/file", "kept")
        self.assertEqual(self.run_once(), [
            INITIALIZING, error(Like("Remove failure for /perm/logs/syslog/full.xz: .+")),
            START_UP_FAILED])
        self.assertEqual(self.status, 1)
        self.assertEqual(content_of(SYSLOG / "full.xz"), {"file": "kept"})

    def test_folder_with_the_name_of_an_interrupted_one(self) -> None:
        """xz does not compress folders: the start fails."""
        write("folder.tmp/file", "kept")

        self.assertEqual(self.run_once(), [
            INITIALIZING, xz_failed("/perm/logs/syslog/folder.tmp", 512), START_UP_FAILED])
        self.assertEqual(self.status, 1)
        self.assertEqual(content_of(SYSLOG / "folder.tmp"), {"file": "kept"})


class Boots(BlackBoxCase):

    def test_rise(self) -> None:
        """Each start has the next boot number."""
        for boot in (1, 2, 3):
            write("messages.txt.0", f"boot {boot}")
            self.assertIn(archived("messages.txt.0", boot), self.run_once())
            self.assertEqual(self.status, 0)
        self.assertEqual(archive(), [(1, "boot 1"), (2, "boot 2"), (3, "boot 3")])

    def test_all_in_use(self) -> None:
        """Boots 1 to 999: the oldest 100 go, the others are renumbered, and this one is 900."""
        ARCHIVE.mkdir()
        for boot in range(1, 1000):
            write(ARCHIVE / archive_name(boot), lzma.compress(str(boot).encode(), preset=0))
        write("messages.txt.0", "1000")

        self.assertEqual(self.run_once(), [
            INITIALIZING,
            info("Log archive contains too many reboots.  Oldest 100 will be deleted."),
            RENUMBERING, ARCHIVE_SIZE, RUNNING,
            caught(signal.SIGTERM), archived("messages.txt.0", 900), exiting(0)])
        self.assertEqual(self.status, 0)
        self.assertEqual(archive(), [(boot, str(boot + 100)) for boot in range(1, 901)])

    def test_not_all_in_use(self) -> None:
        """Boots 3 to 999: none goes, all are renumbered."""
        for boot in (3, 4, 999):
            write(ARCHIVE / archive_name(boot), lzma.compress(str(boot).encode()))

        self.assertEqual(self.run_once(), [
            INITIALIZING, RENUMBERING, ARCHIVE_SIZE, RUNNING, *END])
        self.assertEqual(archive(), [(1, "3"), (2, "4"), (997, "999")])


LIMIT_REACHED = info("Log archive size 1024.000 MiB exceeds 1024.000 MiB. Old log files will be "
                     "deleted until 921.600 MiB is reached.")


class SizeLimit(BlackBoxCase):

    NAMES = [archive_name(boot, second)
             for boot, second in ((1, 1), (1, 2), (2, 1), (3, 1))]

    def test_below(self) -> None:
        """One byte below 1 GiB: nothing is deleted."""
        for name, size in zip(self.NAMES, (256 * MIB, 256 * MIB, 256 * MIB, 256 * MIB - 1)):
            write_sparse(ARCHIVE / name, size)

        self.assertEqual(self.run_once(), [
            INITIALIZING, info("Archive directory size is 1024.000 MiB."), RUNNING, *END])
        self.assertEqual(sorted(path.name for path in ARCHIVE.iterdir()), self.NAMES)

    def test_reached(self) -> None:
        """1 GiB: the oldest files go until 90 % are left."""
        for name, size in zip(self.NAMES, (64 * MIB, 39 * MIB, 512 * MIB, 409 * MIB)):
            write_sparse(ARCHIVE / name, size)

        self.assertEqual(self.run_once(), [
            INITIALIZING, info("Archive directory size is 1024.000 MiB."),
            LIMIT_REACHED, RUNNING, *END])
        self.assertEqual(self.status, 0)
        self.assertEqual(sorted(path.name for path in ARCHIVE.iterdir()), self.NAMES[2:])

    def test_reached_by_archiving(self) -> None:
        """The file that brings the archive to 1 GiB is itself kept."""
        write_sparse(ARCHIVE / self.NAMES[0], 1024 * MIB - 1)
        write("messages.txt.0", "newest")

        lines = self.run_once()

        self.assertEqual(lines, [
            INITIALIZING, info("Archive directory size is 1024.000 MiB."), RUNNING,
            caught(signal.SIGTERM), archived("messages.txt.0", 2),
            LIMIT_REACHED, exiting(0)])
        self.assertEqual(archive(), [(2, "newest")])

    def test_foreign_files(self) -> None:
        """1 GiB of a file that is not the archive's: the start fails, and that file stays."""
        write_sparse(ARCHIVE / "music.iso", 1024 * MIB)
        write(ARCHIVE / self.NAMES[0], "goes")
        unknown = error("music is not a logging archive file.")

        self.assertEqual(self.run_once(), [
            INITIALIZING, unknown, unknown, unknown,
            info("Archive directory size is 1024.000 MiB."), LIMIT_REACHED,
            error("The archive directory (/perm/logs/syslog/archive) contains files that do not "
                  "belong."), START_UP_FAILED])
        self.assertEqual(self.status, 1)
        self.assertEqual([path.name for path in ARCHIVE.iterdir()], ["music.iso"])


if __name__ == "__main__":
    case.main()
