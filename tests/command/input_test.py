# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Where `moraine` reads from, and in which order: the device's folders, copies, and downloads."""
from __future__ import annotations

import io
import json
import os
import shutil
import subprocess
import tarfile
from pathlib import Path

from tests.command.command import (CommandCase, environment, line, program, snapshot,
                                   write_archive, write_log)
from tests.command.random_log import compress
from tests.harness import case
from tests.harness.case import write_script
from tests.harness.daemon import SCRATCH
from tests.harness.paths import ARCHIVE, SYSLOG


def library_download(folder: Path) -> bytes:
    """A download as the library packs it: by `tar`, the live log first, files with today's time."""
    tar = io.BytesIO()
    with tarfile.open(fileobj=tar, mode="w", format=tarfile.GNU_FORMAT) as archive:
        live = compress((folder / "messages.txt").read_bytes())
        info = tarfile.TarInfo("messages.txt.xz")
        info.size = len(live)
        archive.addfile(info, io.BytesIO(live))
        for path in sorted((folder / "archive").iterdir(), reverse=True):
            archive.add(path, path.name)
    return tar.getvalue()


class Order(CommandCase):
    def check_order(self, *names: str) -> None:
        """Makes files of these names, which are in the order of the text, and reads them."""
        for number, name in enumerate(names):
            write_log(name, f"{number}\n")
        self.assertEqual(self.check().text, "".join(f"{n}\n" for n in range(len(names))))

    def test_archive_then_interrupted_then_rotations_then_the_live_log(self) -> None:
        self.check_order("archive/messages.001.1970-01-01.00:00:01.txt.xz", "messages.txt.tmp",
                         "messages.txt.old", "messages.txt.1", "messages.txt.0", "messages.txt")

    def test_boots_as_numbers_and_the_rest_as_bytes(self) -> None:
        self.check_order("archive/messages.002.1970-01-01.00:00:09.txt.xz",
                         "archive/messages.002.1970-01-01.00:00:10.txt.xz",
                         "archive/messages.002.1970-01-02.00:00:00.txt.xz",
                         "archive/messages.010.1970-01-01.00:00:01.txt.xz",
                         "archive/messages.999.1970-01-01.00:00:01.txt.xz",
                         "archive/messages.1000.1970-01-01.00:00:01.txt.xz",
                         "archive/messages.65535.x.xz")

    def test_rotations_by_their_number(self) -> None:
        self.check_order("messages.txt.zz", "messages.txt.aa", "messages.txt.11", "messages.txt.10",
                         "messages.txt.9", "messages.txt.2", "messages.txt.0", "messages.txt")

    def test_other_files_are_ignored(self) -> None:
        for name in ("messages", "messages.txt.1.gz", "messages.txt.0.xz", "messages.log",
                     "Messages.txt", "xmessages.txt", "messages.txt.1.2", "archive.tar",
                     "archive/notes.txt", "archive/messages.001.txt", "archive/other.001.xz"):
            write_log(name, "no\n")
        (SYSLOG / "foreign").mkdir()
        (SYSLOG / "foreign/messages.001.1970-01-01.00:00:01.txt.xz").write_bytes(compress(b"no\n"))
        write_log("messages.txt", "yes\n")
        self.assertEqual(self.check().text, "yes\n")

    def test_misnamed_archive_files_are_skipped_with_a_message(self) -> None:
        write_archive(1, "one\n")
        for name in ("messages.x.txt.xz", "messages.65536.txt.xz", "messages..xz",
                     "messages.-1.txt.xz", "messages.1x.txt.xz"):
            path = write_log(ARCHIVE / name, "no\n")
            result = self.check(status=2)
            self.assertIn(name, result.error)
            self.assertEqual(result.text, "one\n")
            path.unlink()
        self.check()

    def test_an_archive_name_that_is_no_file(self) -> None:
        write_archive(1, "one\n")
        name = ARCHIVE / "messages.002.1970-01-01.00:00:01.txt.xz"
        for make in (name.mkdir, lambda: name.symlink_to("nowhere"), lambda: os.mkfifo(name)):
            make()
            result = self.check(status=2)
            self.assertIn(name.name, result.error)
            self.assertEqual(result.text, "one\n")
            name.rmdir() if name.is_dir() else name.unlink()


class Copies(CommandCase):
    """The same log, in every form in which it may come."""

    def setUp(self) -> None:
        super().setUp()
        write_archive(1, line("app: one"))
        write_archive(2, line("app: two"))
        write_log("messages.txt.tmp", line("app: three"))
        write_log("messages.txt.1", line("app: four"))
        write_log("messages.txt", line("app: five"))
        self.text = "".join(line(f"app: {word}") for word in "one two three four five".split())
        self.copy = SCRATCH / "copy"
        shutil.copytree(SYSLOG, self.copy)
        self.original = self.check("-o", "json").objects
        self.check("pack", "-o", "log.tar")
        shutil.rmtree(SYSLOG)

    def test_a_folder_laid_out_like_the_devices(self) -> None:
        before = snapshot(self.copy)
        for path in (self.copy, f"{self.copy}/", os.path.relpath(self.copy, self.folder)):
            self.assertEqual(self.check("-D", path).text, self.text)
            self.assertEqual(self.check(f"--directory={path}").text, self.text)
        self.assertEqual(snapshot(self.copy), before)

    def test_the_archive_folder_alone(self) -> None:
        self.assertEqual(self.check("-D", self.copy / "archive").text,
                         line("app: one") + line("app: two"))

    def test_a_download(self) -> None:
        self.assertEqual(self.check("-D", "log.tar").text, self.text)
        self.assertEqual(self.check("-r", "-n", "1", "-D", "log.tar").text, line("app: five"))

    def test_a_download_on_standard_input(self) -> None:
        tar = (self.folder / "log.tar").read_bytes()
        for arguments in (["-D", "-"], ["-D-"], ["--directory=-"]):
            self.assertEqual(self.check(*arguments, input=tar).text, self.text)
        self.assertEqual(self.check("-r", "-g", "t", "-D", "-", input=tar).text,
                         line("app: three") + line("app: two"))

    def test_an_unpacked_download(self) -> None:
        subprocess.run(["tar", "-xf", "log.tar"], cwd=self.folder, check=True)
        (self.folder / "log.tar").unlink()
        self.assertEqual(self.check("-D", ".").text, self.text)

    def test_a_download_by_the_library(self) -> None:
        (self.folder / "syslog.tar").write_bytes(library_download(self.copy))
        text = line("app: one") + line("app: two") + line("app: five")
        self.assertEqual(self.check("-D", "syslog.tar").text, text)

    def test_names_with_a_folder_and_pax_headers(self) -> None:
        for form in ("--format=gnu", "--format=pax", "--format=ustar"):
            subprocess.run(["tar", form, "-cf", "copy.tar", "-C", str(self.copy), "."],
                           cwd=self.folder, check=True)
            self.assertEqual(self.check("-D", "copy.tar").text, self.text)

    def test_boots_and_lines_are_the_same_as_on_the_device(self) -> None:
        names = {"messages.txt.tmp": "messages.txt.tmp.xz", "messages.txt.1": "messages.txt.1.xz",
                 "messages.txt": "messages.txt.xz"}
        expected = [{**found, "file": names.get(found["file"], found["file"])}
                    for found in self.original]
        self.assertEqual(self.check("-D", self.copy, "-o", "json").objects, self.original)
        self.assertEqual(self.check("-D", "log.tar", "-o", "json").objects, expected)

    def test_the_copy_may_be_named_before_the_verb(self) -> None:
        for directory in (["-D", "log.tar"], ["-Dlog.tar"], ["--directory", "log.tar"],
                          ["--directory=log.tar"]):
            self.assertEqual(self.check(*directory, "log", "-n", "1").text, line("app: five"))
            self.assertEqual(self.check(*directory, "verify", "--json").json["files"], 2)
        for usage in (["-D", "log.tar", "shred"], ["-D"], ["-D", "log.tar", "status"]):
            self.assertEqual(self.run_moraine(*usage).status, 2)

    def test_boots_and_verify_take_them_too(self) -> None:
        for path in (self.copy, "log.tar"):
            self.assertEqual([row["boot"] for row in self.check("boots", "--json", "-D", path).json],
                             [1, 2, 3])
            self.assertEqual(self.check("verify", "--json", "-D", path).json["files"], 2)

    def test_a_rotation_beside_its_compressed_copy_is_read_once(self) -> None:
        write_log(self.copy / "messages.txt.1.xz", "half made\n")
        self.assertEqual(self.check("-D", self.copy).text, self.text)

    def test_what_is_no_log(self) -> None:
        empty = SCRATCH / "empty"
        empty.mkdir()
        self.check("-D", empty, status=1)
        self.check("-D", SCRATCH / "missing", status=2)
        (self.folder / "text").write_text("no tar file\n" * 100)
        self.check("-D", "text", status=2)
        self.check("-D", "-", status=2, input=b"no tar file")
        self.check("-D", "/dev/null", status=2)

    def test_a_truncated_download(self) -> None:
        tar = (self.folder / "log.tar").read_bytes()
        result = self.check("-D", "-", status=2, input=tar[:512 + 20])
        self.assertNotIn("two", result.text)
        (self.folder / "cut.tar").write_bytes(tar[:2048])
        self.assertIn("five", self.check("-D", "cut.tar", status=2).text)


class Damage(CommandCase):
    def setUp(self) -> None:
        super().setUp()
        self.first = "".join(line(f"app: {number}") for number in range(30_000))
        self.damaged = write_archive(1, self.first)
        write_archive(2, line("app: last"))

    def damage(self, change: bytes) -> None:
        self.damaged.write_bytes(change)

    def check_damage(self) -> str:
        """Requires one message and the last file; returns what was printed of the first."""
        result = self.check(status=2)
        self.assertEqual(len(result.error.splitlines()), 1)
        self.assertIn(self.damaged.name, result.error)
        self.assertTrue(result.text.endswith(line("app: last")))
        return result.text.removesuffix(line("app: last"))

    def test_a_truncated_file(self) -> None:
        raw = self.damaged.read_bytes()
        self.damage(raw[:len(raw) // 2])
        printed = self.check_damage()
        self.assertGreater(len(printed), len(self.first) // 4)
        self.assertTrue((self.first + "\n").startswith(printed[:-1]))

    def test_the_message_stands_behind_what_was_printed_of_the_file(self) -> None:
        write_archive(3, "three\n")
        self.damage(self.damaged.read_bytes()[:-1])
        for jobs in ("-j1", "-j2"):
            together = self.check(jobs, status=2, stderr=subprocess.STDOUT).out.decode()
            before, _, after = together.partition("moraine: ")
            self.assertEqual(before, self.first)
            self.assertEqual(after.partition("\n")[2], line("app: last") + "three\n")

    def test_a_checksum_that_is_wrong(self) -> None:
        raw = bytearray(self.damaged.read_bytes())
        index_size = 4 * (int.from_bytes(raw[-8:-4], "little") + 1)
        raw[-12 - index_size - 1] ^= 1  # of the block's CRC64, which stands before the index
        self.damage(bytes(raw))
        self.assertEqual(self.check_damage(), self.first)

    def test_trash_behind_it(self) -> None:
        self.damage(self.damaged.read_bytes() + b"trash")
        self.assertEqual(self.check_damage(), self.first)

    def test_an_empty_file(self) -> None:
        self.damage(b"")
        self.assertEqual(self.check_damage(), "")

    def test_no_xz_file(self) -> None:
        self.damage(b"text\n" * 100)
        self.assertEqual(self.check_damage(), "")

    def test_several_streams_and_padding_are_no_damage(self) -> None:
        self.damage(compress(b"one\n") + b"\0" * 8 + compress(b"two\n"))
        self.assertEqual(self.check().text, "one\ntwo\n" + line("app: last"))

    def test_a_dictionary_of_more_than_64_mib(self) -> None:
        subprocess.run(["xz", "-fk", "--lzma2=dict=128MiB", "--stdout"], input=b"no\n", check=True,
                       stdout=self.damaged.open("wb"))
        self.assertEqual(self.check_damage(), "")
        subprocess.run(["xz", "-fk", "--lzma2=dict=64MiB", "--stdout"], input=b"yes\n", check=True,
                       stdout=self.damaged.open("wb"))
        self.assertEqual(self.check().text, "yes\n" + line("app: last"))

    def test_an_unreadable_file_for_an_ordinary_user(self) -> None:
        write_script(SCRATCH / "as-user",
                     'exec setpriv --reuid=65534 --regid=65534 --clear-groups "$@"')
        if subprocess.run([SCRATCH / "as-user", "true"], capture_output=True).returncode != 0:
            self.skipTest("this sandbox has one user only")
        SCRATCH.chmod(0o755)
        self.damaged.chmod(0o600)
        done = subprocess.run([SCRATCH / "as-user", program()], capture_output=True, text=True,
                              env=environment())
        self.assertEqual(done.returncode, 2)
        self.assertIn(f"{self.damaged.name}: Permission denied", done.stderr)
        self.assertEqual(done.stdout, line("app: last"))


class Faults(CommandCase):
    """System calls on one file of three fail."""

    def setUp(self) -> None:
        super().setUp()
        self.paths = [write_archive(boot, line(f"app: {boot}")) for boot in (1, 2, 3)]

    def run_with(self, path: Path, inject: str, *arguments: str) -> subprocess.CompletedProcess:
        command = ["strace", "-f", "-o", "/dev/null", "-P", path.name, "-P", str(path),
                   "-e", f"inject={inject}", program(), *(arguments or ("-j1",))]
        return subprocess.run(command, capture_output=True, text=True,
                              env={**environment(), "ASAN_OPTIONS": "detect_leaks=0"})

    def test_the_oldest_file_vanishes_between_listing_and_opening(self) -> None:
        # As when the daemon deletes it.
        done = self.run_with(self.paths[0], "openat:error=ENOENT")
        self.assertEqual((done.returncode, done.stdout, done.stderr),
                         (0, line("app: 2") + line("app: 3"), ""))

    def test_a_file_vanishes_from_the_middle(self) -> None:
        done = self.run_with(self.paths[1], "openat:error=ENOENT")
        self.assertEqual((done.returncode, done.stdout), (2, line("app: 1") + line("app: 3")))
        self.assertIn(self.paths[1].name, done.stderr)

    def test_a_file_that_cannot_be_opened(self) -> None:
        for arguments in (("-j1",), ("-j1", "-r")):
            done = self.run_with(self.paths[1], "openat:error=EACCES", *arguments)
            self.assertEqual(done.returncode, 2)
            self.assertEqual(sorted(done.stdout.splitlines(keepends=True)),
                             [line("app: 1"), line("app: 3")])
            self.assertIn(f"{self.paths[1].name}: Permission denied", done.stderr)

    def test_an_error_of_the_disk(self) -> None:
        done = self.run_with(self.paths[1], "pread64:error=EIO")
        self.assertEqual((done.returncode, done.stdout), (2, line("app: 1") + line("app: 3")))
        self.assertIn(f"{self.paths[1].name}: Input/output error", done.stderr)

    def test_verify_calls_no_file_intact_that_it_could_not_read(self) -> None:
        for inject, reason in (("openat:error=EACCES", "Permission denied"),
                               ("pread64:error=EIO", "Input/output error")):
            done = self.run_with(self.paths[1], inject, "verify", "--json")
            self.assertEqual(done.returncode, 2)
            self.assertIn(f"{self.paths[1].name}: {reason}", done.stderr)
            found = json.loads(done.stdout)
            self.assertEqual((found["files"], found["lines"]), (3, 2))
            self.assertEqual(found["damaged"], [{"file": self.paths[1].name, "reason": reason}])
            done = self.run_with(self.paths[1], inject, "verify")
            first, last = done.stdout.splitlines()
            self.assertEqual(first, f"{self.paths[1].name}: {reason}")
            self.assertTrue(last.endswith("2 lines: 1 failed"), last)

    def test_verify_does_not_count_a_file_that_was_deleted_meanwhile(self) -> None:
        done = self.run_with(self.paths[0], "openat:error=ENOENT", "verify", "--json")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        found = json.loads(done.stdout)
        self.assertEqual((found["files"], found["lines"], found["damaged"]), (2, 2, []))

    def test_pack_leaves_out_what_cannot_be_opened(self) -> None:
        command = ["strace", "-f", "-o", "/dev/null", "-P", self.paths[1].name,
                   "-e", "inject=openat:error=EACCES", program(), "pack", "-o", "log.tar"]
        done = subprocess.run(command, cwd=self.folder, capture_output=True, text=True,
                              env={**environment(), "ASAN_OPTIONS": "detect_leaks=0"})
        self.assertEqual(done.returncode, 2)
        self.assertIn(self.paths[1].name, done.stderr)
        with tarfile.open(self.folder / "log.tar") as archive:
            self.assertEqual(archive.getnames(),
                             [self.paths[2].name, self.paths[0].name, "manifest.json"])


if __name__ == "__main__":
    case.main()
