# SPDX-FileCopyrightText: 2026 The vandis-moraine authors
# SPDX-License-Identifier: MIT

"""The unit tests, compiled for the device and run on it."""
from __future__ import annotations

import re
import subprocess
from pathlib import Path

from rig.emulator import image as images
from rig.emulator import product
from rig.emulator.packages import ARCHITECTURE, Packages
from tests.device.fixture import GUEST, Fixture, check

BUILD = images.ROOT / "build/aarch64-tests"
GOOGLETEST = images.FOLDER / "googletest"
TIMEOUT = 1800
MEMORY_MIB = 1024  # some tests make many files


def build() -> list[Path]:
    """The test programs, stripped."""
    if not GOOGLETEST.exists():
        images.say(f"fetching googletest for {ARCHITECTURE}")
        packages = Packages(images.FOLDER / "packages")
        packages.update()
        packages.unpack(["libgtest-dev", "libgmock-dev"], GOOGLETEST)
    images.say("building the unit tests for 64-bit Arm")
    BUILD.mkdir(parents=True, exist_ok=True)
    log = BUILD / "device.log"
    log.unlink(missing_ok=True)
    config = GOOGLETEST / "usr/lib/aarch64-linux-gnu/cmake/GTest"
    product.run(["cmake", "-S", str(images.ROOT), "--preset", "aarch64-dynamic", "-B", str(BUILD),
                 "-D", "MORAINE_TESTS=ON", "-D", f"GTest_DIR={config}",
                 "-D", "CMAKE_COMPILE_WARNING_AS_ERROR=OFF",
                 "-D", "CMAKE_GTEST_DISCOVER_TESTS_DISCOVERY_MODE=PRE_TEST"], log)
    product.run(["cmake", "--build", str(BUILD)], log)
    programs = sorted(path for path in (BUILD / "tests").glob("*_test") if path.is_file())
    stripped = BUILD / "stripped"
    stripped.mkdir(exist_ok=True)
    for program in programs:
        subprocess.run([f"{images.TOOLS}strip", "-o", str(stripped / program.name), str(program)],
                       check=True)
    return [stripped / program.name for program in programs]


def run(fixture: Fixture) -> str:
    programs = build()
    files = {f"root/tests/{program.name}": program.read_bytes() for program in programs}
    files |= images.libraries(programs)
    files["root/script"] = (GUEST / "unit-tests.sh").read_bytes()
    files["root/build-folder"] = f"{BUILD}\n".encode()
    with fixture.power_on(files, with_disk=False, memory_mib=MEMORY_MIB) as device:
        device.wait_until_off(TIMEOUT)
    console = "\n".join(device.lines)
    check("@device status 0" in device.lines, f"unit tests failed:\n{console}")
    passed = re.search(r"^@passed (\d+)$", console, re.MULTILINE)
    check(passed is not None and int(passed[1]) > 0, f"no unit test has run:\n{console}")
    return f"{passed[1]} tests of {len(programs)} programs"
