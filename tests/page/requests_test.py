# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Requests to the log page's program through its real server, hostile ones among them.

Starts a sandbox as ./page does, and asks from outside.
"""
from __future__ import annotations

import concurrent.futures
import http.client
import io
import json
import os
import socket
import subprocess
import sys
import tarfile
import unittest
import urllib.parse
from pathlib import Path
from typing import Iterator, Sequence

from rig import page
from tests.harness import sandbox
from tests.harness.paths import BUSYBOX, ROOT
from tests.harness.services import free_port
from tests.harness.waiting import wait_until

BUILD = Path(os.environ.get("PAGE_BUILD", ROOT / "build/release"))
HEADER = {"content-security-policy": "default-src 'none'", "x-content-type-options": "nosniff",
          "referrer-policy": "no-referrer", "cache-control": "no-store"}
PROGRAM = "/cgi-bin/moraine"


def run_inside() -> None:
    """Runs the tests of the module that was called, in a sandbox with the page."""
    if "--inside" not in sys.argv:
        module = sys.modules["__main__"].__spec__.name
        sandbox.enter(sandbox.command(BUILD, sandbox.python(module, "--inside"),
                                      placed=page.files(BUILD, BUSYBOX)))
    sys.argv.remove("--inside")
    unittest.main(verbosity=2)


class Sandbox:
    def __init__(self, options: Sequence[str]) -> None:
        self.port = free_port()
        self.process = subprocess.Popen(
            ["python3", "-B", "-m", "rig.page", "--build", str(BUILD), "--port", str(self.port),
             "--boots", "12", "--rate", "2", "--commands", *options],
            cwd=ROOT, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        if not self.process.stdout.readline().startswith("http:"):
            raise RuntimeError("the page does not start")

    def stop(self) -> None:
        self.process.stdin.close()
        self.process.wait()
        self.process.stdout.close()

    def log(self, first: int, last: int) -> None:
        """Has it log the lines "number FIRST end" to "number LAST end"."""
        self._order({"first": first, "last": last})

    def log_text(self, text: str) -> None:
        self._order({"text": text})

    def _order(self, order: dict[str, object]) -> None:
        self.process.stdin.write(json.dumps(order) + "\n")
        self.process.stdin.flush()
        if self.process.stdout.readline() != "done\n":
            raise RuntimeError("the sandbox has ended")

    def programs(self) -> list[int]:
        """The processes of the program that run in it."""
        return self._processes("moraine")

    def is_quiet(self) -> bool:
        """Whether neither a program runs nor a process of the server that may start one."""
        return not self.programs() and len(self._processes("httpd")) <= 1

    def _processes(self, name: str) -> list[int]:
        parents, found = {}, []
        for status in Path("/proc").glob("[0-9]*/status"):
            try:
                fields = dict(line.split(":\t", 1) for line in status.read_text().splitlines() if ":\t" in line)
            except (FileNotFoundError, ProcessLookupError):
                continue
            parents[int(status.parent.name)] = int(fields["PPid"])
            if fields["Name"].strip() == name:
                found.append(int(status.parent.name))
        return [pid for pid in found if self.process.pid in ancestors(pid, parents)]


def ancestors(pid: int, parents: dict[int, int]) -> Iterator[int]:
    while pid:
        yield pid
        pid = parents.get(pid, 0)


class Answer:
    def __init__(self, response: http.client.HTTPResponse) -> None:
        self.status = response.status
        self.header = {name.lower(): value for name, value in response.getheaders()}
        self.body = response.read()

    @property
    def json(self) -> object:
        return json.loads(self.body)

    @property
    def lines(self) -> list[dict]:
        """Without the last object, which has to be there."""
        *lines, end = map(json.loads, self.body.decode().splitlines())
        if not end.get("end"):
            raise AssertionError(f"the answer ends with {end}")
        self.more = end["more"]
        return lines


class PageTest(unittest.TestCase):
    sandbox: Sandbox
    options: Sequence[str] = ()
    changes_escapes = False  # the server corrects or refuses escapes itself

    @classmethod
    def setUpClass(cls) -> None:
        cls.sandbox = Sandbox(cls.options)

    @classmethod
    def tearDownClass(cls) -> None:
        cls.sandbox.stop()

    def tearDown(self) -> None:
        self.get("/nothing")  # The server has taken all connections that were opened before.
        self.assertTrue(wait_until(self.sandbox.is_quiet, 30), "a program still runs")

    def get(self, path: str, method: str = "GET") -> Answer:
        connection = http.client.HTTPConnection("127.0.0.1", self.sandbox.port, timeout=60)
        try:
            connection.request(method, PROGRAM + path)
            return Answer(connection.getresponse())
        finally:
            connection.close()

    def log(self, **parameters: object) -> Answer:
        return self.get("/log?" + urllib.parse.urlencode(parameters, doseq=True))

    def open(self, path: str) -> socket.socket:
        """Sends a request and reads nothing."""
        connection = socket.create_connection(("127.0.0.1", self.sandbox.port), timeout=60)
        connection.sendall(f"GET {PROGRAM}{path} HTTP/1.1\r\nHost: x\r\n\r\n".encode())
        return connection

    # -- Answers

    def test_every_answer_has_the_header(self) -> None:
        for path in ("/status", "/boots", "/log?lines=1", "/log?lines=x", "/nothing", "/download?dry-run",
                     "/log?download=text&lines=1"):
            answer = self.get(path)
            self.assertEqual({name: answer.header.get(name) for name in HEADER}, HEADER, path)

    def test_log_ends_with_an_object(self) -> None:
        answer = self.log(lines=3)
        self.assertEqual(len(answer.lines), 3)
        self.assertTrue(answer.more)
        self.assertEqual(answer.header["content-type"], "application/x-ndjson")
        self.assertEqual(json.loads(answer.body.splitlines()[-1]), {"end": True, "more": True})
        self.assertEqual(len(self.log().lines), 500)

    def test_pages_in_both_directions_are_the_whole(self) -> None:
        whole = self.log(boot=-2, lines=10000).lines
        self.assertGreater(len(whole), 100)
        step = len(whole) // 5 + 1

        backwards: list[dict] = []
        while True:
            answer = self.log(boot=-2, lines=step, **({"before": backwards[0]["cursor"]} if backwards else {}))
            backwards = answer.lines + backwards
            if not answer.more:
                break
        self.assertEqual(backwards, whole)

        forwards = whole[:1]
        while True:
            answer = self.log(boot=-2, lines=step, after=forwards[-1]["cursor"])
            forwards += answer.lines
            if not answer.more:
                break
        self.assertEqual(forwards, whole)
        newest_first = self.log(boot=-2, lines=step, reverse=1).lines
        self.assertEqual(newest_first, whole[::-1][:step])

    def test_a_cursor_stays_valid_across_rotation_and_archiving(self) -> None:
        self.sandbox.log(1, 10)
        self.assertTrue(wait_until(lambda: self.log(grep="number 10 end").lines, 30))
        old = self.log(grep="number 5 end").lines[-1]
        self.sandbox.log(11, 2500)  # several rotations of 64 KiB

        def is_archived() -> bool:
            return self.log(grep="number 5 end").lines[-1]["file"].endswith(".xz")
        self.assertTrue(wait_until(is_archived, 90))
        after = self.log(after=old["cursor"], tag="test", lines=10000).lines
        self.assertEqual([line["message"] for line in after], [f"number {i} end" for i in range(6, 2501)])
        before = self.log(before=old["cursor"], tag="test", lines=4).lines
        self.assertEqual([line["message"] for line in before], [f"number {i} end" for i in range(1, 5)])

    def test_filters(self) -> None:
        everything = self.log(boot="-3", lines=10000).lines
        errors = [line for line in everything if line.get("severity") in ("emerg", "alert", "crit", "err")]
        self.assertEqual(self.log(boot="-3", priority="err", lines=10000).lines, errors)
        self.assertEqual(self.log(boot="-3", priority=3, count="").lines, [{"count": len(errors)}])
        two = self.log(boot="-3", grep=["valve 3", "valve 4"], lines=10000).lines
        self.assertEqual(two, [line for line in everything if "valve 3" in line["message"] or "valve 4" in line["message"]])
        none = self.log(boot="-3", **{"grep": ".", "invert-match": "1"})
        self.assertEqual((none.lines, none.more), ([], False))

    def test_head_has_no_body(self) -> None:
        for path in ("/status", "/log?lines=5", "/download", "/follow", "/log?count"):
            answer = self.get(path, "HEAD")
            self.assertEqual((answer.status, answer.body), (200, b""), path)

    def test_files(self) -> None:
        text = self.log(boot="-3", download="text")
        self.assertRegex(text.header["content-disposition"], r'^attachment; filename="pump-17-log-\d{8}-\d{6}\.txt"$')
        lines = self.log(boot="-3", lines=10000).lines
        self.assertEqual(len(text.body.splitlines()), len(lines))
        as_json = [json.loads(line) for line in self.log(boot="-3", download="json").body.splitlines()]
        self.assertEqual(as_json, [{key: line[key] for key in line if key != "cursor"} for line in lines])

    def test_download_has_the_announced_size_and_members(self) -> None:
        plan = self.get("/download?limit=200k&dry-run").json
        answer = self.get("/download?limit=200K")
        self.assertEqual(answer.status, 200, answer.body)
        self.assertEqual(len(answer.body), int(answer.header["content-length"]))
        self.assertLessEqual(len(answer.body), 200 * 1024)
        names = tarfile.open(fileobj=io.BytesIO(answer.body)).getnames()
        self.assertEqual(names[0], "messages.txt.xz")
        self.assertEqual(names[-1], "manifest.json")
        self.assertEqual([member["name"] for member in plan["members"]], [name for name in names if name != "manifest.json"])

    # -- Refusals

    def test_bad_parameters_are_named(self) -> None:
        for query, name in (
                ("lines=10001", "lines"), ("lines=-1", "lines"), ("lines=", "lines"), ("lines=1&lines=2", "lines"),
                ("colour=red", "colour"), ("grep=(", "grep"), ("grep=%00", "grep"), ("grep=%zz", "grep"),
                ("grep=a%7B3,2%7D", "grep"), ("boot=x", "boot"), ("boot=5..3", "boot"), ("boot=1..2..3", "boot"),
                ("boot=99999999999999999999", "boot"), ("priority=loud", "priority"), ("priority=8", "priority"),
                ("since=soon", "since"), ("until=2026-13-01", "until"), ("before=zz", "before"), ("after=1-2-3", "after"),
                ("reverse=maybe", "reverse"), ("download=exe", "download"), ("dry-run=1", "dry-run")):
            answer = self.get(f"/log?{query}")
            if "%" in query and self.changes_escapes:
                continue
            self.assertEqual(answer.status, 400, query)
            self.assertTrue(answer.json["error"].startswith(f"{name}:"), answer.json)
        for path, name in (("/download?limit=big", "limit"), ("/download?files=x", "files"), ("/download?lines=1", "lines"),
                           ("/follow?reverse=1", "reverse"), ("/follow?before=1-1-1-1", "before"), ("/status?a=b", "a"),
                           ("/boots?boot=1", "boot")):
            answer = self.get(path)
            self.assertEqual(answer.status, 400, path)
            self.assertTrue(answer.json["error"].startswith(f"{name}:"), answer.json)

    def test_a_line_that_is_not_kept_is_not_found(self) -> None:
        answer = self.log(before="0.0.0-123-1-1")
        self.assertEqual((answer.status, answer.json["error"].split(":")[0]), (404, "before"))
        answer = self.log(after="0.0.0-123-1-1", reverse=1)
        self.assertEqual((answer.status, answer.json["error"].split(":")[0]), (404, "after"))

    def test_other_paths_are_not_found(self) -> None:
        for path in ("", "/", "/log/", "/log/x", "/Log", "/logs", "/..%2f..%2fetc/passwd", "/log%00", "/status.json"):
            self.assertIn(self.get(path).status, (400, 404), path)
        for path in ("/../../../../etc/passwd", "/log/../../../../../etc/passwd"):
            with socket.create_connection(("127.0.0.1", self.sandbox.port)) as connection:
                connection.sendall(f"GET {PROGRAM}{path} HTTP/1.0\r\n\r\n".encode())
                self.assertNotIn(b"root:", b"".join(iter(lambda: connection.recv(65536), b"")))

    def test_other_methods_are_refused(self) -> None:
        for method in ("POST", "PUT", "DELETE", "OPTIONS", "PATCH"):
            self.assertIn(self.get("/status", method).status, (405, 501), method)
        self.assertEqual(self.get("/status", "POST").header["allow"], "GET, HEAD")

    # -- Hostile text and load

    def test_hostile_text_stays_valid_json(self) -> None:
        self.sandbox.log_text("hostile <script>\u202e\"\\\x1b[31m\ud83d end".encode("utf-8", "surrogatepass").decode("latin-1"))
        self.assertTrue(wait_until(lambda: self.log(grep="hostile").lines, 30))

    def test_a_costly_expression_is_bounded(self) -> None:
        for expression in ("(a+)+$", "(.*)*(.*)*(.*)*x$", "((a{1,50}){1,50}){1,50}b", "(x+x+)+y"):
            answer = self.log(grep=expression, count="")
            self.assertIn(answer.status, (200, 400), expression)

    def test_four_run_and_the_fifth_is_asked_to_wait(self) -> None:
        followers = [self.open("/follow") for _ in range(4)]
        try:
            self.assertTrue(wait_until(lambda: len(self.sandbox.programs()) == 4, 30))
            answer = self.get("/status")
            self.assertEqual(answer.status, 503)
            self.assertGreater(int(answer.header["retry-after"]), 0)
        finally:
            for follower in followers:
                follower.close()
        self.assertTrue(wait_until(lambda: self.get("/status").status == 200, 30))

    def test_200_connections_at_once(self) -> None:
        def status(_: int) -> int | None:
            try:
                return self.get("/log?lines=50").status
            except OSError:  # httpd's queue is short: the kernel may drop a connection
                return None
        with concurrent.futures.ThreadPoolExecutor(200) as pool:
            answers = list(pool.map(status, range(200)))
        self.assertEqual(set(answers) - {200, 503, None}, set())
        self.assertIn(200, answers)

    def test_connections_cut_at_every_point_leave_nothing(self) -> None:
        request = f"GET {PROGRAM}/log?lines=2000 HTTP/1.1\r\nHost: x\r\n\r\n".encode()
        for length in range(0, len(request), 7):
            with socket.create_connection(("127.0.0.1", self.sandbox.port)) as connection:
                connection.sendall(request[:length])
        for received in (0, 1, 100, 5000, 100000):
            with self.open("/log?lines=10000") as connection:
                while received > 0:
                    part = connection.recv(received)
                    if not part:
                        break
                    received -= len(part)
        for path in ("/follow", "/follow?grep=nothing+matches", "/download?limit=none", "/log?grep=zzz&lines=10000"):
            self.open(path).close()

    def test_who_waits_for_lines_that_do_not_come_is_missed(self) -> None:
        with self.open("/follow?grep=nothing+matches") as connection:
            self.assertIn(b"200", connection.recv(100))
            self.assertTrue(wait_until(lambda: len(self.sandbox.programs()) == 1, 30))
        self.assertTrue(wait_until(lambda: not self.sandbox.programs(), 30))

    def test_an_abandoned_download_does_not_disturb_another(self) -> None:
        abandoned = self.open("/download?limit=none")
        abandoned.recv(1000)
        abandoned.close()
        answer = self.get("/download?limit=none")
        self.assertEqual(len(answer.body), int(answer.header["content-length"]))

    def test_the_program_has_no_rights(self) -> None:
        if os.getuid() != 0:
            self.skipTest("only root's sandbox has a second user")
        with self.open("/follow"):
            self.assertTrue(wait_until(self.sandbox.programs, 30))
            pid, = self.sandbox.programs()
            status = Path(f"/proc/{pid}/status").read_text()
            fields = dict(line.split(":\t", 1) for line in status.splitlines() if ":\t" in line)
            self.assertNotIn("0", fields["Uid"].split())
            self.assertEqual(int(fields["CapEff"], 16), 0)


class LighttpdTest(PageTest):
    """The same behind the second server."""

    options = ("--lighttpd",)
    changes_escapes = True


if __name__ == "__main__":
    if not (BUILD / "www/cgi-bin/moraine").exists():
        sys.exit(f"{BUILD}/www/cgi-bin/moraine is missing: build the target moraine_page")
    unittest.main(verbosity=2)
