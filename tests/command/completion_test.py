# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""bash completion: verbs, options, and the boots, tags and severities that the log contains."""
from __future__ import annotations

import re
import shlex
import subprocess

from tests.command.command import CommandCase, environment, line, program, write_archive, write_log
from tests.harness import case
from tests.harness.daemon import SCRATCH
from tests.harness.paths import ROOT

COMPLETION = ROOT / "packaging/bash-completion/moraine"


class Completion(CommandCase):
    def setUp(self) -> None:
        super().setUp()
        write_archive(3, line("pump: a", level="user.err"))
        write_archive(12, line("sshd[7]: b", level="auth.info") + "no line\n")
        write_log("messages.txt", line('app: {"tag":"fake","severity":"fake"}', level="user.debug"))
        bin_folder = SCRATCH / "path"
        bin_folder.mkdir()
        (bin_folder / "moraine").symlink_to(program())

    def complete(self, typed: str) -> list[str]:
        """What is offered for the last word of a command line, as bash cuts it into words."""
        words = []
        for word in typed.split(" "):
            name, equals, value = word.partition("=")
            is_long = word.startswith("--") and equals
            words += [name, "=", *([value] if value else [])] if is_long else [word]
        script = (f"source {COMPLETION}\nPATH={SCRATCH}/path:$PATH\n"
                  f"COMP_WORDS=({' '.join(map(shlex.quote, words))})\n"
                  f"COMP_CWORD={len(words) - 1}\n_moraine\nprintf '%s\\n' \"${{COMPREPLY[@]}}\"\n")
        done = subprocess.run(["bash", "-c", script], capture_output=True, text=True, check=True,
                              env=environment(), cwd=self.folder)
        self.assertEqual(done.stderr, "")
        return [text for text in done.stdout.split("\n") if text]

    def test_verbs(self) -> None:
        self.assertEqual(self.complete("moraine "),
                         ["log", "boots", "status", "verify", "pack", "delete", "help"])
        self.assertEqual(self.complete("moraine st"), ["status"])
        self.assertEqual(self.complete("moraine help pa"), ["pack"])

    def test_options_are_those_of_the_help(self) -> None:
        for verb in ("log", "boots", "status", "verify", "pack", "delete"):
            offered = set(self.complete(f"moraine {verb} -"))
            text = self.check("help", verb).text
            for option in offered:
                if option not in ("--help", "--version"):
                    self.assertRegex(text, rf"(?<![\w-]){option}\b", verb)
                    error = self.run_moraine(verb, option, "--no-such-option").error
                    self.assertNotIn(f"unknown option '{option}'", error, verb)
            for word in text.replace(",", " ").replace("|", " ").split():
                if word.startswith("--") and word[2:].isalpha():
                    self.assertIn(word, offered, verb)

    def test_the_manual_explains_every_option_and_no_others(self) -> None:
        manual = (ROOT / "docs/moraine.1").read_text()
        verbs = ("log", "boots", "status", "verify", "pack", "delete")
        known = {option for verb in verbs for option in self.complete(f"moraine {verb} -")}
        for option in known:
            self.assertRegex(manual, rf"Fl {option[1:]}(?![\w-])")
        for option in re.findall(r"Fl (-[\w-]+)", manual):
            self.assertIn(f"-{option}", known | {"--name"})  # which stands for any

    def test_options_without_a_verb_are_those_of_log(self) -> None:
        self.assertEqual(self.complete("moraine --prio"), ["--priority"])

    def test_boots(self) -> None:
        self.assertEqual(self.complete("moraine -b "), ["13", "12", "3"])
        self.assertEqual(self.complete("moraine --boot=1"), ["13", "12"])
        self.assertEqual(self.complete("moraine delete -b "), ["13", "12", "3"])

    def test_tags(self) -> None:
        self.assertEqual(sorted(self.complete("moraine -t ")), ["app", "pump", "sshd"])
        self.assertEqual(self.complete("moraine log --tag=p"), ["pump"])

    def test_severities(self) -> None:
        self.assertEqual(sorted(self.complete("moraine -p ")), ["debug", "err", "info"])

    def test_of_a_copy(self) -> None:
        subprocess.run(["cp", "-r", "/perm/logs/syslog", "copy"], cwd=self.folder, check=True)
        write_log("messages.txt", line("other: x"))
        self.assertNotIn("other", self.complete("moraine -D copy -t "))
        self.assertIn("other", self.complete("moraine -t "))
        self.assertEqual(self.complete("moraine -D co"), ["copy"])

    def test_without_a_log(self) -> None:
        self.assertEqual(self.complete("moraine -D missing -t "), [])
        self.assertIn("warning", self.complete("moraine -D missing -p "))

    def test_other_values(self) -> None:
        self.assertEqual(self.complete("moraine -o j"), ["json"])
        self.assertEqual(self.complete("moraine --color="), ["auto", "always", "never"])
        self.assertEqual(self.complete("moraine -S y"), ["yesterday"])


if __name__ == "__main__":
    case.main()
