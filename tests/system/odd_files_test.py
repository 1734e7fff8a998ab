# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Unexpected files: the daemon neither crashes nor hangs, and no source is lost."""
from __future__ import annotations

import os
from signal import SIGTERM

from tests.harness import case
from tests.harness.case import BlackBoxCase, archive, content_of, write
from tests.harness.daemon import (END, INITIALIZING, RUNNING, SCRATCH, START, START_UP_FAILED, Like,
                                  archived, caught, error, exiting, xz_failed)
from tests.harness.log_socket import ERROR, Line
from tests.harness.paths import ARCHIVE, LIVE_LOG, SYSLOG


class RotationNames(BlackBoxCase):
    """All that is called like a rotation is one, whatever its last field."""

    def check_archived(self, name: str) -> None:
        write(name, "archived")
        self.assertEqual(self.run_once(), [*START, caught(SIGTERM), archived(name), exiting(0)])
        self.assertEqual(archive(), [(1, "archived")])
        self.assertEqual(content_of(SYSLOG), {"messages.txt": "", "archive/": ""})

    def check_kept(self, name: str, *lines: Line) -> None:
        """The shell, which has the name as it is, cannot do it: status 1, and the file stays."""
        write(name, "kept")
        self.assertEqual(self.run_once(), [*START, caught(SIGTERM), *lines, exiting(1)])
        self.assertEqual(self.status, 1)
        self.assertEqual(content_of(ARCHIVE), {})
        self.assertEqual(content_of(SYSLOG), {"messages.txt": "", name: "kept", "archive/": ""})

    def test_two_digits(self) -> None:
        """messages.txt.12"""
        self.check_archived("messages.txt.12")

    def test_other_bytes(self) -> None:
        """Bytes that are no UTF-8 are archived, and logged as they are."""
        self.check_archived(os.fsdecode(b"messages.txt.\xff\xfe\xe4"))

    def test_blank(self) -> None:
        """A blank parts the name in two."""
        name = "messages.txt.a b"
        self.check_kept(name, xz_failed(f"{SYSLOG}/{name}", 256))

    def test_quote(self) -> None:
        """A quote has no counterpart."""
        name = "messages.txt.it's"
        self.check_kept(name, error(Like(
            rf"Unable to 'xz -fk {SYSLOG}/messages.txt.it's'\.  Result: 512, Error: '[^']*'")))

    def test_double_quote(self) -> None:
        """A double quote has none either."""
        name = 'messages.txt."'
        self.check_kept(name, xz_failed(f"{SYSLOG}/{name}", 512))

    def test_newline(self) -> None:
        """A newline ends the command; what follows is no command."""
        name = "messages.txt.a\nb"
        self.check_kept(name, xz_failed(f"{SYSLOG}/{name}", 127 << 8))

    def test_pattern(self) -> None:
        """A pattern that the shell expands to another file's name: both files stay."""
        files = {"messages.txt": "", "messages.txt.[?]": "pattern", "messages.txt.?": "other"}
        for name, content in files.items():
            write(name, content)

        lines = self.run_once()

        self.assertEqual(lines, [*START, caught(SIGTERM), error(Like("Rename failure, reason: .+")),
                                 exiting(1)])
        self.assertEqual(content_of(ARCHIVE), {})
        self.assertEqual({**content_of(SYSLOG), **files}, content_of(SYSLOG))

    def test_long(self) -> None:
        """A name of 255 bytes has none left for xz's own file: status 1, and its line is cut."""
        name = "messages.txt." + "x" * (255 - len("messages.txt."))
        line = f"Unable to 'xz -fk {SYSLOG}/{name}'"
        self.check_kept(name, error(line[:252] + " ..."))


class Links(BlackBoxCase):

    def test_link_to_a_file(self) -> None:
        """A rotation that is a link: its target's text is archived, the link goes."""
        target = SCRATCH / "target"
        target.write_text("target")
        (SYSLOG / "messages.txt.3").symlink_to(target)

        self.assertEqual(self.run_once(), [*START, caught(SIGTERM), archived("messages.txt.3"),
                                           exiting(0)])
        self.assertEqual(archive(), [(1, "target")])
        self.assertEqual(content_of(SYSLOG), {"messages.txt": "", "archive/": ""})
        self.assertEqual(target.read_text(), "target")

    def test_dangling(self) -> None:
        """A link to nowhere is no rotation; the next one is taken."""
        (SYSLOG / "messages.txt.3").symlink_to("nowhere")
        write("messages.txt.0", "rotation")

        self.assertEqual(self.run_once(), [*START, caught(SIGTERM), archived("messages.txt.0"),
                                           exiting(0)])
        self.assertEqual(content_of(SYSLOG), {"messages.txt": "", "messages.txt.3@": "nowhere",
                                              "archive/": ""})

    def test_loop(self) -> None:
        """A link to itself: the folder cannot be listed, the cycle is skipped, the daemon lives."""
        (SYSLOG / "messages.txt.3").symlink_to("messages.txt.3")
        write("messages.txt.0", "rotation")

        self.assertEqual(self.run_once(), [*START, caught(SIGTERM), error(Like(
            r"Exception in GetFilesInDir\(/perm/logs/syslog\): .+")), exiting(0)])
        self.assertEqual(self.status, 0)
        self.assertEqual(content_of(SYSLOG), {
            "messages.txt": "", "messages.txt.0": "rotation", "messages.txt.3@": "messages.txt.3",
            "archive/": ""})

    def test_loop_is_mended(self) -> None:
        """Once the loop is gone, the next cycle takes what waited."""
        loop = SYSLOG / "messages.txt.3"
        loop.symlink_to(loop.name)
        write("messages.txt.0", "rotation")
        daemon = self.start(fast_sleep=50)
        self.log.wait_for(error(Like(r"Exception in GetFilesInDir\(/perm/logs/syslog\): .+")))

        loop.unlink()
        self.log.wait_for(archived("messages.txt.0"))
        self.assertEqual(self.stop(daemon), 0)
        self.assertEqual(archive(), [(1, "rotation")])

    def test_loop_in_archive(self) -> None:
        """A link to itself in the archive: its size is unknown, the start fails."""
        ARCHIVE.mkdir()
        (ARCHIVE / "loop.0").symlink_to("loop.0")

        self.assertEqual(self.run_once(), [
            INITIALIZING, *[error("loop is not a logging archive file.")] * 2,
            error(Like(r"GetDirSize failure on /perm/logs/syslog/archive: .+")),
            START_UP_FAILED])
        self.assertEqual(self.status, 1)


class Folders(BlackBoxCase):

    def test_live_log(self) -> None:
        """The live log is a folder: a line in each cycle, and the daemon goes on."""
        LIVE_LOG.unlink()
        write(LIVE_LOG / "file", "kept")
        no_size = error(Like(r"GetFileSize\(/perm/logs/syslog/messages.txt\) exception: .+"))
        daemon = self.start(fast_sleep=50)
        self.log.wait_for(no_size, 3)

        write("messages.txt.0", "rotation")
        self.log.wait_for(archived("messages.txt.0"))
        self.assertEqual(self.stop(daemon), 0)
        self.assertEqual(content_of(LIVE_LOG), {"file": "kept"})

    def test_rotations(self) -> None:
        """Folders that are called like rotations, the last one included, are none."""
        write("messages.txt.9/file", "kept")
        write("messages.txt.5/file", "kept")
        write("messages.txt.0", "rotation")

        self.assertEqual(self.run_once(), [*START, caught(SIGTERM), archived("messages.txt.0"),
                                           exiting(0)])
        self.assertEqual(content_of(SYSLOG), {"messages.txt": "", "messages.txt.5/": "",
                                              "messages.txt.9/": "", "archive/": ""})

    def test_compressed_file(self) -> None:
        """A folder stands where xz writes: status 1, the rotation and the folder stay."""
        daemon = self.start_and_wait()
        write("messages.txt.0.xz/file", "kept")
        rotation = write("messages.txt.0", "kept")

        self.assertEqual(self.stop(daemon), 1)
        self.assertEqual(self.log.all(), [*START, caught(SIGTERM), xz_failed(str(rotation), 256),
                                          exiting(1)])
        self.assertEqual(content_of(SYSLOG), {"messages.txt": "", "messages.txt.0": "kept",
                                              "messages.txt.0.xz/": "", "archive/": ""})

    def test_special_files(self) -> None:
        """A FIFO and a socket that are named like rotations: the daemon does not wait for them."""
        os.mkfifo(SYSLOG / "messages.txt.7")
        os.mkfifo(SYSLOG / "messages.txt.9")
        os.mknod(SYSLOG / "messages.txt.8", 0o140644)
        write("messages.txt.0", "rotation")

        self.assertEqual(self.run_once(), [*START, caught(SIGTERM), archived("messages.txt.0"),
                                           exiting(0)])


class ArchiveNames(BlackBoxCase):

    def test_strangers(self) -> None:
        """Strange names in the archive count as boot 0; they stay, and the next boot is 8."""
        names = ["notes", "two words", "it's", "line\nbreak", os.fsdecode(b"\xff\xfe"), "messages",
                 "messages.xz", "messages.txt.xz", "messages.-1.x.txt.xz", "messages.70000.x.xz",
                 "messages.007.1970-01-01.00:00:01.txt.xz", "messages.99999999999999999999.xz"]
        for name in names:
            write(ARCHIVE / name)
        write("messages.txt.0", "rotation")

        lines = self.run_once()

        self.assertEqual([line for line in lines if line[0] != ERROR],
                         [*START, caught(SIGTERM), archived("messages.txt.0", 8), exiting(0)])
        self.assertEqual(set(content_of(ARCHIVE)) & set(names), set(names))
        for name in ("notes", "two words", "it's", "line\nbreak", os.fsdecode(b"\xff\xfe")):
            self.assertIn(error(f"{name} is not a logging archive file."), lines)

    def test_folder(self) -> None:
        """A folder in the archive is not measured and not deleted."""
        write(ARCHIVE / "folder.0" / "file", "kept")

        self.assertEqual(self.run_once()[-3:], [RUNNING, *END])
        self.assertEqual(content_of(ARCHIVE / "folder.0"), {"file": "kept"})


if __name__ == "__main__":
    case.main()
