# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Downloads of a hundred devices in ClickHouse, on one server and on two shards: the answers are those
of a plain count, and an import that is repeated, in whatever order, changes none of them."""
from __future__ import annotations

import random
import time
from pathlib import Path

from tests.command.command import CommandCase
from tests.fleet.clickhouse import PROGRAMS, SCHEMA, Server
from tests.fleet.devices import Device, Fleet
from tests.harness import case
from tests.harness.services import free_port

TEXT = "is stuck"
DEVICES = 100


class ClickHouse(CommandCase):
    def setUp(self) -> None:
        super().setUp()
        self.fleet = Fleet([Device(number) for number in range(DEVICES)])

    def downloads(self) -> list[Path]:
        """Of each device. What the next have was archived and renumbered meanwhile."""
        for device in self.fleet.devices:
            device.live_through(3)
        paths = [device.download(self.folder) for device in self.fleet.devices]
        second = int(time.time())
        for device in self.fleet.devices:
            for _ in range(device.random.randrange(4)):
                device.archive_oldest()
            device.drop_oldest_boots(device.random.randrange(3))
            device.live_through(2)
        self.wait_until(lambda: int(time.time()) > second, "the next second")
        return paths + [device.download(self.folder) for device in self.fleet.devices]

    def check_answers(self, server: Server) -> None:
        fleet = self.fleet
        rows = [tuple(map(str, row)) for row in fleet.which_devices(TEXT)]
        self.assertGreater(len(rows), 10)
        self.assertEqual(server.ask("which-devices", TEXT), rows)
        self.assertEqual(server.ask("first-seen", TEXT),
                         [tuple(map(str, row)) for row in fleet.first_seen(TEXT)])
        rows = fleet.by_version(TEXT)
        self.assertEqual([row[0] for row in rows][0], "3.0.0")
        self.assertEqual(server.ask("by-version", TEXT), [tuple(map(str, row)) for row in rows])
        rows = fleet.noisiest_programs()
        found = server.ask("noisiest-programs")
        self.assertEqual([row[:4] for row in found], [tuple(map(str, row[:4])) for row in rows])
        for row, (*_, average) in zip(found, rows):
            self.assertAlmostEqual(float(row[4]), average, delta=0.11)
        boots = server.ask("unclean-boots")
        counts = [(name, sum(row[0] == name for row in boots)) for name in sorted({row[0] for row in boots})]
        self.assertEqual(counts, fleet.unclean_boots())

    def check_imports(self, servers: list[Server], table: str) -> None:
        downloads = self.downloads()
        servers[0].load(*downloads)
        self.check_answers(servers[-1])
        random.Random(1).shuffle(downloads)
        servers[-1].load(*downloads)
        self.check_answers(servers[0])
        # What the second download of a device has is known by that one.
        known = servers[0].run("SELECT device, argMax(lines, seen) FROM (SELECT device, seen, count() AS lines "
                               "FROM fleet.lines FINAL GROUP BY device, seen) GROUP BY device ORDER BY device")
        self.assertEqual(known, [(device.name, str(device.kept)) for device in self.fleet.devices])
        # Also without FINAL, once the parts are merged.
        kept = 0
        for server in servers:
            for partition, in server.run(
                    "SELECT DISTINCT partition FROM system.parts "
                    f"WHERE database = 'fleet' AND table = '{table}'"):
                server.run(f"OPTIMIZE TABLE fleet.{table} PARTITION {partition} FINAL")
            kept += int(server.run(f"SELECT count() FROM fleet.{table}")[0][0])
        self.assertEqual(kept, len(self.fleet.lines()))

    def start(self, *arguments: object) -> Server:
        server = Server(*arguments)
        self.addCleanup(server.stop)
        return server

    def test_one_server(self) -> None:
        server = self.start(self.folder / "server", [free_port()])
        server.wait()
        server.run((SCHEMA / "schema.sql").read_text())
        self.check_imports([server], "lines")

    def test_what_is_being_collected(self) -> None:
        """Ends in half a line; a download has the same lines, and what a later collection adds."""
        server = self.start(self.folder / "server", [free_port()])
        server.wait()
        server.run((SCHEMA / "schema.sql").read_text())
        device = self.fleet.devices[1]
        device.live_through(1)
        device.write()
        lines = self.check("log", "-o", "json", "--show-cursor").out
        collected = self.folder / f"{device.name}.json"
        cut = lines.rindex(b'"cursor"')
        collected.write_bytes(lines[:cut])
        server.load(collected)
        self.assertEqual(self.count(server), len(device.lines) - 1)
        collected.write_bytes(lines)
        server.load(device.download(self.folder), collected)
        self.assertEqual(self.count(server), len(device.lines))

    @staticmethod
    def count(server: Server) -> int:
        return int(server.run("SELECT count() FROM fleet.lines FINAL")[0][0])

    def test_two_shards(self) -> None:
        ports = [free_port(), free_port()]
        servers = [self.start(self.folder / f"server-{port}", [port], ports) for port in ports]
        for server in servers:
            server.wait()
            server.run((SCHEMA / "schema.sql").read_text() + (SCHEMA / "shards.sql").read_text())
        self.check_imports(servers, "shard")
        counts = [int(server.run("SELECT uniqExact(device) FROM fleet.shard")[0][0]) for server in servers]
        self.assertEqual(sum(counts), DEVICES)
        self.assertGreater(min(counts), DEVICES // 4)


if __name__ == "__main__":
    case.main(PROGRAMS)
