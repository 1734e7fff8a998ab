# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""The log page's init script and its settings, in a sandbox."""
from __future__ import annotations

import base64
import contextlib
import http.client
import socket
import subprocess
import unittest
from pathlib import Path

from rig import page
from tests.harness import sandbox
from tests.harness.paths import BUSYBOX
from tests.harness.services import free_port
from tests.page.requests_test import run_inside

SCRIPT, SETTINGS = page.page.script, page.page.settings
USERS = Path("/etc/moraine-page.conf")


class SettingsTest(unittest.TestCase):
    def setUp(self) -> None:
        sandbox.require()
        self.port = free_port()
        self.addCleanup(USERS.unlink, missing_ok=True)
        self.addCleanup(self.call, "stop")

    def call(self, action: str) -> subprocess.CompletedProcess[str]:
        return subprocess.run([SCRIPT, action], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)

    def start(self, *settings: str) -> subprocess.CompletedProcess[str]:
        SETTINGS.write_text("".join(f"{setting}\n" for setting in settings), encoding="utf-8")
        return self.call("start")

    def status(self, user: str = "") -> int:
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=30)
        header = {"Authorization": f"Basic {base64.b64encode(user.encode()).decode()}"} if user else {}
        with contextlib.closing(connection):
            connection.request("GET", "/cgi-bin/moraine/nothing", headers=header)
            return connection.getresponse().status

    def test_starts_and_stops_on_loopback(self) -> None:
        done = self.start(f"ADDRESS=127.0.0.1:{self.port}")
        self.assertEqual((done.returncode, done.stdout), (0, "Starting moraine-page: OK\n"))
        self.assertEqual(self.status(), 404)  # by the program
        self.assertEqual(self.call("start").returncode, 0)
        self.assertEqual(self.call("restart").returncode, 0)
        done = self.call("stop")
        self.assertEqual((done.returncode, done.stdout), (0, "Stopping moraine-page: OK\n"))
        self.assertRaises(ConnectionRefusedError, self.status)
        self.assertEqual(self.call("stop").returncode, 0)

    def test_a_network_address_needs_users(self) -> None:
        for address in (f"0.0.0.0:{self.port}", str(self.port), f"[::]:{self.port}", f"127.0.0.1.example:{self.port}"):
            done = self.start(f"ADDRESS={address}")
            self.assertEqual(done.returncode, 1, address)
            self.assertIn("list users", done.stdout, address)
            self.assertRaises(ConnectionRefusedError, self.status)

    def test_users_need_hashes_and_the_whole_page(self) -> None:
        for line in ("/:admin:secret", "/cgi-bin:admin:$1$a$b", "/:admin:", "# /:admin:$1$a$b", "/:a:$1$a$b\n/x:b:plain"):
            USERS.write_text(f"{line}\n", encoding="utf-8")
            self.assertEqual(self.start(f"ADDRESS=0.0.0.0:{self.port}").returncode, 1, line)

    def test_users_have_to_give_their_password(self) -> None:
        code = subprocess.run([str(BUSYBOX), "httpd", "-m", "secret"], stdout=subprocess.PIPE, text=True, check=True)
        USERS.write_text(f"/:admin:{code.stdout}", encoding="utf-8")
        self.assertEqual(self.start(f"ADDRESS=0.0.0.0:{self.port}").returncode, 0)
        self.assertEqual([self.status(), self.status("admin:wrong"), self.status("admin:secret")], [401, 401, 404])

    def test_the_owner_may_do_without_users(self) -> None:
        self.assertEqual(self.start(f"ADDRESS=0.0.0.0:{self.port}", "AUTH=no").returncode, 0)
        self.assertEqual(self.status(), 404)

    def test_mistakes_are_refused(self) -> None:
        for setting in ("ADDRESS=", "ADDRESS=127.0.0.1", "ADDRESS=127.0.0.1:http", "ADDRESS=127.0.0.1:70000",
                        "ADDRESS=127.0.0.1:0", "AUTH=maybe"):
            done = self.start(setting)
            self.assertEqual((done.returncode, done.stdout[:26]), (1, "/etc/default/moraine-page:"), setting)

    def test_an_address_in_use_is_reported(self) -> None:
        with socket.create_server(("127.0.0.1", self.port)):
            done = self.start(f"ADDRESS=127.0.0.1:{self.port}")
        self.assertEqual(done.returncode, 1)
        self.assertIn("in use", done.stdout)


if __name__ == "__main__":
    run_inside()
