# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""ClickHouse servers of a test, in its own folder and on free ports."""
from __future__ import annotations

import os
import signal
import subprocess
from pathlib import Path
from typing import Sequence

from tests.command.command import environment, program
from tests.harness import waiting
from tests.harness.paths import ROOT

FLEET = ROOT / "examples/fleet"
SCHEMA = FLEET / "clickhouse"
SERVER = "/usr/sbin/clickhouse-server"
PROGRAMS = {SERVER: Path(SERVER)}  # that a sandbox needs


def import_environment(**variables: str) -> dict[str, str]:
    """For the examples, which call `moraine`."""
    return {**environment(), "PATH": f"{Path(program()).parent}:{os.environ['PATH']}", **variables}


CONFIG = """<?xml version="1.0"?>
<yandex>
    <logger><level>warning</level><console>1</console></logger>
    <listen_host>127.0.0.1</listen_host>
    <tcp_port>{port}</tcp_port>
    <path>{folder}/data/</path>
    <tmp_path>{folder}/tmp/</tmp_path>
    <users_config>{folder}/users.xml</users_config>
    <default_profile>default</default_profile>
    <default_database>default</default_database>
    <mark_cache_size>268435456</mark_cache_size>
    <timezone>UTC</timezone>
</yandex>
"""
USERS = """<?xml version="1.0"?>
<yandex>
    <profiles><default></default></profiles>
    <users><default>
        <password></password><networks><ip>::/0</ip></networks>
        <profile>default</profile><quota>default</quota>
    </default></users>
    <quotas><default></default></quotas>
</yandex>
"""


def write_settings(folder: Path, port: int, shards: Sequence[int]) -> None:
    (folder / "config.d").mkdir(parents=True)
    (folder / "config.xml").write_text(CONFIG.format(folder=folder, port=port))
    (folder / "users.xml").write_text(USERS)
    (folder / "config.d/compression.xml").write_text((SCHEMA / "compression.xml").read_text())
    if shards:
        text = (SCHEMA / "shards.xml").read_text()
        for number, port in enumerate(shards, 1):
            text = text.replace(f"<host>logs-{number}</host><port>9000</port>",
                                f"<host>127.0.0.1</host><port>{port}</port>")
        (folder / "config.d/shards.xml").write_text(text)


class Server:
    """`ports` are those of all shards; the first is this server's own."""

    def __init__(self, folder: Path, ports: Sequence[int], shards: Sequence[int] = ()) -> None:
        self.client = ["clickhouse-client", "--host=127.0.0.1", f"--port={ports[0]}", "--multiquery"]
        write_settings(folder, ports[0], shards)
        self.log = folder / "server.log"
        with self.log.open("wb") as log:
            self._process = subprocess.Popen(
                [SERVER, f"--config-file={folder}/config.xml"], cwd=folder, stdout=log,
                stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL)

    def wait(self) -> None:
        def answers() -> bool:
            if self._process.poll() is not None:
                raise RuntimeError(f"clickhouse-server has ended: {self.log.read_text()}")
            return subprocess.run([*self.client, "--query", "SELECT 1"], stdin=subprocess.DEVNULL,
                                  stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode == 0
        if not waiting.wait_until(answers):
            raise RuntimeError(f"clickhouse-server does not answer: {self.log.read_text()}")

    def stop(self) -> None:
        self._process.send_signal(signal.SIGTERM)
        self._process.wait()

    def run(self, query: str, **options: str) -> list[tuple[str, ...]]:
        done = subprocess.run([*self.client, *(f"--{name}={value}" for name, value in options.items())],
                              input=query, text=True, capture_output=True)
        if done.returncode != 0:
            raise RuntimeError(f"{query}\n{done.stderr}")
        return [tuple(line.split("\t")) for line in done.stdout.splitlines()]

    def ask(self, question: str, text: str = "") -> list[tuple[str, ...]]:
        return self.run((SCHEMA / f"{question}.sql").read_text().replace("TEXT", text))

    def load(self, *files: Path) -> None:
        subprocess.run([str(FLEET / "to-clickhouse"), *map(str, files)], check=True,
                       env=import_environment(CLICKHOUSE=" ".join(self.client[:3])))
