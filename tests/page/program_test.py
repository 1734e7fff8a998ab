# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""The log page's program without a server: what bounds a request, on a large archive.

The archive's text is large and its files are small, so that a search takes seconds.
"""
from __future__ import annotations

import io
import json
import lzma
import random
import resource
import string
import subprocess
import tarfile
import unittest

from benchmarks import page as benchmark
from rig import page
from tests.harness import sandbox
from tests.harness.paths import ARCHIVE, archive_name
from tests.harness.waiting import wait_until
from tests.page.requests_test import run_inside

PROGRAM = f"{page.WWW}/cgi-bin/moraine"
FILES = 400
LINE = "Nov 21 17:48:08 device user.info pump[530]: pressure within limits, valve 3 opened\n"
EXPLOSIVE = "(e|i).{40}(.{1,60}){1,60}[0-9]"
NEEDLES = "xyz[a-f]"  # in the oldest file, and in the newest one
STALL_SECONDS = 30  # that the program waits for a reader
MAX_MEMORY_KB = 8 * 1024
GONE = "0.0.0-123-1-1"


def fill_archive() -> None:
    ARCHIVE.mkdir(parents=True)
    compressed = lzma.compress(LINE.encode() * 50_000, preset=1)
    for number in range(FILES):
        (ARCHIVE / archive_name(number + 2)).write_bytes(compressed)
    (ARCHIVE / archive_name(FILES + 3)).write_bytes(
        lzma.compress(LINE.replace("pressure", "xyza").encode()))
    varied = random.Random(17).choices(string.ascii_lowercase, k=1_000_000)
    lines = "".join("".join(varied[i:i + 200]) + "\n" for i in range(0, len(varied), 200))
    (ARCHIVE / archive_name(1)).write_bytes(lzma.compress(lines.encode(), preset=1))
    long_lines = (b"x" * (2 << 20) + b"\n") * 20
    (ARCHIVE / archive_name(FILES + 2)).write_bytes(lzma.compress(long_lines, preset=1))


class ProgramTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls) -> None:
        sandbox.require()
        fill_archive()

    def start(self, path: str, query: str = "", method: str = "GET", **options: object) -> subprocess.Popen[bytes]:
        environment = {"REQUEST_METHOD": method, "PATH_INFO": path, "QUERY_STRING": query}
        return subprocess.Popen([PROGRAM], env=environment, stdout=subprocess.PIPE, **options)

    def run_program(self, path: str, query: str = "", method: str = "GET", **options: object) -> tuple[int, bytes]:
        """Returns the status and the body."""
        output, _ = self.start(path, query, method, **options).communicate()
        header, body = output.split(b"\r\n\r\n", 1)
        return int(header.split()[1]), body

    def run_for_a_second(self, query: str, path: str = "/log") -> tuple[int, bytes]:
        """With less processor time than the program would allow itself."""
        return self.run_program(path, query, preexec_fn=lambda: resource.setrlimit(
            resource.RLIMIT_CPU, (1, resource.getrlimit(resource.RLIMIT_CPU)[1])))

    def error(self, body: bytes) -> str:
        return json.loads(body.splitlines()[-1])["error"]

    def test_a_search_that_takes_too_long_ends_with_an_error(self) -> None:
        for query in ("grep=[0-9]x&count", "grep=[0-9]x", "grep=[0-9]x&download=text", "grep=[0-9]x&download=json"):
            _, body = self.run_for_a_second(query)
            self.assertRegex(self.error(body), "^grep: .*too long", query)

    def test_a_search_back_that_takes_too_long_says_where_to_continue(self) -> None:
        end, lines, ends = {"cursor": ""}, [], []
        while "cursor" in end:
            position = f"&before={end['cursor']}" if end["cursor"] else ""
            _, body = self.run_for_a_second(f"grep={NEEDLES}&reverse{position}")
            *found, end = map(json.loads, body.splitlines())
            lines += [line["message"] for line in found]
            ends.append(end)
        self.assertGreater(len(ends), 1, ends)
        self.assertEqual({end["more"] for end in ends[:-1]}, {True})
        self.assertEqual(end, {"end": True, "more": False})
        _, whole = self.run_program("/log", f"grep={NEEDLES}&reverse")
        self.assertEqual(lines, [json.loads(line)["message"] for line in whole.splitlines()[:-1]])

    def test_the_boots_end_with_an_error_if_they_take_too_long(self) -> None:
        status, body = self.run_for_a_second("", "/boots")
        self.assertEqual((status, self.error(body)), (500, "this takes too long for the device"))

    def test_a_download_has_its_size_although_files_are_deleted_meanwhile(self) -> None:
        files = sorted(ARCHIVE.iterdir())
        program = self.start("/download", "limit=none", pipesize=4096)
        header = b"".join(iter(program.stdout.readline, b"\r\n"))
        for file in files[5:8]:
            self.addCleanup(file.write_bytes, file.read_bytes())
            file.unlink()
        body, _ = program.communicate()
        self.assertIn(f"Content-Length: {len(body)}\r\n", header.decode())
        names = tarfile.open(fileobj=io.BytesIO(body)).getnames()
        self.assertEqual({file.name for file in files} - set(names), {file.name for file in files[5:8]})

    def test_without_an_expression_none_is_blamed(self) -> None:
        _, body = self.run_for_a_second("tag=nobody&count")
        self.assertRegex(self.error(body), "^this takes too long")

    def test_an_expression_that_is_too_complex_is_named(self) -> None:
        _, body = self.run_program("/log", f"grep={EXPLOSIVE}&boot=1&count")
        self.assertRegex(self.error(body), "^grep: .*too much time")
        _, body = self.run_program("/follow", f"grep={EXPLOSIVE}&boot=1")
        self.assertRegex(body.decode(), '(^|\n)data: {"error":"grep: .*too much time')

    def test_who_reads_nothing_does_not_hold_a_place(self) -> None:
        # The header takes one page of the pipe, so that there is room for a part of what follows.
        programs = [self.start("/log", query, pipesize=8192)
                    for query in ("lines=10000", "download=text", "download=json")]
        for program in programs:
            self.addCleanup(program.communicate)
            self.addCleanup(program.kill)
        self.assertTrue(wait_until(lambda: all(program.poll() is not None for program in programs), 4 * STALL_SECONDS))

    def test_a_position_that_is_not_kept_is_not_found(self) -> None:
        for path, query, name in (("/log", "before", "before"), ("/log", "download=text&after", "after"), ("/follow", "after", "after")):
            status, body = self.run_program(path, f"{query}={GONE}")
            self.assertEqual((status, self.error(body).split(":")[0]), (404, name), path)
            self.assertEqual(self.run_program(path, f"{query}={GONE}", "HEAD"), (404, b""), path)

    def test_memory_does_not_depend_on_the_log(self) -> None:
        for path, query in (("/status", ""), ("/boots", ""), ("/log", "lines=30"), ("/log", "lines=10000&reverse"),
                            ("/log", "grep=[0-9]x&count"), ("/log", "grep=(.|x)y&ignore-case&count&boot=402"),
                            ("/log", "download=json&boot=402"), ("/download", "limit=none")):
            _, _, peak_kb = benchmark.run(path, query)
            self.assertLess(peak_kb, MAX_MEMORY_KB, f"{path}?{query}")

    def test_a_count_is_no_file(self) -> None:
        status, body = self.run_program("/log", "count&download=text&boot=1")
        self.assertEqual((status, self.error(body)), (400, "count: not together with download"))


if __name__ == "__main__":
    run_inside()
