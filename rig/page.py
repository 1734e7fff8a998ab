# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Shows the log page of a sandbox with a history of boots and a program that logs. See ./page."""
from __future__ import annotations

import argparse
import json
import os
import re
import signal
import socket
import subprocess
import sys
import threading
from pathlib import Path

from rig.chatter import Chatter, history, send
from tests.harness import sandbox, services
from tests.harness.paths import ARCHIVE, BUSYBOX, ROOT
from tests.harness.waiting import wait_until

WWW = "/usr/share/vandis-moraine/www"
LIGHTTPD = Path("/usr/sbin/lighttpd")
page = services.Service("S92moraine-page", "/var/run/moraine-page.pid")


def parse_arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="./page", description=__doc__)
    parser.add_argument("--port", type=int, default=8514, help="of the page, on 127.0.0.1 (8514)")
    parser.add_argument("--boots", type=int, default=30, help="earlier boots in the archive (30)")
    parser.add_argument("--rate", type=float, default=5, help="lines per second (5)")
    parser.add_argument("--build", type=Path, default=ROOT / "build/release",
                        help="folder in which the product was built")
    parser.add_argument("--busybox", type=Path, default=BUSYBOX)
    parser.add_argument("--lighttpd", action="store_true",
                        help="serve it by lighttpd instead of BusyBox httpd")
    parser.add_argument("--commands", action="store_true", help=argparse.SUPPRESS)
    parser.add_argument("--only-check-arguments", action="store_true", help=argparse.SUPPRESS)
    parser.add_argument("--inside", action="store_true", help=argparse.SUPPRESS)
    return parser.parse_args()


def files(build: Path, busybox: Path) -> dict[str, Path]:
    """What the page adds to a sandbox, by the path where it stands."""
    www = build / "www"
    return {
        "/usr/sbin/httpd": busybox,
        "/etc/init.d/S92moraine-page": ROOT / "init/S92moraine-page",
        **({"/usr/sbin/lighttpd": LIGHTTPD} if LIGHTTPD.exists() else {}),
        **{f"{WWW}/{path.relative_to(www)}": path for path in sorted(www.rglob("*")) if path.is_file()},
    }


def settings(port: int) -> None:
    """Of syslogd and of the page. Where only one user exists, the page's user is that one."""
    ids = Path("/proc/self/uid_map").read_text().split()
    has_users = len(ids) == 3 and int(ids[2]) > 1
    group = ""
    with open("/etc/group", "a", encoding="utf-8") as groups:
        groups.write("log:x:813:\n")
    if has_users:
        group = "LOG_GROUP=log\n"
    else:
        with open("/etc/passwd", "a", encoding="utf-8") as users:
            users.write("moraine-page:x:0:0::/:/bin/false\n")
    services.syslogd.settings.write_text(f"ROTATION_KB=64\n{group}", encoding="utf-8")
    page.settings.write_text(f"ADDRESS=127.0.0.1:{port}\n", encoding="utf-8")


class Lighttpd:
    """By the example's configuration."""

    def __init__(self, port: int) -> None:
        text = (ROOT / "examples/log-page/lighttpd.conf").read_text(encoding="utf-8")
        group = re.search("LOG_GROUP=(.*)", services.syslogd.settings.read_text(encoding="utf-8"))
        text = text.replace("port = 8514", f"port = {port}")
        text = text.replace('groupname = "moraine-page"', f'groupname = "{group.group(1) if group else "root"}"')
        self._settings = Path("/tmp/lighttpd.conf")
        self._settings.write_text(text, encoding="utf-8")
        self._port = port

    def start(self) -> None:
        if not any(line.startswith("moraine-page:") for line in open("/etc/passwd", encoding="utf-8")):
            with open("/etc/passwd", "a", encoding="utf-8") as users:
                users.write("moraine-page:x:814:814::/:/bin/false\n")
        self._process = subprocess.Popen(["/usr/sbin/lighttpd", "-D", "-f", str(self._settings)])
        if not wait_until(self._answers, 30):
            raise RuntimeError("lighttpd does not start")

    def _answers(self) -> bool:
        with socket.socket() as connection:
            return connection.connect_ex(("127.0.0.1", self._port)) == 0

    def stop(self) -> None:
        self._process.terminate()
        self._process.wait()


def obey() -> None:
    """Logs what a test asks for on standard input, until that ends."""
    for order in map(json.loads, sys.stdin):
        texts = [order["text"]] if "text" in order else \
            [f"number {i} end" for i in range(order["first"], order["last"] + 1)]
        for text in texts:
            send(f"<14>test: {text}")
        print("done", flush=True)


def show(arguments: argparse.Namespace) -> None:
    enough = threading.Event()
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, lambda *_: enough.set())
    subprocess.run(["hostname", "pump-17"], check=True)
    settings(arguments.port)
    history(ARCHIVE, arguments.boots)
    services.syslogd.start()
    services.daemon.start()
    server = Lighttpd(arguments.port) if arguments.lighttpd else page
    server.start()
    chatter = Chatter(arguments.rate)
    chatter.start()
    print(f"http://127.0.0.1:{arguments.port}/   (Ctrl-C ends it)", flush=True)
    if arguments.commands:
        obey()
    else:
        enough.wait()
    chatter.stop()
    for service in (server, services.daemon, services.syslogd):
        service.stop()


def main() -> int:
    arguments = parse_arguments()
    if arguments.only_check_arguments:
        return 0
    if not arguments.inside:
        build, busybox = arguments.build.resolve(), arguments.busybox.resolve()
        sandbox.enter(sandbox.command(
            build, sandbox.python("rig.page", "--inside", *sys.argv[1:]), busybox=busybox,
            placed=files(build, busybox)))
    os.chdir(ROOT)
    try:
        show(arguments)
    except RuntimeError as error:
        print(f"page: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
