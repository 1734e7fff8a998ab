# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""`moraine` on a terminal: the pager, colours, and text that must not act on the terminal."""
from __future__ import annotations

import json
import os
import re
import subprocess

from tests.command.command import (CommandCase, environment, line, program, write_archive,
                                   write_log)
from tests.harness import case, waiting
from tests.harness.case import write_script
from tests.harness.daemon import SCRATCH
from tests.harness.terminal import Terminal


class TerminalCase(CommandCase):
    def show(self, *arguments: str, keys: bytes = b"", **variables: str) -> tuple[int, str]:
        """Runs it on a terminal, without a pager unless PAGER is given. Returns the status and what
        the terminal got, with its line ends as they were written."""
        terminal = Terminal()
        self.addCleanup(terminal.close)
        terminal.resize(80, 25)
        process = subprocess.Popen(
            [program(), *arguments], stdin=terminal.slave, stdout=terminal.slave,
            stderr=terminal.slave, start_new_session=True,
            env={**environment(), "PAGER": "", "TERM": "xterm", **variables})
        os.close(terminal.slave)
        os.write(terminal.master, keys)
        shown = terminal.read_all()
        return process.wait(waiting.limit), shown.replace("\r\n", "\n")


class Harmless(TerminalCase):
    def test_control_characters_of_the_log(self) -> None:
        raw = bytes(byte for byte in range(256) if byte != 10)
        write_log("messages.txt", b"begin " + raw + b" end\n")
        for arguments in ((), ("--color=never",), ("--color=always",), ("-g", "end"), ("-r",)):
            status, shown = self.show("--no-pager", *arguments)
            self.assertEqual(status, 0)
            plain = shown
            for code in ("\x1b[0m", "\x1b[m", "\x1b[K"):
                plain = plain.replace(code, "")
            plain = re.sub(r"\x1b\[[0-9;]*m", "", plain)
            self.assertNotRegex(plain, r"[\x00-\x08\x0b-\x1f\x7f\x80-\x9f]")
            self.assertIn("\t", plain)
            self.assertNotIn("\udc9b", plain)  # an 8-bit control character as a bare byte

    def test_json(self) -> None:
        text = "begin " + "".join(chr(code) for code in range(0x01, 0xA1) if code != 10) + " end"
        write_log("messages.txt", text + "\n")
        _, shown = self.show("--no-pager", "-o", "json")
        self.assertNotRegex(shown.rstrip("\n"), r"[\x00-\x1f\x7f-\x9f]")
        self.assertEqual(json.loads(shown)["message"], text)

    def test_a_pipe_gets_them_as_they_are(self) -> None:
        write_log("messages.txt", b"\x1b[31mred\x07\n")
        self.assertEqual(self.check().out, b"\x1b[31mred\x07\n")

    def test_file_names(self) -> None:
        write_archive(1, line("app: x"))
        write_log("archive/messages.x\x1b[31m.txt.xz", "x")
        _, shown = self.show("--no-pager")
        self.assertIn("messages.x", shown)
        self.assertNotIn("\x1b[31m", shown)
        write_log("archive/messages.002.\x1b[31m.xz", line("app: x"))
        for arguments in (("delete", "--newest", "--files", "1", "--dry-run"), ("pack", "--dry-run")):
            _, shown = self.show(*arguments)
            self.assertIn("messages.002.", shown)
            self.assertNotIn("\x1b[31m", shown)


class Colour(TerminalCase):
    def setUp(self) -> None:
        super().setUp()
        write_log("messages.txt", line("app: good", level="user.info") +
                  line("app: bad", level="user.err"))

    def test_on_a_terminal(self) -> None:
        _, shown = self.show("--no-pager")
        good, bad = shown.splitlines()
        self.assertIn("\x1b[", bad)
        self.assertNotEqual(good.count("\x1b["), bad.count("\x1b["))

    def test_a_match(self) -> None:
        _, shown = self.show("--no-pager", "-g", "goo")
        self.assertRegex(shown, r"\x1b\[[0-9;]+mgoo\x1b\[")

    def test_never_and_always(self) -> None:
        _, shown = self.show("--no-pager", "--color=never")
        self.assertEqual(shown, line("app: good") + line("app: bad", level="user.err"))
        self.assertIn("\x1b[", self.check("--color=always").text)
        self.assertNotIn("\x1b[", self.check("--color=auto").text)

    def test_no_color(self) -> None:
        _, shown = self.show("--no-pager", NO_COLOR="1")
        self.assertNotIn("\x1b[", shown)


class Pager(TerminalCase):
    def setUp(self) -> None:
        super().setUp()
        self.text = "".join(line(f"app: {number}") for number in range(200))
        write_log("messages.txt", self.text)
        self.got = SCRATCH / "got"
        write_script(SCRATCH / "pager", f'cat >{self.got}; echo shown by the pager')

    def test_it_gets_the_output(self) -> None:
        status, shown = self.show("--color=never", PAGER=str(SCRATCH / "pager"))
        self.assertEqual(status, 0)
        self.assertEqual(self.got.read_text(), self.text)
        self.assertEqual(shown, "shown by the pager\n")

    def test_no_pager(self) -> None:
        _, shown = self.show("--no-pager", "--color=never", PAGER=str(SCRATCH / "pager"))
        self.assertEqual(shown, self.text)

    def test_a_pipe_gets_no_pager(self) -> None:
        result = self.check(variables={"PAGER": str(SCRATCH / "pager")})
        self.assertEqual(result.text, self.text)

    def test_a_pager_that_ends_early(self) -> None:
        write_script(SCRATCH / "pager", "head -n 1")
        write_log("messages.txt", self.text * 1000)
        _, shown = self.show("--color=never", PAGER=str(SCRATCH / "pager"))
        self.assertEqual(shown, self.text.splitlines(keepends=True)[0])

    def test_a_pager_that_there_is_not(self) -> None:
        _, shown = self.show("-n", "1", "--color=never", PAGER=str(SCRATCH / "missing"))
        self.assertIn(line("app: 199"), shown)

    def test_less_shows_a_screen_and_leaves_by_q(self) -> None:
        status, shown = self.show(keys=b"q", PAGER="less")
        self.assertIn("app: 5", shown)
        self.assertNotIn("app: 150", shown)
        self.assertEqual(status, 0)


if __name__ == "__main__":
    case.main()
