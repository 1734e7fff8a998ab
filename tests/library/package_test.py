# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""The installed library, as a program outside this project uses it: the example is built from the
installed package, by CMake and by pkg-config, and packs an archive that the daemon itself made.
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

EXAMPLE = ROOT / "examples/log-download"
TAR = Path("/tmp/syslog.tar")
LIVE_TEXT = "the current log\n" * 100
PROGRAMS: dict[str, str] = {}  # by how they were built


def call(*argv: str | Path, **environment: str) -> None:
    subprocess.run([str(arg) for arg in argv], check=True, env={**os.environ, **environment},
                   stdout=subprocess.DEVNULL)


def build_programs(build: Path, flags: str, folder: Path) -> dict[str, Path]:
    """Installs the package, moves it, and builds the example from it in two ways."""
    call("cmake", "--install", build, "--prefix", folder / "first place")
    package = folder / "package"
    (folder / "first place").rename(package)

    by_cmake = folder / "by-cmake"
    call("cmake", "-S", EXAMPLE, "-B", by_cmake, f"-DCMAKE_PREFIX_PATH={package}",
         f"-DCMAKE_CXX_FLAGS={flags}")
    call("cmake", "--build", by_cmake)

    by_pkg_config = folder / "by-pkg-config"
    shutil.copytree(EXAMPLE, by_pkg_config)
    call("make", "-C", by_pkg_config, f"CXXFLAGS={flags}",
         PKG_CONFIG_PATH=str(package / "lib/pkgconfig"))
    return {"CMake": by_cmake / "log-download", "pkg-config": by_pkg_config / "log-download"}


def make_archive() -> dict[str, str]:
    """Has the daemon archive three logs. Returns the archive's names with their texts."""
    SYSLOG.mkdir(parents=True)
    LIVE_LOG.write_text(LIVE_TEXT)
    texts = {name: f"line of {name}\n" * 1000 for name in ("one.tmp", "two.tmp", "messages.txt.0")}
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


class LogDownload(unittest.TestCase):
    archive: dict[str, str]

    @classmethod
    def setUpClass(cls) -> None:
        cls.archive = make_archive()

    def tearDown(self) -> None:
        TAR.unlink(missing_ok=True)

    def run_example(self, built_by: str, *options: str, status: int = 0) -> str:
        done = subprocess.run([PROGRAMS[built_by], *options], text=True, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.assertEqual(done.returncode, status, done.stdout)
        return done.stdout

    def only_the_download_is_left(self) -> None:
        self.assertEqual(sorted(path.name for path in Path("/tmp").iterdir()
                                if path.is_file()), ["syslog.tar"])

    def test_packs_the_current_log_and_the_archive_however_it_was_built(self) -> None:
        for built_by in PROGRAMS:
            with self.subTest(built_by=built_by):
                output = self.run_example(built_by)
                self.assertEqual(members(TAR), {"messages.txt.xz": LIVE_TEXT, **self.archive})
                self.only_the_download_is_left()
                self.assertIn("Packed 4 logs: /tmp/syslog.tar", output)
                self.assertIn("Packing: ", output)

    def test_shows_the_archive(self) -> None:
        output = self.run_example("CMake", "--stats")
        self.assertRegex(output, r"Archive: +1 boots, 3 files, \S+ \S+ of 1024\.000 MiB")
        self.assertIn("0 rotations waiting", output)
        self.assertFalse(TAR.exists())

    def test_packs_the_newest_or_the_oldest_within_limits(self) -> None:
        names = sorted(self.archive)
        self.run_example("CMake", "--newest", "--files", "1")
        self.assertEqual(list(members(TAR)), names[-1:])
        self.run_example("CMake", "--oldest", "--files", "2", "--boots", "1")
        self.assertEqual(list(members(TAR)), names[:2])

    def test_replaces_an_old_download_and_deletes_it(self) -> None:
        TAR.write_text("an old one")
        self.run_example("CMake", "--oldest")
        self.assertEqual(members(TAR), self.archive)
        self.run_example("CMake", "--delete")
        self.assertFalse(TAR.exists())

    def test_says_what_to_do_where_there_is_no_archive(self) -> None:
        away = ARCHIVE.rename("/perm/away")
        self.addCleanup(away.rename, ARCHIVE)
        self.assertRegex(self.run_example("CMake", "--stats", status=1), "Has the daemon run")

    def test_refuses_arguments_that_make_no_sense(self) -> None:
        for options in (["--files"], ["--newest", "--files", "0"], ["--newest", "--files", "1x"],
                        ["--files", "3"], ["--newest", "--boots", "65536"], ["all"]):
            with self.subTest(options=options):
                self.assertRegex(self.run_example("CMake", *options, status=2), "^Usage: ")
        self.assertRegex(self.run_example("CMake", "--help"), "^Usage: ")


def main() -> None:
    if sys.argv[1:2] == ["--inside"]:
        PROGRAMS.update(zip(("CMake", "pkg-config"), sys.argv[2:]))
        unittest.main(argv=sys.argv[:1], verbosity=2)
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", type=Path, required=True)
    parser.add_argument("--flags", default="")
    arguments = parser.parse_args()
    with tempfile.TemporaryDirectory() as folder:
        programs = build_programs(arguments.build, arguments.flags, Path(folder))
        argv = sandbox.python("tests.library.package_test", "--inside",
                              *map(str, programs.values()))
        line = sandbox.command(arguments.build, argv, options=["--bind", folder])
        sys.exit(subprocess.run(line, cwd=ROOT).returncode)


if __name__ == "__main__":
    main()
