# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Test cases that call the command `moraine` in a sandbox, and the logs that they call it on."""
from __future__ import annotations

import dataclasses
import json
import os
import subprocess
from pathlib import Path
from typing import Any, Mapping

from tests.command.random_log import compress
from tests.harness import waiting
from tests.harness.case import SandboxCase
from tests.harness.daemon import SANITIZER_REPORT, SCRATCH
from tests.harness.paths import ARCHIVE, SYSLOG, archive_name

MTIME = 1795283288  # 2026-11-21 17:48:08 UTC, of every file that a test does not care about


@dataclasses.dataclass
class Result:
    status: int
    out: bytes
    error: str

    @property
    def text(self) -> str:
        return self.out.decode()

    @property
    def lines(self) -> list[str]:
        return self.text.splitlines()

    @property
    def json(self) -> Any:
        return json.loads(self.out)

    @property
    def objects(self) -> list[dict[str, Any]]:
        return [json.loads(line) for line in self.out.split(b"\n") if line]


def environment() -> dict[str, str]:
    return {**os.environ, "TZ": "UTC", "LC_ALL": "C.UTF-8",
            "ASAN_OPTIONS": f"detect_leaks=1:log_path={SANITIZER_REPORT}",
            "UBSAN_OPTIONS": f"print_stacktrace=1:log_path={SANITIZER_REPORT}"}


def program() -> str:
    return os.environ["MORAINE_BUILD"] + "/moraine"


class CommandCase(SandboxCase):
    """The log's folders are there and empty."""

    def setUp(self) -> None:
        super().setUp()
        ARCHIVE.mkdir()
        self.folder = SCRATCH / "work"
        self.folder.mkdir()

    def run_moraine(self, *arguments: str | Path, input: bytes | None = None,
                    variables: Mapping[str, str] | None = None, **options: Any) -> Result:
        if input is None:
            options.setdefault("stdin", subprocess.DEVNULL)
        else:
            options["input"] = input
        options.setdefault("stdout", subprocess.PIPE)
        options.setdefault("stderr", subprocess.PIPE)
        done = subprocess.run([program(), *map(str, arguments)], cwd=self.folder,
                              timeout=waiting.limit,
                              env={**environment(), **(variables or {})}, **options)
        return Result(done.returncode, done.stdout or b"", (done.stderr or b"").decode(errors="replace"))

    def check(self, *arguments: str | Path, status: int = 0, **options: Any) -> Result:
        """Runs it, and requires this status, and a message on standard error only for status 2."""
        result = self.run_moraine(*arguments, **options)
        self.assertEqual(result.status, status, result.error)
        if status == 2 and "stderr" not in options:
            self.assertNotEqual(result.error, "")
        return result

    def refuse(self, *arguments: str | Path, naming: str = "") -> None:
        """Requires that this is a usage error whose message contains `naming`."""
        result = self.check(*arguments, status=2)
        self.assertEqual(result.out, b"")
        self.assertIn(naming, result.error)


def line(text: str, *, time: str = "Nov 21 17:48:08", level: str = "user.info") -> str:
    return f"{time} device {level} {text}\n"


def write_log(path: Path, content: str | bytes, mtime: float = MTIME) -> Path:
    """A bare name is one of the syslog folder. What ends in .xz is compressed."""
    path = SYSLOG / path
    path.parent.mkdir(parents=True, exist_ok=True)
    raw = content.encode() if isinstance(content, str) else content
    path.write_bytes(compress(raw) if path.suffix == ".xz" else raw)
    os.utime(path, (mtime, mtime))
    return path


def write_archive(boot: int, content: str | bytes, *, minute: int = 0, mtime: float = MTIME) -> Path:
    return write_log(ARCHIVE / archive_name(boot, 60 * minute), content, mtime)


def snapshot(folder: Path) -> dict[str, tuple]:
    """All that a program could have changed below a folder."""
    return {str(path): (path.lstat().st_mode, path.lstat().st_mtime_ns, path.lstat().st_size)
            for path in folder.rglob("*")}
