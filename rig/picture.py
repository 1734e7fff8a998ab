# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Draws a terminal session with the command moraine: in a sandbox, syslogd and the daemon run through
a few boots of a small machine; then the commands below are run on a terminal, and what they print
becomes an SVG picture on standard output.

    python3 -m rig.picture >docs/session.svg
"""
from __future__ import annotations

import argparse
import dataclasses
import html
import os
import random
import re
import shlex
import subprocess
import sys
from pathlib import Path

from rig.chatter import send
from tests.harness import sandbox, services
from tests.harness.paths import BUSYBOX, LOG_SOCKET, ROOT, SYSLOG
from tests.harness.terminal import Terminal
from tests.harness.waiting import wait_until

COMMANDS = (
    ("moraine", "boots"),
    ("moraine", "-p", "err", "-n", "4"),
    ("moraine", "-b", "-1", "-g", "pressure (8[5-9]|9)", "-n", "3"),
    ("moraine", "status"),
)
BOOTS = 4
ROTATION_KB = 16

SEVERITY = {"err": 11, "warning": 12, "info": 14}  # of the facility user

CHARACTER, LINE, MARGIN = 8.43, 19, 18
COLOURS = {31: "#ff7b72", 32: "#7ee787", 33: "#e3b341", 34: "#79c0ff", 35: "#d2a8ff",
           36: "#76e3ea", 90: "#8b949e", 91: "#ffa198"}
TEXT, PAPER = "#e6edf3", "#0d1117"
SGR = re.compile(r"\x1b\[([0-9;]*)m")


def log(severity: str, tag: str, text: str) -> None:
    send(f"<{SEVERITY[severity]}>{tag}: {text}")


def work(choose: random.Random) -> None:
    """The lines of one boot, until syslogd has rotated."""
    log("info", "pump[212]", "started, firmware 2.4.1")
    while not (SYSLOG / "messages.txt.0").exists():
        pressure = choose.gauss(70, 8)
        log("info", "pump[212]", f"pressure {pressure:.1f} kPa, flow {choose.gauss(410, 9):.0f} l/h")
        if pressure > 90:
            log("warning", "pump[212]", f"pressure above {pressure:.0f} kPa, valve 3 opened")
        if choose.random() < 0.01:
            log("err", "modbus[198]", f"no answer from unit {choose.randrange(1, 9)} in 500 ms")
    log("info", "pump[212]", f"pressure {choose.gauss(70, 3):.1f} kPa, valves closed")


def run_boots() -> None:
    choose = random.Random(7)
    services.set_rotation_size(ROTATION_KB)
    for boot in range(BOOTS):
        services.syslogd.start()
        services.daemon.start()
        work(choose)
        if boot < BOOTS - 1:
            services.daemon.stop()  # It archives the rotation.
            services.syslogd.stop()
            wait_until(lambda: not LOG_SOCKET.exists(), 1)


def on_terminal(argv: tuple[str, ...]) -> str:
    terminal = Terminal()
    process = subprocess.Popen(argv, stdout=terminal.slave, stderr=terminal.slave,
                               env={**os.environ, "PAGER": "cat", "TERM": "xterm"})
    os.close(terminal.slave)
    shown = terminal.read_all()
    process.wait()
    terminal.close()
    return shown.replace("\r\n", "\n")


def session() -> list[str]:
    """The lines of the session, with their colours."""
    lines = []
    for argv in COMMANDS:
        lines += [f"\x1b[32m$\x1b[0m {shlex.join(argv)}", *on_terminal(argv).splitlines(), ""]
    return lines[:-1]


@dataclasses.dataclass
class Style:
    """What the escape sequences so far have switched on."""

    colour: str | None = None
    is_bold: bool = False
    is_reversed: bool = False

    def apply(self, sequence: str) -> None:
        for code in (int(number or 0) for number in sequence.split(";")):
            if code == 0:
                self.colour, self.is_bold, self.is_reversed = None, False, False
            elif code == 1:
                self.is_bold = True
            elif code in (7, 27):
                self.is_reversed = code == 7
            else:
                self.colour = COLOURS.get(code, self.colour)

    def attributes(self) -> str:
        fill = PAPER if self.is_reversed else self.colour
        return (f' fill="{fill}"' if fill else "") + (' font-weight="bold"' if self.is_bold else "")


def draw(line: str, y: float) -> str:
    """One line: the fields behind what is shown in reverse, and the text."""
    fields, spans, style, column = [], [], Style(), 0
    for index, piece in enumerate(SGR.split(line)):
        if index % 2:
            style.apply(piece)
        elif piece:
            if style.is_reversed:
                fields.append(f'<rect x="{MARGIN + column * CHARACTER:.1f}" y="{y:.1f}" '
                              f'width="{len(piece) * CHARACTER:.1f}" height="{LINE}" '
                              f'fill="{style.colour or TEXT}"/>')
            spans.append(f"<tspan{style.attributes()}>{html.escape(piece)}</tspan>")
            column += len(piece)
    return (f'{"".join(fields)}<text x="{MARGIN}" y="{y + 0.75 * LINE:.1f}" xml:space="preserve">'
            f'{"".join(spans)}</text>')


def picture(lines: list[str]) -> str:
    width = round(max(len(SGR.sub("", line)) for line in lines) * CHARACTER + 2 * MARGIN)
    height = len(lines) * LINE + 2 * MARGIN
    rows = [draw(line, MARGIN + row * LINE) for row, line in enumerate(lines) if line]
    return "\n".join((
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" width="{width}" '
        f'height="{height}" role="img" aria-label="A terminal session with the command moraine">',
        f'<rect width="100%" height="100%" rx="8" fill="{PAPER}"/>',
        f'<g font-family="ui-monospace, DejaVu Sans Mono, Menlo, Consolas, monospace" '
        f'font-size="14" fill="{TEXT}">', *rows, "</g>", "</svg>"))


def main() -> None:
    parser = argparse.ArgumentParser(prog="python3 -m rig.picture", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--text", action="store_true", help="print the session as text instead")
    parser.add_argument("--build", type=Path, default=ROOT / "build/release",
                        help="folder in which the product was built")
    parser.add_argument("--inside", action="store_true", help=argparse.SUPPRESS)
    arguments = parser.parse_args()
    if not arguments.inside:
        build = arguments.build.resolve()
        sandbox.enter(sandbox.command(
            build, sandbox.python("rig.picture", "--inside", *sys.argv[1:]), busybox=BUSYBOX,
            placed={"/usr/sbin/moraine": build / "moraine"}))
    run_boots()
    lines = session()
    services.daemon.stop()
    services.syslogd.stop()
    print("\n".join(SGR.sub("", line) for line in lines) if arguments.text else picture(lines))


if __name__ == "__main__":
    main()
