# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""What the daemon takes on the device: its stripped file, the sections that are loaded, and the
relocations that the loader works off at each start."""
from __future__ import annotations

import platform
import re
import subprocess
import tempfile
from pathlib import Path
from typing import Sequence

from benchmarks.measure import Row

NATIVE = platform.machine().replace("_", "-")
KIB = 1024
GOALS = {("aarch64", "static"): 900 * KIB, ("aarch64", "dynamic"): 120 * KIB}
SECTIONS = (".text", ".rodata", ".eh_frame", ".gcc_except_table", ".data.rel.ro", ".data", ".bss")


def output_of(*command: str) -> str:
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def sections_of(program: Path) -> dict[str, int]:
    found = re.findall(r"^(\.\S+) +(\d+)", output_of("size", "-A", str(program)), re.M)
    return {name: int(size) for name, size in found}


def relocations_of(program: Path) -> int:
    """Those that need no symbol, too."""
    return len(re.findall(r"^[0-9a-f]{16} ", output_of("readelf", "-rW", str(program)), re.M))


def measure(builds: Sequence[tuple[str, str, Path]]) -> dict:
    """`builds`: architecture, linkage and the daemon as it was built."""
    rows, table = [], []
    for architecture, linkage, daemon in builds:
        strip = "strip" if architecture == NATIVE else f"{architecture}-linux-gnu-strip"
        with tempfile.NamedTemporaryFile() as stripped:
            subprocess.run([strip, "-o", stripped.name, daemon], check=True)
            program = Path(stripped.name)
            size = program.stat().st_size
            sections = sections_of(program)
            relocations = relocations_of(program)
        name = f"{architecture}, {linkage}"
        rows.append(Row("footprint", f"{name}: stripped", "B", [size],
                        goal=GOALS.get((architecture, linkage))))
        table.append({"build": name, "size": size, "relocations": relocations,
                      "sections": {section: sections.get(section, 0) for section in SECTIONS}})
    return {"rows": rows, "table": table}
