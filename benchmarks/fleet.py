# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Lines per second of a download into ClickHouse and into a journal, as docs/fleet.md does it, beside
the engines' own tools on the same lines. Run from the project's root, after rig/install-packages fleet
and a build of the preset release: python3 -m benchmarks.fleet
"""
from __future__ import annotations

import argparse
import itertools
import os
import shlex
import statistics
import subprocess
import sys
import tarfile
import tempfile
from pathlib import Path

from benchmarks.measure import Cost, Titled, in_turns, run_process
from benchmarks.scenery import write_log_text
from tests.fleet.clickhouse import FLEET, SCHEMA, Server, import_environment
from tests.harness.paths import ROOT, archive_name
from tests.harness.services import free_port

MIB = 1 << 20
REMOTE = "/lib/systemd/systemd-journal-remote"


def make_download(folder: Path, size: int) -> int:
    """A download of archive files of 1 MiB of text. Returns the number of its lines."""
    text = folder / "text"
    write_log_text(text, size)
    count = 0
    with tarfile.open(folder / "pump-logs-1.tar", "w") as archive, text.open("rb") as lines:
        for minute in itertools.count():
            piece = lines.readlines(MIB)
            if not piece:
                break
            count += len(piece)
            file = folder / archive_name(1, 60 * minute)
            with file.open("wb") as target:
                subprocess.run(["xz"], input=b"".join(piece), stdout=target, check=True)
            archive.add(file, file.name)
    text.unlink()
    return count


class Bench:
    def __init__(self, folder: Path, server: Server) -> None:
        self.folder = folder
        self.server = server
        self.client = shlex.join(server.client[:3])
        server.run((SCHEMA / "schema.sql").read_text())
        server.run("CREATE TABLE fleet.text (line String) ENGINE = MergeTree ORDER BY tuple()")
        self.shell("moraine log -D pump-logs-1.tar -o json --show-cursor | "
                   "sed 's/^{/{\"device\":\"pump\",\"seen\":1795283288,\"row\":1,/' > rows.json")
        self.shell(f"{FLEET}/to-journal source pump-logs-1.tar")

    def shell(self, command: str) -> Cost:
        return run_process("/bin/sh", "-c", f"cd {self.folder} && {command}")

    def emptied(self, table: str, command: str) -> Cost:
        self.server.run(f"TRUNCATE TABLE fleet.{table}")
        return self.shell(f"{command} 2>/dev/null")

    def works(self) -> dict:
        into_journal = f"{REMOTE} -o new.journal - >/dev/null 2>&1"
        return {
            "ClickHouse: to-clickhouse":
                lambda: self.emptied("lines", f"CLICKHOUSE='{self.client}' {FLEET}/to-clickhouse "
                                     "pump-logs-1.tar"),
            "ClickHouse: ready rows":
                lambda: self.emptied("lines", f"{self.client} --query 'INSERT INTO fleet.incoming "
                                     "FORMAT JSONEachRow' < rows.json"),
            "ClickHouse: xzcat, one column":
                lambda: self.emptied("text", f"xzcat messages.*.xz | {self.client} --query "
                                     "'INSERT INTO fleet.text FORMAT TSV'"),
            "journal: to-journal":
                lambda: self.shell(f"rm -rf new && {FLEET}/to-journal new pump-logs-1.tar 2>/dev/null"),
            "journal: journalctl -o export":
                lambda: self.shell(f"rm -f new.journal && journalctl -D source -o export | {into_journal}"),
            "moraine -o json alone":
                lambda: self.shell("moraine log -D pump-logs-1.tar -o json --show-cursor >/dev/null"),
        }

    def bytes_per_line(self, lines: int) -> str:
        size, = self.server.run("SELECT sum(bytes_on_disk) FROM system.parts WHERE database = 'fleet' "
                                "AND table = 'lines' AND active")[0]
        packed = (self.folder / "pump-logs-1.tar").stat().st_size
        return f"on disk, bytes a line: download {packed / lines:.1f}, fleet.lines {int(size) / lines:.1f}"


def main() -> int:
    parser = argparse.ArgumentParser(prog="python3 -m benchmarks.fleet", description=__doc__)
    parser.add_argument("--mib", type=int, default=40, help="text of the download (40)")
    parser.add_argument("--rounds", type=int, default=3, help="of all works in turns (3)")
    parser.add_argument("--build", type=Path, default=ROOT / "build/release")
    arguments = parser.parse_args()
    os.environ["MORAINE_BUILD"] = str(arguments.build.resolve())
    os.environ.update(import_environment())
    with tempfile.TemporaryDirectory() as name:
        folder = Path(name)
        lines = make_download(folder, arguments.mib * MIB)
        server = Server(folder / "server", [free_port()])
        try:
            server.wait()
            bench = Bench(folder, server)
            works = bench.works()
            costs = in_turns(arguments.rounds, works, Titled("fleet").say)
            sizes = bench.bytes_per_line(lines)
        finally:
            server.stop()
    print(f"\n{lines} lines, {arguments.mib} MiB of text; lines per second, median and range of "
          f"{arguments.rounds}")
    for what, samples in costs.items():
        rates = sorted(lines / cost.seconds for cost in samples)
        print(f"  {what:32} {statistics.median(rates):9,.0f}  {rates[0]:9,.0f} to {rates[-1]:9,.0f}")
    for ours, peer in (("ClickHouse: to-clickhouse", "ClickHouse: ready rows"),
                       ("ClickHouse: to-clickhouse", "ClickHouse: xzcat, one column"),
                       ("journal: to-journal", "journal: journalctl -o export")):
        ratio = statistics.median(b.seconds / a.seconds for a, b in zip(costs[ours], costs[peer]))
        print(f"  {ours} / {peer}: {ratio:.2f}")
    print(f"  {sizes}")
    return 0


if __name__ == "__main__":
    sys.exit(main())
