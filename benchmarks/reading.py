# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Reading the archive with the command moraine, beside what people use without it: `find`, `xz -dc`
with `wc` or `grep`, `xzgrep`, `rg -z`, and `journalctl -g` on the same lines in a journal."""
from __future__ import annotations

import os
import re
import shutil
import subprocess
import time
from pathlib import Path
from typing import Callable, Mapping

from benchmarks.archiving import run_process
from benchmarks.measure import Cost, Row, Titled, in_turns
from benchmarks.scenery import write_log_text
from tests.harness.paths import ARCHIVE

MORAINE = "/usr/sbin/moraine"
JOURNAL_REMOTE = "/lib/systemd/systemd-journal-remote"
RARE = "CSQ: 31,99 rsrp -140"  # in a handful of lines of a file
EXPRESSION = r"CSQ: 3[01],99 rsrp -1(39|40) dBm"
DISTINCT = 2  # texts; an archive repeats them
MIB = 1 << 20
SIZE_GOAL = 1258291  # of the stripped static program for aarch64: 1.2 MiB


class ReadArchive:
    """`files` archive files of `text_size` bytes of text each, of ten boots."""

    def __init__(self, files: int, text_size: int) -> None:
        shutil.rmtree(ARCHIVE, ignore_errors=True)
        ARCHIVE.mkdir(parents=True)
        self.files = files
        text = Path("/tmp/text")
        texts = []
        for number in range(min(DISTINCT, files)):
            write_log_text(text, text_size)
            compressed = Path(f"/tmp/text.{number}.xz")
            with compressed.open("wb") as target:
                subprocess.run(["xz", "-c", str(text)], stdout=target, check=True)
            texts.append(compressed)
        for number in range(files):
            stamp = time.strftime("%Y-%m-%d.%H:%M:%S", time.gmtime(number * 600))
            name = f"messages.{number * 10 // files + 1:03}.{stamp}.txt.xz"
            shutil.copy2(texts[number % len(texts)], ARCHIVE / name)
        for path in [text, *texts]:
            path.unlink()


def shell(command: str) -> Callable[[], Cost]:
    # Status 1: nothing was found.
    return lambda: run_process("/bin/sh", "-c", f"cd {ARCHIVE} && {command} || [ $? -eq 1 ]")


def moraine(*arguments: str) -> Callable[[], Cost]:
    """Its output goes where that of its peers goes."""
    quoted = " ".join(f"'{argument}'" for argument in arguments)
    return shell(f"{MORAINE} log {quoted} >/dev/null")


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
        self.rounds = 3 if quick else 7
        self.progress = Titled("reading")
        self.rows: list[Row] = []

    def compare(self, what: str, ours: Callable[[], Cost], peer_name: str,
                peer: Callable[[], Cost], goal: float, figure: str = "seconds") -> None:
        costs = in_turns(self.rounds, {"ours": ours, "peer": peer},
                         lambda text: self.progress.say(f"{what}, {text}"))
        samples = {name: [getattr(cost, figure) for cost in taken] for name, taken in costs.items()}
        self.rows.append(Row("reading", what, "s", samples["ours"], peer_name, samples["peer"],
                             comparison="ratio", goal=goal))

    def value(self, what: str, unit: str, figures: list[float], goal: float) -> None:
        self.rows.append(Row("reading", what, unit, figures, goal=goal))


def measure_many_files(bench: Bench, files: int) -> None:
    bench.progress.say(f"making {files} files")
    ReadArchive(files, 256 << 10)
    bench.compare(f"last 50 lines of {files:,} files", moraine("-n", "50"), "find",
                  shell("find . -type f -fprintf /dev/null '%f %s\\n'"), 1.5)
    bench.value(f"memory, last 50 lines of {files:,} files", "KiB",
                [peak_kib("-n", "50", "-j1")], 6 << 10)


def measure_text(bench: Bench, files: int) -> None:
    bench.progress.say(f"making {files} files of 8 MiB")
    ReadArchive(files, 8 * MIB)
    of = f"{files} x 8 MiB"
    both = "processor_seconds"
    bench.compare(f"count, 1 job, {of}, processor", moraine("-c", "-j1"), "xz -dc | wc -l",
                  shell("xz -dc *.xz | wc -l >/dev/null"), 1.10, both)
    bench.compare(f"rare word, 1 job, {of}, processor", moraine("-j1", "-F", "-g", RARE),
                  "xz -dc", shell("xz -dc *.xz >/dev/null"), 1.25, both)
    bench.compare(f"expression, 1 job, {of}, processor", moraine("-j1", "-g", EXPRESSION),
                  "xz -dc", shell("xz -dc *.xz >/dev/null"), 1.25, both)
    if len(os.sched_getaffinity(0)) >= 2:
        bench.compare(f"count, 2 jobs, {of}", moraine("-c", "-j2"), "xz -dc | grep -c",
                      shell("xz -dc *.xz | grep -c '' >/dev/null"), 0.5)
        bench.compare(f"rare word, 2 jobs, {of}", moraine("-j2", "-F", "-g", RARE), "xzgrep",
                      shell(f"xzgrep -hF '{RARE}' *.xz >/dev/null"), 1 / 3)
    bench.compare(f"rare word, {of}", moraine("-F", "-g", RARE), "rg -z",
                  shell(f"rg -zF --no-config -I '{RARE}' . >/dev/null"), 1.0)
    for jobs, goal in ((1, 6 << 10), (2, 12 << 10)):
        bench.value(f"memory, search with {jobs} {'job' if jobs == 1 else 'jobs'}", "KiB",
                    [peak_kib(f"-j{jobs}", "-g", EXPRESSION)], goal)


def measure_journal(bench: Bench, files: int) -> None:
    """The journal takes several times the room of the text, so this is on fewer files."""
    bench.progress.say("importing the lines into a journal")
    ReadArchive(files, 8 * MIB)
    journal = Path("/perm/imported.journal")
    with subprocess.Popen([MORAINE, "log", "-o", "export"], stdout=subprocess.PIPE) as exporter:
        subprocess.run([JOURNAL_REMOTE, "-o", str(journal), "-"], stdin=exporter.stdout,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
    bench.compare(f"rare word, {files} x 8 MiB, 1 job", moraine("-j1", "-F", "-g", RARE),
                  "journalctl -g",
                  shell(f"journalctl --file={journal} -g '{RARE}' >/dev/null"),
                  1.0)
    journal.unlink()


def measure(quick: bool) -> Mapping[str, object]:
    bench = Bench(quick)
    measure_many_files(bench, 2_000 if quick else 20_000)
    measure_text(bench, 4 if quick else 300)
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
