# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""The installed libraries, as programs outside this project use them: the examples are built from the
installed package, by CMake and by pkg-config, and pack and read an archive that the daemon itself made.
"""
from __future__ import annotations

import argparse
import io
import lzma
import os
import shutil
import signal
import subprocess
import sys
import tarfile
import tempfile
import unittest
from pathlib import Path

from tests.harness import sandbox
from tests.harness.paths import ARCHIVE, DAEMON, LIVE_LOG, ROOT, SYSLOG
from tests.harness.waiting import wait_until

DOWNLOAD = "log-download"
ERRORS = "last-errors"
HOW = ("CMake", "pkg-config")  # they are built
TAR = Path("/tmp/syslog.tar")
LIVE_TEXT = "the current log\n" * 100
ERROR = "Nov 21 17:48:08 device user.err app: error of {}\n"
PROGRAMS: dict[tuple[str, str], str] = {}  # by example and how it was built


def call(*argv: str | Path, **environment: str) -> None:
    subprocess.run([str(arg) for arg in argv], check=True, env={**os.environ, **environment},
                   stdout=subprocess.DEVNULL)


def build_programs(build: Path, flags: str, folder: Path) -> list[Path]:
    """Installs the package, moves it, and builds the examples from it in two ways."""
    call("cmake", "--install", build, "--prefix", folder / "first place")
    package = folder / "package"
    (folder / "first place").rename(package)

    programs = []
    for example in (DOWNLOAD, ERRORS):
        source = ROOT / "examples" / example
        by_cmake = folder / example / "by-cmake"
        call("cmake", "-S", source, "-B", by_cmake, f"-DCMAKE_PREFIX_PATH={package}",
             f"-DCMAKE_CXX_FLAGS={flags}")
        call("cmake", "--build", by_cmake)

        by_pkg_config = folder / example / "by-pkg-config"
        shutil.copytree(source, by_pkg_config)
        call("make", "-C", by_pkg_config, f"CXXFLAGS={flags}",
             PKG_CONFIG_PATH=str(package / "lib/pkgconfig"))
        programs += [by_cmake / example, by_pkg_config / example]
    return programs


def make_archive() -> dict[str, str]:
    """Has the daemon archive three logs. Returns the archive's names with their texts."""
    SYSLOG.mkdir(parents=True)
    LIVE_LOG.write_text(LIVE_TEXT)
    texts = {name: f"line of {name}\n" * 1000 + ERROR.format(name) for name in ("one.tmp", "two.tmp", "messages.txt.0")}
    for name, text in texts.items():
        (SYSLOG / name).write_text(text)

    # It archives the two leftovers at its start and the rotation in the cycle after SIGTERM.
    daemon = subprocess.Popen([DAEMON])
    leftovers = [SYSLOG / "one.tmp", SYSLOG / "two.tmp"]
    gone = wait_until(lambda: not any(path.exists() for path in leftovers), 60)
    assert gone, "the daemon has not archived what was left over"
    while daemon.poll() is None:  # a signal that comes during start-up is lost
        daemon.send_signal(signal.SIGTERM)
        wait_until(lambda: daemon.poll() is not None, 0.5)
    assert daemon.returncode == 0, f"the daemon ended with status {daemon.returncode}"
    archive = {path.name: lzma.open(path, "rt").read() for path in ARCHIVE.iterdir()}
    assert sorted(archive.values()) == sorted(texts.values()), "the archive is not what was logged"
    return archive


def members(tar: Path) -> dict[str, str]:
    with tarfile.open(tar) as file:
        return {member.name: lzma.open(io.BytesIO(file.extractfile(member).read()), "rt").read()
                for member in file.getmembers()}


archive: dict[str, str]


def setUpModule() -> None:
    global archive
    archive = make_archive()


class ExampleCase(unittest.TestCase):
    def run_example(self, name: str, built_by: str, *options: str, status: int = 0) -> str:
        done = subprocess.run([PROGRAMS[name, built_by], *options], text=True,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT)
        self.assertEqual(done.returncode, status, done.stdout)
        return done.stdout


class LogDownload(ExampleCase):
    def tearDown(self) -> None:
        TAR.unlink(missing_ok=True)

    def test_packs_the_current_log_and_the_archive_however_it_was_built(self) -> None:
        for built_by in HOW:
            with self.subTest(built_by=built_by):
                TAR.write_text("an old one")
                output = self.run_example(DOWNLOAD, built_by)
                self.assertEqual(members(TAR), {"messages.txt.xz": LIVE_TEXT, **archive})
                self.assertEqual([path.name for path in Path("/tmp").iterdir() if path.is_file()],
                                 ["syslog.tar"])
                self.assertRegex(output, r"Archive: +1 boots, 3 files, ")
                self.assertIn("Packed 4 logs: /tmp/syslog.tar", output)

    def test_deletes_the_download(self) -> None:
        TAR.write_text("an old one")
        self.run_example(DOWNLOAD, "CMake", "--delete")
        self.assertFalse(TAR.exists())

    def test_says_what_to_do_where_there_is_no_archive(self) -> None:
        away = ARCHIVE.rename("/perm/away")
        self.addCleanup(away.rename, ARCHIVE)
        self.assertRegex(self.run_example(DOWNLOAD, "CMake", status=1), "Has the daemon run")


class LastErrors(ExampleCase):
    def test_reads_the_archive_however_it_was_built(self) -> None:
        expected = [f"boot 1: app: error of {name}" for name in ("messages.txt.0", "two.tmp", "one.tmp")]
        for built_by in HOW:
            with self.subTest(built_by=built_by):
                printed = self.run_example(ERRORS, built_by).splitlines()
                self.assertCountEqual(printed, expected)
                self.assertEqual(printed[0], expected[0])

    def test_reads_a_copy(self) -> None:
        name, text = max(archive.items())
        copy = Path("/tmp/copy")
        copy.mkdir()
        self.addCleanup(shutil.rmtree, copy)
        shutil.copy(ARCHIVE / name, copy)
        self.assertEqual(self.run_example(ERRORS, "CMake", str(copy)),
                         "boot 1: app: " + text.rpartition(": ")[2])

    def test_reports_what_cannot_be_read(self) -> None:
        self.assertEqual(self.run_example(ERRORS, "CMake", "/nowhere", status=1),
                         "last-errors: /nowhere: No such file or directory\n")


def main() -> None:
    if sys.argv[1:2] == ["--inside"]:
        built = [(example, how) for example in (DOWNLOAD, ERRORS) for how in HOW]
        PROGRAMS.update(zip(built, sys.argv[2:]))
        unittest.main(argv=sys.argv[:1], verbosity=2)
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", type=Path, required=True)
    parser.add_argument("--flags", default="")
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        programs = build_programs(arguments.build, arguments.flags, Path(folder))
        argv = sandbox.python("tests.library.package_test", "--inside",
                              *map(str, programs))
        line = sandbox.command(arguments.build, argv, options=["--bind", folder])
        sys.exit(subprocess.run(line, cwd=ROOT).returncode)


if __name__ == "__main__":
    main()
