# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""Tests what docs/fleet.md describes with the real programs. Installs those that are missing."""
from __future__ import annotations

import argparse
import subprocess
import sys
from pathlib import Path

from tests.harness.paths import ROOT

PRESET = "dev"


def run(*command: str) -> bool:
    return subprocess.run(command, cwd=ROOT).returncode == 0


def main() -> int:
    parser = argparse.ArgumentParser(prog="python3 -m tests.fleet", description=__doc__)
    parser.add_argument("--only", help="the test of this name: journal, shipping, clickhouse")
    arguments = parser.parse_args()
    for command in (["rig/install-packages", "fleet"], ["rig/build-busybox"], ["cmake", "--preset", PRESET],
                    ["cmake", "--build", "--preset", PRESET, "--target", "vandis-moraine",
                     "moraine_command", "sandbox", "fast_sleep"]):
        if not run(*command):
            return 1
    names = sorted(path.stem for path in Path(__file__).parent.glob("*_test.py"))
    if arguments.only:
        names = [name for name in names if name == f"{arguments.only}_test"]
    failed = [name for name in names if not run("python3", "-B", "-m", f"tests.fleet.{name}")]
    print(f"{len(names) - len(failed)} passed, {len(failed)} failed: {' '.join(failed)}" if failed
          else f"{len(names)} passed")
    return 1 if failed or not names else 0


if __name__ == "__main__":
    sys.exit(main())
