# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""`moraine pack`: what is in the tar file, in which order, and where it ends."""
from __future__ import annotations

import hashlib
import io
import json
import lzma
import os
import random
import signal
import stat
import subprocess
import tarfile
from pathlib import Path

from tests.command.command import (CommandCase, environment, line, program, snapshot,
                                   write_archive, write_log)
from tests.harness import case, waiting
from tests.harness.paths import ARCHIVE, SYSLOG



def noise(size: int, seed: int = 1) -> bytes:
    """Text that hardly compresses."""
    return random.Random(seed).randbytes(size // 2).hex().encode()


def write_noise(boot: int, size: int, *, minute: int = 0) -> None:
    """Something of that size in the place of an archive file: what is in it does not matter here."""
    path = write_archive(boot, "", minute=minute)
    path.write_bytes(random.Random(size + minute).randbytes(size))


def contents(tar: bytes) -> dict[str, bytes]:
    with tarfile.open(fileobj=io.BytesIO(tar)) as archive:
        return {member.name: archive.extractfile(member).read() for member in archive}


class PackCase(CommandCase):
    def pack(self, *arguments: str, status: int = 0) -> dict[str, bytes]:
        """Packs to standard output; name to content, in the order of the members."""
        result = self.check("pack", "-o", "-", *arguments, status=status)
        self.assertEqual(len(result.out) % 512, 0)
        return contents(result.out)

    def fill(self) -> list[Path]:
        """A log of every kind of file, newest first."""
        return [write_log("messages.txt", line("app: live")),
                write_log("messages.txt.0", line("app: newer"), mtime=1795280000),
                write_log("messages.txt.1", line("app: older"), mtime=1795270000),
                write_log("messages.txt.old", line("app: oldest"), mtime=1795265000),
                write_log("messages.txt.tmp", line("app: interrupted"), mtime=1795260000),
                write_archive(10, line("app: ten"), mtime=1795250000),
                write_archive(9, line("app: nine"), minute=2, mtime=1795240000),
                write_archive(9, line("app: earlier"), minute=1, mtime=1795230000)]


class Members(PackCase):
    def test_all_files_newest_first_and_the_manifest_last(self) -> None:
        names = [path.name for path in self.fill()]
        expected = [f"{name}.xz" if not name.endswith(".xz") else name for name in names]
        self.assertEqual(list(self.pack()), [*expected, "manifest.json"])

    def test_archive_files_are_unchanged_and_waiting_logs_compressed(self) -> None:
        files = self.fill()
        packed = self.pack()
        for path in files:
            if path.suffix == ".xz":
                self.assertEqual(packed[path.name], path.read_bytes())
            else:
                self.assertEqual(lzma.decompress(packed[path.name + ".xz"]), path.read_bytes())

    def test_each_member_has_the_time_and_the_rights_of_its_file(self) -> None:
        files = self.fill()
        files[0].chmod(0o640)
        files[-1].chmod(0o600)
        result = self.check("pack", "-o", "-")
        with tarfile.open(fileobj=io.BytesIO(result.out)) as archive:
            members = archive.getmembers()
        for path, member in zip(files, members):
            self.assertEqual(member.mtime, int(path.stat().st_mtime), path)
            self.assertEqual(member.mode, stat.S_IMODE(path.stat().st_mode), path)

    def test_the_manifest(self) -> None:
        self.fill()
        packed = self.pack()
        manifest = json.loads(packed.pop("manifest.json"))
        self.assertEqual(manifest["host"], os.uname().nodename)
        self.assertRegex(manifest["time"], r"^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d\d:\d\d$")
        self.assertIn(manifest["version"], self.check("--version").text)
        self.assertEqual(manifest["boot"], 11)
        self.assertEqual(manifest["left_out"], [])
        self.assertEqual(
            [(member["name"], member["size"], member["sha256"]) for member in manifest["members"]],
            [(name, len(content), hashlib.sha256(content).hexdigest())
             for name, content in packed.items()])
        self.assertEqual([member["boot"] for member in manifest["members"]],
                         [11, 11, 11, 11, 11, 10, 9, 9])

    def test_gnu_tar_and_bsdtar_list_and_extract_it(self) -> None:
        files = self.fill()
        long = ARCHIVE / f"messages.008.{'x' * 150}.xz"
        write_log(long, line("app: a long name"))
        self.check("pack", "-o", "log.tar")
        for program_name in ("tar", "bsdtar"):
            listed = subprocess.run([program_name, "-tf", "log.tar"], cwd=self.folder, check=True,
                                    capture_output=True, text=True)
            self.assertEqual(len(listed.stdout.splitlines()), len(files) + 2)
            self.assertEqual(listed.stderr, "")
            target = self.folder / program_name
            target.mkdir()
            subprocess.run([program_name, "-xf", "../log.tar"], cwd=target, check=True)
            self.assertEqual((target / long.name).read_bytes(), long.read_bytes())
            self.assertEqual((target / files[-1].name).read_bytes(), files[-1].read_bytes())

    def test_an_empty_live_log_is_a_member(self) -> None:
        write_log("messages.txt", "")
        self.assertEqual(lzma.decompress(self.pack()["messages.txt.xz"]), b"")

    def test_a_live_log_that_hardly_compresses(self) -> None:
        # More than is kept in memory: it is compressed twice.
        text = noise(3 << 20)
        write_log("messages.txt", text)
        self.assertEqual(lzma.decompress(self.pack()["messages.txt.xz"]), text)

    def test_foreign_files_are_not_packed(self) -> None:
        write_archive(1, line("app: one"))
        write_log("notes.txt", "")
        write_log("messages.txt.0.gz", "")
        write_log("messages.txt.1.xz", "")
        self.assertEqual(list(self.pack()), ["messages.001.1970-01-01.00:00:00.txt.xz",
                                             "manifest.json"])

    def test_nothing_below_perm_is_changed(self) -> None:
        self.fill()
        before = snapshot(SYSLOG)
        self.check("pack")
        self.assertEqual(snapshot(SYSLOG), before)


class Limits(PackCase):
    def fill_noise(self) -> list[str]:
        """Ten archive files of about 10 KiB and a small one behind; their names, newest first."""
        for minute in range(10, 20):
            write_noise(1, 10000, minute=minute)
        write_archive(1, "small", minute=1)
        return sorted((path.name for path in ARCHIVE.iterdir()), reverse=True)

    def test_the_limit_holds_for_the_whole_file_and_is_used(self) -> None:
        names = self.fill_noise()
        for limit in range(1024, 130_000, 3001):
            result = self.run_moraine("pack", "-o", "-", "-l", str(limit))
            self.assertLessEqual(len(result.out), limit)
            if result.status == 1:
                self.assertEqual(result.out, b"")
                self.assertLess(limit, 20_000)
                continue
            packed = contents(result.out)
            manifest = json.loads(packed.pop("manifest.json"))
            self.assertEqual(list(packed), names[:len(packed)])
            self.assertEqual(manifest["left_out"], names[len(packed):])
            if manifest["left_out"]:
                next_size = (ARCHIVE / manifest["left_out"][0]).stat().st_size
                self.assertGreater(len(result.out) + next_size + 3072, limit)

    def test_a_small_file_behind_a_large_one_is_not_taken_instead(self) -> None:
        write_noise(1, 2000, minute=3)
        write_noise(1, 100_000, minute=2)
        write_archive(1, "small", minute=1)
        packed = self.pack("-l", "50K")
        self.assertEqual(list(packed), ["messages.001.1970-01-01.00:03:00.txt.xz", "manifest.json"])

    def test_a_live_log_that_exceeds_the_limit_ends_it(self) -> None:
        write_log("messages.txt", noise(200_000))
        write_archive(1, "small")
        result = self.check("pack", "-l", "50K", status=1)
        self.assertIn("messages.txt", result.error)
        self.assertEqual(list(self.folder.iterdir()), [])

    def test_the_size_of_the_file_is_the_smallest_limit_that_admits_its_members(self) -> None:
        for minute in range(60):
            write_noise(1, 400, minute=minute)
        for limit in range(8192, 24576, 512):
            result = self.check("pack", "-o", "-", "-l", str(limit))
            size = len(result.out)
            if size < limit:
                self.assertEqual(list(self.pack("-l", str(size))), list(contents(result.out)), limit)

    def test_the_default_is_15_mib(self) -> None:
        for minute in range(20):
            write_noise(1, 1 << 20, minute=minute)
        result = self.check("pack", "-o", "-")
        self.assertLessEqual(len(result.out), 15 << 20)
        self.assertGreater(len(result.out), 13 << 20)
        self.assertEqual(len(contents(self.check("pack", "-o", "-", "-l", "none").out)), 21)

    def test_sizes(self) -> None:
        self.fill_noise()
        for text, size in (("60K", 60 << 10), ("61440", 61440), ("60k", 60 << 10)):
            self.assertEqual(list(self.pack("-l", text)), list(self.pack("--limit", str(size))))
        self.assertEqual(len(self.pack("-l", "1M")), 12)
        self.assertEqual(len(self.pack("-l", "1G")), 12)
        for text in ("", "x", "5X", "-1", "5KB", "1.5M", "99999999999G", "18446744073709551616"):
            self.refuse("pack", f"--limit={text}", naming="--limit")

    def test_many_names_left_out_leave_room_for_members(self) -> None:
        for minute in range(60):
            for boot in range(1, 21):
                write_archive(boot, "x" * boot, minute=minute)
        packed = self.pack("-l", "20K")
        manifest = json.loads(packed["manifest.json"])
        self.assertGreater(len(manifest["members"]), 5)
        self.assertEqual(manifest["left_out_count"], 1200 - len(manifest["members"]))


class Selection(PackCase):
    def setUp(self) -> None:
        super().setUp()
        for boot in (1, 2, 4):
            for minute in (1, 2):
                write_archive(boot, f"boot {boot} minute {minute}\n", minute=minute)
        write_log("messages.txt", "live\n")

    def packed(self, *arguments: str) -> list[str]:
        """The boots and minutes of the members."""
        names = list(self.pack(*arguments))
        self.assertEqual(names.pop(), "manifest.json")
        return [f"{name[11]}-{name[28]}" if name[9] == "0" else name for name in names]

    def test_newest_and_oldest_take_archive_files_from_that_end(self) -> None:
        self.assertEqual(self.packed("--newest"), ["4-2", "4-1", "2-2", "2-1", "1-2", "1-1"])
        self.assertEqual(self.packed("--oldest"), ["1-1", "1-2", "2-1", "2-2", "4-1", "4-2"])

    def test_files(self) -> None:
        self.assertEqual(self.packed("--newest", "--files", "3"), ["4-2", "4-1", "2-2"])
        self.assertEqual(self.packed("--oldest", "--files=1"), ["1-1"])

    def test_boots(self) -> None:
        self.assertEqual(self.packed("--oldest", "--boots", "2"), ["1-1", "1-2", "2-1", "2-2"])
        self.assertEqual(self.packed("--newest", "--boots", "1", "--files", "1"), ["4-2"])

    def test_waiting_logs_do_not_count(self) -> None:
        self.assertEqual(self.packed("--files", "1"), ["messages.txt.xz", "4-2"])
        self.assertEqual(self.packed("--boots", "1"), ["messages.txt.xz", "4-2", "4-1"])
        self.assertEqual(self.packed("--files", "0"), ["messages.txt.xz"])

    def test_boot(self) -> None:
        self.assertEqual(self.packed("-b", "2"), ["2-2", "2-1"])
        self.assertEqual(self.packed("-b", "1..2"), ["2-2", "2-1", "1-2", "1-1"])
        self.assertEqual(self.packed("-b", "-1"), ["4-2", "4-1"])
        self.assertEqual(self.packed("-b"), ["messages.txt.xz"])
        self.assertEqual(self.packed("-b", "0"), ["messages.txt.xz"])
        self.assertEqual(self.packed("--boot=4..5"), ["messages.txt.xz", "4-2", "4-1"])

    def test_nothing_to_pack_is_status_1_and_no_file(self) -> None:
        for arguments in (("-b", "3"), ("--newest", "--files", "0"), ("-b", "7..9")):
            self.assertIn("nothing to pack", self.check("pack", *arguments, status=1).error)
        self.assertEqual(list(self.folder.iterdir()), [])

    def test_usage_errors(self) -> None:
        self.refuse("pack", "--newest", "--oldest")
        self.refuse("pack", "--files", "x")
        self.refuse("pack", "--boots", "-1")
        self.refuse("pack", "-b", "2..1")
        self.refuse("pack", "-D", ".")
        self.refuse("pack", "somewhere.tar")


class Files(PackCase):
    def setUp(self) -> None:
        super().setUp()
        write_archive(1, line("app: text"))

    def test_the_default_name(self) -> None:
        result = self.check("pack")
        name, = (path.name for path in self.folder.iterdir())
        self.assertRegex(name, rf"^{os.uname().nodename}-logs-\d{{8}}-\d{{6}}\.tar$")
        self.assertIn(name, result.error.splitlines()[-1])
        self.assertEqual(result.out, b"")

    def test_an_existing_file_is_replaced_only_by_force(self) -> None:
        (self.folder / "log.tar").write_text("precious")
        self.check("pack", "-o", "log.tar", status=2)
        self.assertEqual((self.folder / "log.tar").read_text(), "precious")
        self.check("pack", "-o", "log.tar", "--force")
        self.assertTrue(tarfile.is_tarfile(self.folder / "log.tar"))
        self.assertEqual(len(list(self.folder.iterdir())), 1)

    def test_the_last_line_names_what_was_left_out(self) -> None:
        write_noise(2, 50_000)
        result = self.check("pack", "--oldest", "-l", "30K", "-o", "log.tar")
        self.assertIn("log.tar", result.error.splitlines()[-1])
        self.assertIn("1 file left out", result.error.splitlines()[-1])

    def test_a_device_is_written_to_and_not_replaced(self) -> None:
        self.check("pack", "-o", "/dev/null", "--force")
        self.assertTrue(Path("/dev/null").is_char_device())

    def test_a_full_disk(self) -> None:
        write_noise(2, 1 << 20)
        self.mount("-t", "tmpfs", "-o", "size=65536", "tmpfs", str(self.folder))
        result = self.check("pack", "-o", "log.tar", status=2)
        self.assertIn("log.tar: No space left on device", result.error)
        self.assertEqual(list(self.folder.iterdir()), [])

    def test_a_full_standard_output(self) -> None:
        with open("/dev/full", "wb") as full:
            self.check("pack", "-o", "-", status=2, stdout=full)

    def test_a_closed_pipe_ends_it_quietly(self) -> None:
        write_noise(2, 1 << 20)
        process = subprocess.Popen([program(), "pack", "-o", "-"], stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, env=environment())
        process.stdout.close()
        self.assertEqual(process.stderr.read(), b"")
        self.assertEqual(process.wait(waiting.limit), -signal.SIGPIPE)
        process.stderr.close()

    def test_a_folder_and_a_missing_folder(self) -> None:
        self.check("pack", "-o", "/tmp", status=2)
        self.check("pack", "-o", "missing/log.tar", status=2)

    def test_dry_run_prints_members_and_total_and_writes_nothing(self) -> None:
        write_log("messages.txt", line("app: live"))
        size = len(self.check("pack", "-o", "-").out)
        result = self.check("pack", "--dry-run", "-o", "log.tar")
        self.assertIn("messages.txt.xz", result.lines[0])
        self.assertIn("messages.001.1970-01-01.00:00:00.txt.xz", result.lines[1])
        self.assertIn(str(size), result.lines[2])
        self.assertEqual(list(self.folder.iterdir()), [])

    def test_an_interrupt_leaves_no_file(self) -> None:
        for number in (signal.SIGINT, signal.SIGTERM):
            for minute in range(40):
                write_noise(2, 1 << 20, minute=minute)
            process = subprocess.Popen([program(), "pack", "-l", "none"], cwd=self.folder,
                                       stderr=subprocess.DEVNULL, env=environment())
            self.wait_until(lambda: any(self.folder.iterdir()), "the file is begun")
            process.send_signal(number)
            self.assertIn(process.wait(waiting.limit), (128 + number, 0))
            if process.returncode:
                self.assertEqual(list(self.folder.iterdir()), [])
            for path in self.folder.iterdir():
                path.unlink()

    def test_the_file_has_its_name_only_when_complete(self) -> None:
        for minute in range(40):
            write_noise(2, 1 << 20, minute=minute)
        process = subprocess.Popen([program(), "pack", "-l", "none", "-o", "log.tar"],
                                   cwd=self.folder, stderr=subprocess.DEVNULL, env=environment())
        while process.poll() is None:
            if (self.folder / "log.tar").exists():
                with tarfile.open(self.folder / "log.tar") as archive:
                    self.assertEqual(len(archive.getnames()), 42)
        self.assertEqual(process.returncode, 0)
        self.assertTrue((self.folder / "log.tar").exists())


class Unreadable(PackCase):
    def test_a_misnamed_file_is_skipped_with_a_message(self) -> None:
        write_archive(1, line("app: text"))
        write_log(ARCHIVE / "messages.x.txt.xz", "")
        result = self.check("pack", "-o", "-", status=2)
        self.assertIn("messages.x.txt.xz", result.error)
        self.assertIn("nothing else left out", result.error.splitlines()[-1])
        self.assertEqual(len(contents(result.out)), 2)

    def test_waiting_logs_that_cannot_be_read_are_left_out_by_name(self) -> None:
        self.fill()
        for name in ("messages.txt", "messages.txt.1"):
            (SYSLOG / name).unlink()
            os.mkfifo(SYSLOG / name)
        names = ["messages.txt.xz", "messages.txt.1.xz"]
        result = self.check("pack", "-o", "-", status=2)
        manifest = json.loads(contents(result.out)["manifest.json"])
        self.assertEqual((manifest["left_out"], manifest["left_out_count"]), (names, 2))
        left_out = f"2 files left out ({names[0]} to {names[1]})"
        self.assertIn(left_out, result.error.splitlines()[-1])
        self.assertIn(left_out, self.check("pack", "--dry-run", status=2).lines[-1])

    def test_a_damaged_file_is_packed_as_it_is(self) -> None:
        path = write_archive(1, line("app: text"))
        path.write_bytes(path.read_bytes()[:-5] + b"trash")
        self.assertEqual(self.pack()[path.name], path.read_bytes())

    def test_no_log_at_all(self) -> None:
        self.check("pack", status=1)

    def test_no_folder(self) -> None:
        ARCHIVE.rmdir()
        SYSLOG.rmdir()
        self.check("pack", status=2)
        self.assertEqual(list(self.folder.iterdir()), [])


if __name__ == "__main__":
    case.main()
