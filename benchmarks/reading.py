# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Reading the archive with the command moraine, beside what people use without it: `find`, `xz -dc`
with `wc` or `grep`, `xzgrep`, `rg -z`, and `journalctl -g` on the same lines in a journal."""
from __future__ import annotations

import dataclasses
import os
import re
import shlex
import shutil
import subprocess
import time
from pathlib import Path
from typing import Mapping

from benchmarks.archiving import run_process
from benchmarks.measure import Cost, Row, Titled, in_turns
from benchmarks.scenery import write_log_text
from tests.harness.paths import ARCHIVE

MORAINE = "/usr/sbin/moraine"
JOURNAL_REMOTE = "/lib/systemd/systemd-journal-remote"
RARE = "rsrp -140"  # in one line of 650
EXPRESSION = r"CSQ: .*,99 rsrp -1(39|40) dBm"
DISTINCT = 2  # texts; an archive repeats them
BOOTS = 10
MIB = 1 << 20
SIZE_GOAL = 1258291  # of the stripped static program for aarch64: 1.2 MiB


class ReadArchive:
    """`files` archive files of about `text_size` bytes of text each, of `BOOTS` boots."""

    def __init__(self, files: int, text_size: int) -> None:
        shutil.rmtree(ARCHIVE, ignore_errors=True)
        ARCHIVE.mkdir(parents=True)
        self.files = files
        text = Path("/tmp/text")
        texts = []
        for number in range(min(DISTINCT, files)):
            write_log_text(text, text_size)
            os.truncate(text, text.read_bytes().rindex(b"\n") + 1)  # no half line
            compressed = Path(f"/tmp/text.{number}.xz")
            with compressed.open("wb") as target:
                subprocess.run(["xz", "-c", str(text)], stdout=target, check=True)
            texts.append(compressed)
        for number in range(files):
            stamp = time.strftime("%Y-%m-%d.%H:%M:%S", time.gmtime(number * 600))
            name = f"messages.{number * BOOTS // files + 1:03}.{stamp}.txt.xz"
            shutil.copy2(texts[number % len(texts)], ARCHIVE / name)
        for path in [text, *texts]:
            path.unlink()


@dataclasses.dataclass(frozen=True)
class Work:
    """A command for the shell, run in the archive folder."""

    command: str

    def run(self) -> Cost:
        return run_process("/bin/sh", "-c", f"cd {ARCHIVE} && {{ {self.command}; }} >/dev/null")

    def output(self) -> list[str]:
        done = subprocess.run(["/bin/sh", "-c", self.command], cwd=ARCHIVE, check=True,
                              stdout=subprocess.PIPE)
        return done.stdout.decode().splitlines()


def moraine(*arguments: str) -> Work:
    return Work(" ".join([MORAINE, "log", *map(shlex.quote, arguments)]))


def peak_kib(*arguments: str) -> int:
    """The most memory that it had resident."""
    process = subprocess.Popen([MORAINE, "log", *arguments], stdout=subprocess.DEVNULL)
    peak = 0
    while process.poll() is None:
        try:
            found = re.search(r"^VmHWM:\s*(\d+)", Path(f"/proc/{process.pid}/status").read_text(),
                              re.MULTILINE)
        except (FileNotFoundError, ProcessLookupError):
            break
        peak = max(peak, int(found[1]) if found else 0)
        time.sleep(0.001)
    process.wait()
    return peak


class Bench:
    """Collects the rows."""

    def __init__(self, quick: bool) -> None:
        self.progress = Titled("reading")
        self.rows: list[Row] = []
        self.rounds = 3 if quick else 5

    def compare(self, what: str, ours: Work, peer_name: str, peer: Work, goal: float,
                figure: str = "seconds") -> None:
        costs = in_turns(self.rounds, {"ours": ours.run, "peer": peer.run},
                         lambda text: self.progress.say(f"{what}, {text}"))
        samples = {name: [getattr(cost, figure) for cost in taken] for name, taken in costs.items()}
        self.rows.append(Row("reading", what, "s", samples["ours"], peer_name, samples["peer"],
                             comparison="ratio", goal=goal))

    def compare_same(self, what: str, ours: Work, peer_name: str, peer: Work, goal: float,
                     figure: str = "seconds") -> None:
        """Of two that find the same: a peer that fails is fast."""
        self.progress.say(f"{what}, first without measuring")
        found = [work.output() for work in (ours, peer)]
        # A count is compared as a number, lines are as many: the peers print them in other forms.
        if not found[0] or len(found[0]) != len(found[1]) or (
                len(found[0]) == 1 and found[0] != found[1]):
            raise RuntimeError(f"{what}: {ours.command} and {peer.command} differ")
        self.compare(what, ours, peer_name, peer, goal, figure)

    def value(self, what: str, unit: str, figures: list[float], goal: float) -> None:
        self.rows.append(Row("reading", what, unit, figures, goal=goal))


def measure_small_files(bench: Bench, files: int) -> None:
    bench.progress.say(f"making {files} files")
    ReadArchive(files, 256 << 10)
    bench.compare(f"last 50 lines of {files:,} files", moraine("-n", "50"), "find",
                  Work("find . -type f -fprintf /dev/null '%f %s\\n'"), 1.5)
    bench.value(f"memory, last 50 lines of {files:,} files", "KiB",
                [peak_kib("-n", "50", "-j1")], 6 << 10)
    measure_search(bench, f"{files // BOOTS:,} x 30 KiB", "messages.001.*", "-b", "1")


def measure_large_files(bench: Bench, files: int) -> None:
    bench.progress.say(f"making {files} files of 8 MiB")
    ReadArchive(files, 8 * MIB)
    bench.rounds = 3
    measure_search(bench, f"{files} x 8 MiB of text", "*.xz")
    for jobs, goal in ((1, 6 << 10), (2, 12 << 10)):
        bench.value(f"memory, search with {jobs} {'job' if jobs == 1 else 'jobs'}", "KiB",
                    [peak_kib(f"-j{jobs}", "-g", EXPRESSION)], goal)


def measure_search(bench: Bench, of: str, files: str, *selection: str) -> None:
    """`files`: a pattern for the shell, which names what `selection` selects."""
    def search(*arguments: str) -> Work:
        return moraine(*selection, *arguments)

    both = "processor_seconds"
    text = Work(f"xz -dc {files}")
    bench.compare_same(f"count, 1 job, {of}, processor", search("-c", "-j1"), "xz -dc | wc -l",
                       Work(f"xz -dc {files} | wc -l"), 1.10, both)
    bench.compare(f"rare word, 1 job, {of}, processor", search("-j1", "-F", "-g", RARE), "xz -dc",
                  text, 1.25, both)
    bench.compare(f"expression, 1 job, {of}, processor", search("-j1", "-g", EXPRESSION), "xz -dc",
                  text, 1.25, both)
    if len(os.sched_getaffinity(0)) >= 2:
        bench.compare_same(f"count, 2 jobs, {of}", search("-c", "-j2"), "xz -dc | grep -c",
                           Work(f"xz -dc {files} | grep -c ''"), 0.5)
        bench.compare_same(f"rare word, 2 jobs, {of}", search("-j2", "-F", "-g", RARE), "xzgrep",
                           Work(f"xzgrep -hF '{RARE}' {files}"), 1 / 3)
    bench.compare_same(f"rare word, {of}", search("-F", "-g", RARE), "rg -z",
                       Work(f"rg -zF --no-config -IN '{RARE}' {files}"), 1.0)


def measure_journal(bench: Bench, files: int) -> None:
    """The journal takes several times the room of the text, so this is on fewer files."""
    bench.progress.say("importing the lines into a journal")
    ReadArchive(files, 8 * MIB)
    journal = Path("/perm/journal")  # which begins new files by itself
    journal.mkdir()
    with subprocess.Popen([MORAINE, "log", "-o", "export"], stdout=subprocess.PIPE) as exporter:
        subprocess.run([JOURNAL_REMOTE, "-o", str(journal / "imported.journal"), "-"], stdin=exporter.stdout,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
    bench.compare_same(f"rare word, {files} x 8 MiB, 1 job", moraine("-j1", "-F", "-g", RARE),
                       "journalctl -g", Work(f"journalctl -D {journal} -q -g '{RARE}'"), 1.0)
    shutil.rmtree(journal)


def measure(quick: bool) -> Mapping[str, object]:
    bench = Bench(quick)
    measure_small_files(bench, 2_000 if quick else 20_000)
    measure_large_files(bench, 4 if quick else 300)
    measure_journal(bench, 1 if quick else 5)
    bench.progress.clear()
    return {"rows": bench.rows}


def measure_size(program: Path) -> list[Row]:
    """Of the program as it is installed on a device."""
    stripped = program.with_suffix(".stripped")
    subprocess.run(["aarch64-linux-gnu-strip", "-o", str(stripped), str(program)], check=True)
    size = stripped.stat().st_size
    stripped.unlink()
    return [Row("reading", "aarch64 program, static and stripped", "B", [size], goal=SIZE_GOAL)]
